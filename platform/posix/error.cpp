// The last error, and errno values in its terms.
#include <cerrno>

#include "platform/posix/native.h"

namespace {

// Initial-exec: reading it never allocates, also in a library that is loaded late.
__attribute__((tls_model("initial-exec"))) thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD code) { lastError = code; }

DWORD posix_layer::ErrorFromErrno(int number) {
  switch (number) {
    case 0:
      return ERROR_SUCCESS;
    case ENOENT:
    case ELOOP:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOMEM:
    case EAGAIN:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EROFS:
      return ERROR_WRITE_PROTECT;
    case EBUSY:
    case ETXTBSY:
      return ERROR_SHARING_VIOLATION;
    case EEXIST:
      return ERROR_ALREADY_EXISTS;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ERROR_DISK_FULL;
    case EPIPE:
      return ERROR_BROKEN_PIPE;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    case ENOEXEC:
    case ELIBBAD:
      return ERROR_BAD_EXE_FORMAT;
    case ENAMETOOLONG:
    case E2BIG:
      return ERROR_FILENAME_EXCED_RANGE;
    default:
      return ERROR_GEN_FAILURE;
  }
}

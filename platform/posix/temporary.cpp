// Temporary names and the removal of files.
#include <fcntl.h>
#include <limits.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix/file.h"
#include "platform/posix/native.h"
#include "platform/posix/sharing.h"

namespace posix_layer {
namespace {

// Where the numbers of temporary names begin: elsewhere in each process and with each call.
UINT FirstNumber() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<UINT>(now.tv_nsec / 1000) + static_cast<UINT>(getpid()) * 7919;
}

// Makes an empty file under the first number for which there is none. `digits` is the place of the
// number in `path`. Returns the number, or 0 with the last error set.
UINT MakeNumbered(char* path, char* digits) {
  constexpr UINT kNumbers = 0x10000;
  UINT number = FirstNumber();
  for (UINT tried = 0; tried < kNumbers; ++tried, ++number) {
    UINT unique = number % kNumbers;
    if (unique == 0) continue;
    snprintf(digits, sizeof "FFFF.tmp", "%X.tmp", unique);
    int file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file >= 0) {
      close(file);
      return unique;
    }
    if (errno == ENOENT || errno == ENOTDIR) return Fail(ERROR_DIRECTORY), 0;
    if (errno != EEXIST && errno != EINTR) return Fail(ErrorFromErrno(errno)), 0;
  }
  return Fail(ERROR_FILE_EXISTS), 0;
}

// A descriptor of a file that is to be deleted, to ask who uses it; -1 where nobody may open it.
int OpenToDelete(const char* path) {
  constexpr int kFlags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW | O_LARGEFILE;
  int descriptor = open(path, O_RDONLY | kFlags);
  return descriptor >= 0 ? descriptor : open(path, O_WRONLY | kFlags);
}

}  // namespace
}  // namespace posix_layer

DWORD GetTempPathA(DWORD size, char* buffer) {
  constexpr char kDefault[] = "/tmp";
  char path[PATH_MAX + 2 * MAX_PATH];
  const char* folder = getenv("TMPDIR");
  if (!folder || !*folder || strlen(folder) >= MAX_PATH) folder = kDefault;
  DWORD length = GetFullPathNameA(folder, sizeof path - 1, path, nullptr);
  if (length == 0 || path[0] != '/') {
    length = GetFullPathNameA(kDefault, sizeof path - 1, path, nullptr);
  }
  if (path[length - 1] != kPathSeparator) path[length++] = kPathSeparator;
  path[length] = 0;
  if (length >= size || !buffer) return length + 1;
  memcpy(buffer, path, length + 1);
  return length;
}

UINT GetTempFileNameA(const char* folder, const char* prefix, UINT unique, char* buffer) {
  using namespace posix_layer;
  constexpr size_t kPrefix = 3;
  if (!folder || !buffer) return Fail(ERROR_INVALID_PARAMETER), 0;
  if (!*folder) return Fail(ERROR_DIRECTORY), 0;
  size_t prefixLength = prefix ? strnlen(prefix, kPrefix) : 0;
  NativePath path;
  if (!ToNative(folder, &path)) return Fail(ERROR_BUFFER_OVERFLOW), 0;
  if (path.text[path.length - 1] != '/') path.text[path.length++] = '/';
  if (path.length + prefixLength + sizeof "FFFF.tmp" > sizeof path.text) {
    return Fail(ERROR_BUFFER_OVERFLOW), 0;
  }
  char* at = path.text + path.length;
  if (prefixLength) memcpy(at, prefix, prefixLength);
  at += prefixLength;
  if (unique) {
    unique &= 0xFFFF;
    snprintf(at, sizeof "FFFF.tmp", "%X.tmp", unique);
  } else {
    unique = MakeNumbered(path.text, at);
    if (unique == 0) return 0;
  }
  // The buffer may lie behind the folder's text, on its terminator.
  memcpy(buffer, path.text, strlen(path.text) + 1);
  return unique;
}

BOOL DeleteFileA(const char* name) {
  using namespace posix_layer;
  NativePath path;
  if (!ToNative(name, &path)) return FALSE;
  struct statx facts;
  int number = Look(path.text, false, &facts);
  if (number != 0) return Fail(MissingError(path.text, number));
  if (S_ISDIR(facts.stx_mode)) return Fail(ERROR_ACCESS_DENIED);
  if (!S_ISLNK(facts.stx_mode)) {
    if (AttributesFrom(facts) & FILE_ATTRIBUTE_READONLY ||
        faccessat(AT_FDCWD, path.text, W_OK, AT_EACCESS) != 0) {
      return Fail(ERROR_ACCESS_DENIED);
    }
    if (IsOpen(IdentityOf(facts))) return Fail(ERROR_SHARING_VIOLATION);
    if (IsMappedBeyond(IdentityOf(facts), 0)) return Fail(ERROR_ACCESS_DENIED);
    SettleMapped(IdentityOf(facts));
  }
  // Others are kept out until the file is gone.
  int descriptor = S_ISREG(facts.stx_mode) ? OpenToDelete(path.text) : -1;
  DWORD error = ERROR_SUCCESS;
  if (descriptor >= 0 && !Claim(descriptor, 0, FILE_SHARE_READ | FILE_SHARE_WRITE)) {
    error = ERROR_SHARING_VIOLATION;
  } else if (descriptor >= 0 && IsMappedElsewhere(descriptor)) {
    error = ERROR_ACCESS_DENIED;
  } else if (unlink(path.text) != 0) {
    error = MissingError(path.text, errno);
  }
  if (descriptor >= 0) close(descriptor);
  return error == ERROR_SUCCESS || Fail(error);
}

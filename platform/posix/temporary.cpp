// Temporary names, copies and removal of files.
#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix/file.h"
#include "platform/posix/native.h"

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

// Copies from the positions of the descriptors to the end. Returns 0 or the errno.
int CopyBytes(int from, int to) {
  NoWriteSignals guard;
  for (;;) {  // inside the system, as far as it can
    constexpr size_t kMost = 1 << 30;
    ssize_t count = copy_file_range(from, nullptr, to, nullptr, kMost, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
  }
  // What is left: all of it between systems that do not know each other, nothing otherwise. A disk
  // that is full is told of here.
  char buffer[65536];
  for (;;) {
    ssize_t count = read(from, buffer, sizeof buffer);
    if (count == 0) return 0;
    size_t written = 0;
    if (count > 0) {
      int number = WriteAll(to, buffer, static_cast<size_t>(count), &written);
      if (number != 0) return number;
    } else if (errno != EINTR) {
      return errno;
    }
  }
}

void CopyTimes(const struct statx& facts, int to) {
#ifdef SYS_utimensat_time64
  constexpr long kSetTimes = SYS_utimensat_time64;
#else
  constexpr long kSetTimes = SYS_utimensat;
#endif
  const int64_t times[] = {facts.stx_atime.tv_sec, facts.stx_atime.tv_nsec, facts.stx_mtime.tv_sec,
                           facts.stx_mtime.tv_nsec};
  syscall(kSetTimes, to, nullptr, times, 0);
}

// Copies one open file over another one. Returns 0 or the errno. Permissions come first, so that
// nobody reads the copy who may not read the original; not every file system has them.
int CopyFile(int from, int to) {
  struct statx facts;
  int number = Look(from, &facts);
  if (number != 0) return number;
  (void)!fchmod(to, facts.stx_mode & 0777);
  number = CopyBytes(from, to);
  if (number == 0) CopyTimes(facts, to);
  return number;
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

BOOL CopyFileA(const char* from, const char* to, BOOL failIfExists) {
  using namespace posix_layer;
  DWORD before = GetLastError();
  HANDLE source = CreateFileA(from, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  if (source == INVALID_HANDLE_VALUE) return FALSE;
  // Shared with nobody, so a file is not copied to itself.
  HANDLE target = CreateFileA(to, GENERIC_WRITE, 0, nullptr,
                              failIfExists ? CREATE_NEW : CREATE_ALWAYS, 0, nullptr);
  if (target == INVALID_HANDLE_VALUE) {
    CloseHandle(source);
    return FALSE;
  }
  bool made = GetLastError() == ERROR_SUCCESS;
  int number = CopyFile(FileOf(source)->descriptor, FileOf(target)->descriptor);
  CloseHandle(source);
  CloseHandle(target);
  SetLastError(before);
  if (number == 0) return TRUE;
  NativePath path;
  if (made && ToNative(to, &path)) unlink(path.text);
  return Fail(ErrorFromErrno(number));
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
  }
  return unlink(path.text) == 0 || Fail(MissingError(path.text, errno));
}

// What the families of the layer share: errno turned into a last error, and the names of callers
// turned into native ones.
#pragma once

#include <sys/stat.h>

#include "platform/win32.h"

namespace posix_layer {

// The last error that stands for an errno value. ENOENT is ERROR_FILE_NOT_FOUND here; where a
// missing directory must be told from a missing file, see MissingError.
DWORD ErrorFromErrno(int number);

// Sets the last error and returns FALSE.
inline BOOL Fail(DWORD code) {
  SetLastError(code);
  return FALSE;
}

inline bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// A caller's name with native separators.
struct NativePath {
  char text[MAX_PATH];
  uint32_t length;
};

// Fills `path`. Returns false after setting ERROR_PATH_NOT_FOUND for a null or an empty name and
// ERROR_FILENAME_EXCED_RANGE for one of MAX_PATH bytes and more.
bool ToNative(const char* name, NativePath* path);

// Asks for the mode, size and times of a native path: of what a link leads to, or with `follow`
// false of the link itself. 64-bit values on every target. Returns 0 or the errno.
int Look(const char* path, bool follow, struct statx* facts);

// The same of an open descriptor.
int Look(int descriptor, struct statx* facts);

// Why a native path that could not be found (errno `number`) failed, as the real system tells it:
// ERROR_PATH_NOT_FOUND when a directory on the way is missing or is none, ERROR_INVALID_NAME when
// the path holds wildcards, ERROR_FILE_NOT_FOUND otherwise. Every other errno is mapped as it is.
DWORD MissingError(const char* path, int number);

// Whether something that is no directory is there once the separators at the end are left out.
bool NamesFile(const char* path);

// The attributes of something whose facts are known: 0x10 for a directory, 0x20 for anything else,
// plus 1 when no write bit is set for anybody.
DWORD AttributesFrom(const struct statx& facts);

}  // namespace posix_layer

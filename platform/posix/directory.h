// The names of one directory, read whole and sorted: what searches hand out.
#pragma once

#include "platform/posix/match.h"
#include "platform/win32.h"

namespace posix_layer {

struct DirectoryName {
  uint64_t key;     // eight upper-case bytes that decide the order of most names
  uint32_t offset;  // of the name in Directory::bytes; ends with a zero byte
  uint8_t length;
  uint8_t type;  // DT_...
};

// Searches share a directory and count their references. "." and ".." are not in it, nor are names
// with a '\\' in them, which no path can speak.
struct Directory {
  uint32_t references;
  uint32_t count;
  const DirectoryName* names;  // by their upper-case bytes, then by the bytes themselves
  const char* bytes;
  UpperTable upper;  // the order's own
};

// The names of the directory at a native path of less than MAX_PATH bytes, with a reference for the
// caller. Null with the last error set: ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY for something else
// than a directory, ERROR_ACCESS_DENIED, ERROR_TOO_MANY_OPEN_FILES, ERROR_NOT_ENOUGH_MEMORY ...
//
// The directory that was read last is kept and given out again while it is certainly unchanged.
Directory* AcquireDirectory(const char* path);

void ReleaseDirectory(Directory* directory);

// Lets go of the directory that is kept.
void ForgetDirectory();

}  // namespace posix_layer

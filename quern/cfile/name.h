// The name record of a file: its full path in parts, its attributes, size and times.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace quern {

// Parts that do not fit their field are empty.
struct FileNameRec {
  char szFull[260];  // as the system resolves it
  char szRoot[30];   // drive letter, server name, or X of a path like /X/...
  char szDir[256];   // behind the root, without a separator at the end; begins with one unless the
                     // root is X of /X/...
  char szBase[256];  // without the extension
  char szName[256];  // with it
  char szExt[256];   // without its dot
  uint32_t dwAttributes;
  uint32_t nSizeLow;
  uint32_t nSizeHigh;
  FILETIME ftCreation;
  FILETIME ftLastAccess;
  FILETIME ftLastWrite;
};
static_assert(sizeof(FileNameRec) == 1352);

// Fills the texts of a record. Compat: a file at the top of its root has a name (and base) that
// begins with the separator, unless the root is X of /X/.... Returns 0, or minus ErrLast after
// raising 1 (no name), 2 (no record, or no full path of less than 260 bytes).
int32_t FileSplitPath(const char* name, FileNameRec* rec);

// Fills attributes, size and times, the last two from the current file's handle, so that a stream
// file fails. Returns 0, or minus ErrLast after raising 1 (no record), 2 (no such file) or
// 0x20000003.
int32_t FileStat(const char* name, FileNameRec* rec);

// The current file's name record. Null after raising 1 when there is none. Compat: nothing fills
// one here.
FileNameRec* FileNameRefresh();

}  // namespace quern

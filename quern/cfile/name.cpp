#include "quern/cfile/name.h"

#include <cstddef>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cfile/object.h"

namespace quern {
namespace {

constexpr char kModule[] = "cfile";

template <size_t kSize>
void Fill(char (&field)[kSize], const char* text, ptrdiff_t length) {
  if (static_cast<size_t>(length) >= kSize) length = 0;  // less than 0, or too long
  memcpy(field, text, static_cast<size_t>(length));
  field[length] = '\0';
}

// The root of a full path, and the rest behind it.
struct Root {
  const char* text;
  ptrdiff_t length;
  const char* rest;
};

Root RootOf(const char* full) {
  if (full[0] && full[1] == ':') return {full, 1, full + 2};
  if (full[0] == '\\' && full[1] == '\\') {
    size_t length = strcspn(full + 2, "\\");
    if (length == 0) length = strlen(full + 2);
    return {full + 2, static_cast<ptrdiff_t>(length), full + 2 + length};
  }
  if (full[0] == '/' && full[1] && full[2] == '/') return {full + 1, 1, full + 3};
  return {full, 0, full};
}

}  // namespace

int32_t FileSplitPath(const char* name, FileNameRec* rec) {
  if (!name) return ErrRaise(kModule, 601, 1);
  if (!rec) return ErrRaise(kModule, 602, 2);
  char* full = rec->szFull;
  char* part;
  DWORD length = GetFullPathNameA(name, sizeof rec->szFull, full, &part);
  bool fits = length != 0 && length < sizeof rec->szFull;
  if (!fits) *full = '\0';
  Root root = RootOf(full);
  const char* rest = root.rest;
  const char* end = rest + strlen(rest);
  const char* extension = nullptr;
  const char* start = nullptr;
  for (const char* at = end; !start; --at) {
    if (!extension && *at == '.') extension = at + 1;
    if (*at == ':' || *at == '\\' || *at == '/') start = at + 1;
    if (at == rest) start = at;
  }
  Fill(rec->szName, start, end - start);
  const char* baseEnd = extension ? extension - 1 : end;
  if (!extension) extension = end;
  Fill(rec->szExt, extension, end - extension);
  Fill(rec->szBase, start, baseEnd - start);
  Fill(rec->szRoot, root.text, root.length);
  Fill(rec->szDir, rest, start - 1 - rest);
  return fits ? 0 : ErrRaise(kModule, 604, 2);
}

int32_t FileStat(const char* name, FileNameRec* rec) {
  if (!rec) return ErrRaise(kModule, 651, 1);
  DWORD attributes = GetFileAttributesA(name);
  if (attributes == INVALID_FILE_ATTRIBUTES) return ErrRaise(kModule, 653, 2);
  rec->dwAttributes = attributes;
  HANDLE file = CurrentFile ? CurrentFile->hFile : nullptr;
  DWORD high = 0;
  rec->nSizeLow = GetFileSize(file, &high);
  rec->nSizeHigh = high;
  SetLastError(ERROR_SUCCESS);
  if (!GetFileTime(file, &rec->ftCreation, &rec->ftLastAccess, &rec->ftLastWrite))
    return ErrRaise(kModule, 660, ERR_SYSTEM | 3);
  return 0;
}

FileNameRec* FileNameRefresh() {
  ErrLast = 0;
  if (CurrentFile && CurrentFile->pName) return CurrentFile->pName;
  FileStat(nullptr, nullptr);
  return ErrRaise(kModule, 675, 1), nullptr;
}

}  // namespace quern

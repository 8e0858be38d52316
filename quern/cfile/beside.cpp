#include "quern/cfile/beside.h"

#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile/list.h"
#include "quern/cfile/open.h"
#include "quern/cmem/search.h"

namespace quern {
namespace {

constexpr char kModule[] = "cfile";

// The last byte of the text that is in the set, or null.
char* LastOf(char* text, const char* set) {
  auto length = static_cast<int32_t>(strlen(text));
  return const_cast<char*>(
      MemFindAny(text, length, set, static_cast<uint32_t>(strlen(set)), MEM_BACKWARD));
}

}  // namespace

FileObject* FileOpenBeside(const char* baseName, const char* extension, uint32_t flags) {
  if (!extension && (flags & FO_SEP_SECTION)) extension = ".ini";
  if (!extension && (flags & FO_SEP_BLOCK)) extension = ".log";
  if (!extension) return ErrRaise(kModule, 701, 1), nullptr;
  char path[MAX_PATH];
  if (!baseName) {
    DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    if (length == 0 || length >= sizeof path) return ErrRaise(kModule, 705, 1), nullptr;
  } else {
    size_t length = strlen(baseName);
    if (length == 0 || length >= sizeof path) return ErrRaise(kModule, 708, 2), nullptr;
    memcpy(path, baseName, length + 1);
  }
  char* dot = LastOf(path, ".");
  if (!dot) dot = path + strlen(path);
  if (static_cast<size_t>(dot - path) + strlen(extension) >= sizeof path)
    return ErrRaise(kModule, 713, 2), nullptr;
  strcpy(dot, extension);
  const char* found = nullptr;
  char* name = path;
  if (char* separator = LastOf(path, ":\\/")) {
    // The root directory keeps its separator.
    char root[] = {*separator, '\0'};
    *separator = '\0';
    name = separator + 1;
    found = FileList(separator == path ? root : path, name, FL_FIRST);
  }
  if (!found) found = FileList(nullptr, name, FL_FIRST);
  if (!found) found = FileList("%path%", name, FL_FIRST);
  return FileOpen(nullptr, found ? found : name, flags);
}

}  // namespace quern

// Roots, patterns and flags of an enumeration, and paths to be split, out of any bytes. The folder
// that is searched is the fuzzer's own.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"

using namespace quern;

namespace {

// A folder with a few names, the current one from then on.
bool Begin() {
  char folder[] = "/tmp/list_fuzz_XXXXXX";
  if (!mkdtemp(folder) || chdir(folder) != 0) return false;
  for (const char* name : {"a", "a/b", "a/b/c", "x.y"}) mkdir(name, 0755);
  for (const char* name : {"f", "a/f.c", "a/b/g.h", "x.y/blank name", "a/b/c/ab.ab"})
    fclose(fopen(name, "w"));
  setenv("IN", "a;b", 1);
  return true;
}

std::string TextAt(const uint8_t** at, const uint8_t* end) {
  std::string text;
  while (*at < end && **at != 0) text += static_cast<char>(*(*at)++);
  if (*at < end) ++*at;
  // Nothing above the folder, and nothing of the rest of the machine.
  for (size_t dots; (dots = text.find("..")) != text.npos;) text.erase(dots, 1);
  while (!text.empty() && strchr("/\\\"; \t", text.front())) text.erase(0, 1);
  for (size_t split; (split = text.find(";/")) != text.npos;) text.erase(split + 1, 1);
  for (size_t split; (split = text.find(";\\")) != text.npos;) text.erase(split + 1, 1);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool begun = Begin();
  if (!begun || size < 4) return 0;
  uint32_t flags;
  memcpy(&flags, data, 4);
  const uint8_t* at = data + 4;
  std::string roots = TextAt(&at, data + size), patterns = TextAt(&at, data + size);
  char* buffer = static_cast<char*>(malloc(262));  // what callers are told to provide
  for (int calls = 0; calls < 100; ++calls)
    if (XFileList(buffer, roots.c_str(), patterns.empty() ? nullptr : patterns.c_str(), flags) == 0)
      break;
  XFileList(buffer, nullptr, nullptr, 0);
  free(buffer);
  FileNameRec record;
  FileSplitPath(roots.c_str(), &record);
  char full[MAX_PATH];
  char* name;
  GetFullPathNameA(roots.c_str(), sizeof full, full, &name);
  ErrClear();
  return 0;
}

// Environment expansion and the lists of roots and patterns, over any texts and values.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/win32.h"
#include "quern/ccsl/expand.h"
#include "quern/cerr.h"
#include "quern/cfile/list.h"

namespace {

// The next text of the input, up to a zero byte.
std::string Take(const char*& at, const char* end) {
  const char* stop = static_cast<const char*>(memchr(at, '\0', static_cast<size_t>(end - at)));
  std::string text(at, stop ? stop : end);
  at = stop ? stop + 1 : end;
  return text;
}

}  // namespace

// Walks begin in an empty folder, where they are fast and find the same everywhere.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::filesystem::path empty = std::filesystem::temp_directory_path() / "tavrix-expand-fuzz";
  std::filesystem::create_directory(empty);
  std::filesystem::current_path(empty);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  uint8_t mode = data[0];
  const char* at = reinterpret_cast<const char*>(data) + 1;
  const char* end = at + size - 1;
  for (const char* name : {"A", "B", "C"}) SetEnvironmentVariableA(name, Take(at, end).c_str());
  std::string roots = Take(at, end);
  std::string patterns = Take(at, end);
  quern::CslExpand(roots.c_str());
  free(quern::CslExpandTake());
  // A walk of its own for every input: a handful of names, from wherever the texts lead.
  if (!quern::CurrentFinder) quern::FileFinderSelect(nullptr);
  quern::FileListWork* work = quern::CurrentFinder->pWork;
  const char* rootList = mode & 1 ? roots.c_str() : nullptr;
  const char* patternList = mode & 2 ? patterns.c_str() : nullptr;
  for (int entry = 0; entry < 8; ++entry) {
    const char* pattern = quern::FileListPattern(work, patternList);
    if (!quern::FileListRoot(work, mode & 4 && entry == 3 ? patterns.c_str() : rootList, pattern))
      break;
    if (strlen(work->dir) >= sizeof work->dir || strlen(work->pattern) >= sizeof work->pattern)
      abort();
  }
  quern::FileListRoot(nullptr, nullptr, nullptr);
  quern::FileListPattern(nullptr, nullptr);
  // Not elsewhere: the walk would measure the disk.
  if (mode & 8 && (roots + patterns).find_first_of("/\\%") == std::string::npos)
    for (int name = 0; name < 4; ++name)
      quern::FileList(rootList, patternList, mode & 16 ? 0xA8000000 : 0);
  quern::FileList(nullptr, nullptr, 0);
  if (quern::ErrCurrent) quern::ErrClear();
  return 0;
}

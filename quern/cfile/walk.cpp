#include "quern/cfile/walk.h"

#include <cstring>

#include "quern/cerr.h"

namespace quern {
namespace {

constexpr char kModule[] = "cfile";

struct Counters {
  int32_t depth;
  int32_t found;
  int32_t limit;
};
Counters first = {0, 0, 1};
Counters second = {0, 0, 1};

// Adds a separator and a name to a path while it lives.
class Appended {
 public:
  Appended(char* path, const char* name) : end_(path + strlen(path)) {
    *end_ = kPathSeparator;
    strcpy(end_ + 1, name);
  }
  ~Appended() { *end_ = '\0'; }
  Appended(const Appended&) = delete;
  Appended& operator=(const Appended&) = delete;

 private:
  char* end_;
};

bool IsDirectory(const WIN32_FIND_DATAA& entry) {
  return entry.dwFileAttributes == FILE_ATTRIBUTE_DIRECTORY && strcmp(entry.cFileName, ".") != 0 &&
         strcmp(entry.cFileName, "..") != 0;
}

uint32_t Ignore(uint32_t /*code*/, const WIN32_FIND_DATAA* /*entry*/) { return 0; }

// Calls `each` with every entry of the directory that a pattern matches.
template <typename Each>
void Search(char* path, const char* pattern, Each each) {
  WIN32_FIND_DATAA entry;
  HANDLE search;
  {
    Appended name(path, pattern);
    search = FindFirstFileA(path, &entry);
  }
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    each(entry);
  } while (FindNextFileA(search, &entry));
  FindClose(search);
}

void ListFiles(char* path, const char* pattern, WalkCallback callback) {
  if (!pattern || !*pattern) return;
  Search(path, pattern, [&](const WIN32_FIND_DATAA& entry) {
    if (entry.dwFileAttributes != FILE_ATTRIBUTE_DIRECTORY) callback(WALK_FILE, &entry);
  });
}

}  // namespace

int32_t FileWalk(char* path, const char* pattern, WalkCallback callback) {
  if (!path) return ErrRaise(kModule, 901, 1);
  if (!callback) callback = Ignore;
  for (;;) {
    if (++first.depth > first.limit) return ErrRaise(kModule, 931, 2);
    callback(WALK_BEGIN, nullptr);
    if (first.depth == first.limit) ListFiles(path, pattern, callback);
    Search(path, "*", [&](const WIN32_FIND_DATAA& entry) {
      if (!IsDirectory(entry)) return;
      Appended name(path, entry.cFileName);
      if (first.depth == first.limit) {
        callback(WALK_DIRECTORY, &entry);
        ++first.found;
      } else {
        FileWalk(path, pattern, callback);
      }
    });
    callback(WALK_END, nullptr);
    --first.depth;
    if (first.found == 0) return 0;
    first.found = 0;
    ++first.limit;
  }
}

int32_t FileWalkB(char* path, const char* pattern, WalkCallback callback) {
  if (!path) return ErrRaise(kModule, 951, 1);
  if (!callback) callback = Ignore;
  for (;;) {
    if (++second.depth > second.limit) return ErrRaise(kModule, 978, 2);
    callback(WALK_BEGIN, nullptr);
    ListFiles(path, pattern, callback);
    Search(path, "*", [&](const WIN32_FIND_DATAA& entry) {
      if (!IsDirectory(entry)) return;
      Appended name(path, entry.cFileName);
      ++second.found;
      callback(WALK_DIRECTORY, &entry);
      FileWalk(path, pattern, callback);
    });
    callback(WALK_END, nullptr);
    --second.depth;
    if (second.found == 0) return 0;
    second.found = 0;
    ++second.limit;
  }
}

}  // namespace quern

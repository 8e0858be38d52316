#include "quern/cfile/find.h"

#include <cstring>

#include "platform/win32.h"
#include "quern/cfile/path.h"
#include "quern/csys.h"

namespace quern {
namespace {

struct Walk {
  HANDLE searches[kDepthEnd];  // [0] for names, [depth] for subdirectories; null: none open
  WIN32_FIND_DATAA records[kDepthEnd];  // what each search found last
  uint32_t state;                       // as last returned
  int32_t depth;                        // 1 at the root, 0 idle
  uint32_t end;                         // where the current directory ends in its text
  uint32_t name;                        // length of what stands before a found name
  FindEntry entry;
};
Walk walk;

void CloseSearch(int32_t slot) {
  if (walk.searches[slot]) FindClose(walk.searches[slot]);
  walk.searches[slot] = nullptr;
}

void CloseSearches() {
  for (int32_t slot = kDepthEnd - 1; slot >= 0; --slot) CloseSearch(slot);
}

// Leaves the current depth. At the deepest, which is never searched, there is no slot.
uint32_t Leave() {
  if (walk.depth < kDepthEnd) CloseSearch(walk.depth);
  --walk.depth;
  return FIND_UP;
}

// Sets the end to the end of the directory's text, behind a separator, and appends `pattern` to it.
// False when they do not fit.
bool Compose(char* dir, const char* pattern) {
  size_t end = strlen(dir);
  bool separate = end > 0 && dir[end - 1] != kPathSeparator;
  size_t length = strlen(pattern);
  walk.end = static_cast<uint32_t>(end);
  if (end + separate + length >= kDirRoom) {
    Trace(1, "FILE list: '%s' is too long for a search of '%s'\n", dir, pattern);
    return false;
  }
  if (separate) dir[walk.end++] = kPathSeparator;
  memcpy(dir + walk.end, pattern, length + 1);
  return true;
}

// Starts a search for the composed text; false when there is none.
bool Start(char* dir, const char* pattern, int32_t slot, bool directories) {
  if (!Compose(dir, pattern)) return false;
  HANDLE search = FindFirstName(dir, &walk.records[slot], directories);
  if (search == INVALID_HANDLE_VALUE) return false;
  walk.searches[slot] = search;
  return true;
}

bool Continue(int32_t slot) { return FindNextFileA(walk.searches[slot], &walk.records[slot]) != 0; }

// The caller's way up: the terminator falls on the separator.
uint32_t GoUp(char* dir) {
  while (walk.end > 0 && dir[walk.end] != kPathSeparator) --walk.end;
  dir[walk.end] = '\0';
  return Leave();
}

// The walk's own way up: the last component is cut, the parent keeps its separator.
uint32_t Ascend(char* dir) {
  if (walk.end > 0) --walk.end;
  while (walk.end > 0 && dir[walk.end - 1] != kPathSeparator) --walk.end;
  dir[walk.end] = '\0';
  return Leave();
}

bool IsDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Whether a found entry is a subdirectory to enter.
bool IsSubdirectory(const char* dir, const WIN32_FIND_DATAA& record) {
  if (!(record.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) || IsDots(record.cFileName))
    return false;
  if (walk.end + strlen(record.cFileName) < kDirRoom) return true;
  Trace(1, "FILE list: '%s%s' is too long\n", dir, record.cFileName);
  return false;
}

uint32_t StepSubdirectory(char* dir, const FindEntry** entry) {
  dir[walk.end] = '\0';
  WIN32_FIND_DATAA& record = walk.records[walk.depth];
  bool more;
  do {
    if (walk.searches[walk.depth]) {
      more = Continue(walk.depth);
    } else {
      more = Start(dir, "*", walk.depth, true);
      dir[walk.end] = '\0';
    }
    if (more && IsSubdirectory(dir, record)) {
      strcpy(dir + walk.end, record.cFileName);
      strcpy(walk.entry.name, record.cFileName);
      walk.entry.attributes = record.dwFileAttributes;
      *entry = &walk.entry;
      ++walk.depth;
      return FIND_DOWN;
    }
  } while (more);
  return Ascend(dir);
}

uint32_t StepPattern(char* dir, const char* pattern, const FindEntry** entry) {
  bool found;
  if (walk.searches[0]) {
    found = Continue(0);
  } else {
    found = Start(dir, pattern, 0, false);
    walk.name = walk.end + LastComponent(dir + walk.end);
    dir[walk.name] = '\0';
  }
  if (!found) {
    CloseSearch(0);
    return FIND_END_PATTERN;
  }
  const WIN32_FIND_DATAA& record = walk.records[0];
  memcpy(walk.entry.name, dir, walk.name);
  strcpy(walk.entry.name + walk.name, record.cFileName);
  walk.entry.attributes = record.dwFileAttributes;
  *entry = &walk.entry;
  return record.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY ? FIND_DIR : FIND_FILE;
}

}  // namespace

uint32_t FileFindStep(char* dir, const char* pattern, const FindEntry** entry) {
  if (!dir) {
    CloseSearches();
    walk.depth = 0;
    return walk.state = FIND_RESET;
  }
  if (!pattern) return walk.state = FIND_NEXT_PATTERN;
  if (walk.depth == 0) {
    CloseSearches();
    if (walk.state == FIND_UP) return walk.state = FIND_DONE;
    walk.depth = 1;
  }
  if (!entry) return walk.state = GoUp(dir);
  *entry = nullptr;
  if (walk.depth <= 0 || walk.depth >= kDepthEnd) return FIND_DONE;
  if (walk.state == FIND_UP || walk.state == FIND_END_PATTERN)
    return walk.state = StepSubdirectory(dir, entry);
  return walk.state = StepPattern(dir, pattern, entry);
}

}  // namespace quern

#include "quern/cfile/list.h"

#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/ccsl/expand.h"
#include "quern/cerr.h"
#include "quern/cfile/find.h"
#include "quern/cfile/path.h"
#include "quern/cobj.h"
#include "quern/csys.h"

namespace quern {

FileFinder* CurrentFinder;

namespace {

constexpr char kModule[] = "cfile";

constexpr uint32_t kResultGranule = 260;
constexpr uint32_t kResultRoom = 260;  // of one name, its terminator included
constexpr uint32_t kFirstResult = 270;
constexpr int32_t kDefaultDepth = 32;

// What the enumeration keeps of its root list, beside the caller's text.
struct RootList {
  char* expanded;  // the list with its references expanded, owned; null when it has none
  int64_t next;    // offset of the next entry; negative when there is none
  int64_t part;    // offset of the pattern behind a reference in the pattern text; negative: none
};
RootList rootList = {nullptr, 0, -1};

// A splitter over a copy of a list, in one heap block; null after raising 1.
MemSplit* SplitCopy(const char* list) {
  size_t length = strlen(list);
  auto* split = static_cast<MemSplit*>(malloc(sizeof(MemSplit) + length + 1));
  if (!split) return ErrRaise(kModule, 1402, 1), nullptr;
  char* text = reinterpret_cast<char*>(split + 1);
  memcpy(text, list, length + 1);
  MemSplitInit(split, text, static_cast<uint32_t>(length), ";", 1);
  return split;
}

// Tells whether something was raised while it lives, and keeps the caller's ErrLast if not.
class RaiseWatch {
 public:
  RaiseWatch() : before_(ErrLast) { ErrLast = 0; }
  ~RaiseWatch() {
    if (ErrLast == 0) ErrLast = before_;
  }
  bool Raised() const { return ErrLast != 0; }

 private:
  int32_t before_;
};

bool MakeFinder() {
  if (CurrentFinder) return true;
  ErrLast = 0;
  FileFinderSelect(nullptr);
  if (ErrLast != 0) return ErrRaise(kModule, 1311, 1000), false;
  CurrentFinder->header.flags |= INST_IMPLICIT;
  return true;
}

const char* EndEnumeration(FileFinder* finder) {
  finder->nLevel = 0;
  finder->pszSep = nullptr;
  FileFindStep(nullptr, nullptr, nullptr);
  FileListRoot(nullptr, nullptr, nullptr);
  FileListPattern(nullptr, nullptr);
  return nullptr;
}

// Sets the first pattern and the first root; false after a raise.
bool StartEnumeration(FileFinder* finder, const char* roots, const char* patterns, uint32_t flags) {
  RaiseWatch watch;
  finder->nLevel = 1;
  const char* pattern = FileListPattern(finder->pWork, patterns);
  if (!watch.Raised()) FileListRoot(finder->pWork, roots, pattern);
  if (watch.Raised()) return false;
  // A list may be the name returned last; its block then stays.
  if (!finder->pszSep && !MemBufHolds(&finder->bufResult, roots)) MemBufFree(&finder->bufResult);
  if (flags & FL_RECURSE) {
    int32_t depth = static_cast<int32_t>(flags & ~FL_RECURSE);
    if (depth != 0) finder->nMaxDepth = depth;
  }
  if (finder->nMaxDepth == 0) finder->nMaxDepth = kDefaultDepth;
  return true;
}

// Goes on with the next root, if there is one; false after a raise.
bool NextRoot(FileFinder* finder, const char* roots, const char* patterns) {
  RaiseWatch watch;
  const char* pattern = FileListPattern(finder->pWork, patterns);
  if (!watch.Raised() && FileListRoot(finder->pWork, roots, pattern)) {
    FileFindStep(nullptr, nullptr, nullptr);
    ++finder->nLevel;
  }
  return !watch.Raised();
}

// Writes the name to report to `to` and sets its length; false when it does not fit.
bool WriteName(char* to, const char* found, uint32_t flags, uint32_t* length) {
  size_t size = strlen(found);
  to[0] = '\0';
  if (size < kResultRoom) {
    if (flags & FL_AS_FOUND) {
      memcpy(to, found, size + 1);
    } else {
      size = GetFullPathNameA(found, kResultRoom, to, nullptr);
    }
  }
  if (size >= kResultRoom) {
    Trace(1, "FILE list: '%s' is too long for a name\n", found);
    return false;
  }
  if ((flags & FL_QUOTE) && strpbrk(to, " \t")) {
    memmove(to + 1, to, size);  // the block's spare bytes take the two quotes
    to[0] = to[size + 1] = '"';
    size += 2;
  }
  *length = static_cast<uint32_t>(size);
  return true;
}

enum class Outcome { kReported, kPassedOver, kFailed };

Outcome Report(FileFinder* finder, const FindEntry* entry, uint32_t flags) {
  MemBuf* result = &finder->bufResult;
  uint32_t before = 0;
  if (finder->pszSep && result->nSize != 0) {
    before = result->nSize;
    uint32_t length = static_cast<uint32_t>(strlen(finder->pszSep));
    if (!MemBufAdd(result, finder->pszSep, length) || !MemBufAdd(result, nullptr, kResultRoom))
      return Outcome::kFailed;
  } else if (!MemBufSet(result, nullptr, kResultRoom)) {
    return Outcome::kFailed;
  }
  uint32_t start = result->nSize - kResultRoom;
  uint32_t length;
  bool fits = WriteName(result->pData + start, entry->name, flags, &length);
  MemBufSet(result, nullptr, fits ? start + length : before);
  return fits ? Outcome::kReported : Outcome::kPassedOver;
}

// Follows a state: the level changes, another pattern or a way up may come next. False after a
// raise.
bool Follow(FileFinder* finder, uint32_t state, const char* patterns, uint32_t flags) {
  FileListWork* work = finder->pWork;
  bool recurse = (flags & FL_RECURSE) != 0;
  if (state == FIND_DOWN) {
    ++finder->nLevel;
    if (!recurse) finder->nLevel = 0;
  }
  if (state == FIND_END_PATTERN) {
    RaiseWatch watch;
    if (FileListPattern(work, patterns)) {
      state = FileFindStep(work->dir, nullptr, nullptr);
    } else if (watch.Raised()) {
      return false;
    } else if (!recurse || finder->nLevel >= finder->nMaxDepth) {
      state = FileFindStep(work->dir, work->pattern, nullptr);
    }
  }
  if (state == FIND_UP) --finder->nLevel;
  if (state == FIND_DONE) finder->nLevel = 0;
  return true;
}

// Out of the subdirectory and out of its parent, whose other subdirectories are given up.
void Abandon(FileFinder* finder) {
  FileFindStep(finder->pWork->dir, finder->pWork->pattern, nullptr);
  FileFindStep(finder->pWork->dir, finder->pWork->pattern, nullptr);
  finder->nLevel -= 2;
}

bool Wanted(uint32_t state, uint32_t flags) {
  return (state == FIND_FILE && !(flags & FL_NO_FILES)) || (state == FIND_DIR && (flags & FL_DIRS));
}

// Copies a counted text into a field of `capacity` bytes; raises 2 when it does not fit.
bool CopyText(char* to, uint32_t capacity, const char* text, size_t length) {
  if (length >= capacity) return ErrRaise(kModule, 1478, 2), false;
  memmove(to, text, length);
  to[length] = '\0';
  return true;
}

void DropRoots() {
  free(rootList.expanded);
  rootList = {nullptr, 0, -1};
}

// Expands the references of a list that is seen for the first time; the result is the list from now
// on. False after a raise.
bool ExpandRoots(const char* text) {
  RaiseWatch watch;
  CslExpand(text);
  rootList.expanded = CslExpandTake();
  if (!watch.Raised()) return true;
  DropRoots();
  return false;
}

// The pattern behind the reference that a pattern text begins with; the expanded list is cut there.
const char* SplitReference(const char* pattern, const char* closing) {
  const char* part = closing + 1;
  if (*part == '\\' || *part == kPathSeparator) ++part;
  rootList.part = part - pattern;
  size_t length = strlen(rootList.expanded);
  size_t tail = strlen(part);
  if (length >= tail && memcmp(rootList.expanded + length - tail, part, tail) == 0)
    rootList.expanded[length - tail] = '\0';
  return part;
}

// Takes the entry at the list's offset: its address and length, with the offset set to the next
// one.
size_t TakeEntry(const char* text, const char** entry) {
  *entry = text + rootList.next;
  size_t length = strcspn(*entry, ";");
  const char* follow = *entry + length;
  follow += strspn(follow, " ;");
  rootList.next = *follow ? follow - text : -1;
  return length;
}

// Makes directory and pattern of an entry that came without a pattern of its own.
bool SplitEntry(FileListWork* work, const char* entry, size_t length, bool quoted) {
  uint32_t attributes = GetFileAttributesA(work->dir);
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    uint32_t cut = LastComponent(work->dir);
    if (!CopyText(work->pattern, sizeof work->pattern, work->dir + cut, strlen(work->dir + cut)))
      return false;
    work->dir[cut] = '\0';
  } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
    work->pattern[0] = '\0';
  } else if (quoted) {
    if (!CopyText(work->pattern, sizeof work->pattern, work->dir, strlen(work->dir))) return false;
    work->dir[0] = '\0';
  } else {
    // Compat: with the character that follows it. That is the terminator for the last entry of a
    // list, else the ';', behind which the pattern before it shows.
    if (length + 1 >= sizeof work->pattern) return ErrRaise(kModule, 1523, 2), false;
    memmove(work->pattern, entry, length + 1);
    work->dir[0] = '\0';
  }
  if (work->pattern[0] == '\0') strcpy(work->pattern, "*");
  return true;
}

}  // namespace

const char* FileList(const char* roots, const char* patterns, uint32_t flags) {
  if (!MakeFinder()) return nullptr;
  FileFinder* finder = CurrentFinder;
  FileListWork* work = finder->pWork;
  if (!roots && !patterns) {
    finder->nLevel = -1;
  } else if (flags & FL_RESTART) {
    finder->nLevel = 0;
  }
  if (finder->nLevel == 0 && !StartEnumeration(finder, roots, patterns, flags))
    return EndEnumeration(finder);
  while (finder->nLevel >= 1) {
    const FindEntry* entry;
    uint32_t state = FileFindStep(work->dir, work->pattern, &entry);
    if (Wanted(state, flags)) {
      Outcome outcome = Report(finder, entry, flags);
      if (outcome == Outcome::kFailed) break;
      if (outcome == Outcome::kPassedOver) continue;
      if (flags & FL_FIRST) EndEnumeration(finder);
      return finder->bufResult.pData;
    }
    if (state == FIND_DOWN && (flags & FL_RECURSE) && finder->nLevel >= finder->nMaxDepth) {
      ++finder->nLevel;
      Abandon(finder);
      continue;
    }
    if (!Follow(finder, state, patterns, flags)) break;
    if (finder->nLevel == 0 && !NextRoot(finder, roots, patterns)) break;
  }
  return EndEnumeration(finder);
}

char* FileListPattern(FileListWork* work, const char* patterns) {
  FileFinder* finder = CurrentFinder;
  if (!work) {
    if (finder) {
      free(finder->pPatterns);
      finder->pPatterns = nullptr;
    }
    return nullptr;
  }
  if (!patterns || !finder) return nullptr;
  if (!finder->pPatterns) finder->pPatterns = SplitCopy(patterns);
  if (!finder->pPatterns) return nullptr;
  const char* token = MemSplitNext(finder->pPatterns, 0, 0, SPLIT_NEXT | SPLIT_TRIM);
  if (!token) return nullptr;
  uint32_t length = finder->pPatterns->nToken;
  if (length > 0 && *token == '"') {
    ++token;
    length = length > 2 ? length - 2 : 0;
  }
  if (!CopyText(work->pattern, sizeof work->pattern, token, length)) return nullptr;
  return work->pattern;
}

FileListWork* FileListRoot(FileListWork* work, const char* roots, const char* pattern) {
  if (rootList.next < 0 || !work || (!roots && !pattern)) {
    DropRoots();
    return nullptr;
  }
  const char* text = rootList.expanded ? rootList.expanded : roots ? roots : pattern;
  if (rootList.next == 0) {
    const char* opening = strchr(text, '%');
    const char* closing = opening ? strchr(opening + 1, '%') : nullptr;
    if (closing) {
      if (!ExpandRoots(text)) return nullptr;
      if (!roots) pattern = SplitReference(pattern, closing);
      roots = text = rootList.expanded;
    }
  } else if (static_cast<size_t>(rootList.next) > strlen(text)) {
    DropRoots();  // the caller's list has become shorter
    return nullptr;
  } else if (rootList.part >= 0 && pattern) {
    // In the work block the position holds whatever pattern has come there meanwhile.
    if (pattern == work->pattern || static_cast<size_t>(rootList.part) <= strlen(pattern))
      pattern += rootList.part;
    roots = text;
  }
  const char* entry;
  size_t length = TakeEntry(text, &entry);
  bool quoted = *entry == '"';
  bool copied = quoted
                    ? CopyText(work->dir, sizeof work->dir, entry + 1, length > 2 ? length - 2 : 0)
                    : CopyText(work->dir, sizeof work->dir, entry, length);
  if (!copied) return nullptr;
  if (!roots || !pattern) return SplitEntry(work, entry, length, quoted) ? work : nullptr;
  if (pattern != work->pattern &&
      !CopyText(work->pattern, sizeof work->pattern, pattern, strlen(pattern)))
    return nullptr;
  return work;
}

FileObject* FileFinderSelect(void* object) {
  auto* finder = static_cast<FileFinder*>(
      ClsAttach(kFinderTag, object, kFinderClass, sizeof(FileFinder), FileFinderClass));
  if (!finder) return ErrRaise(kModule, 1560, 1000), nullptr;
  CurrentFinder = finder;
  finder->bufResult.nAlign = kResultGranule;
  if (!finder->pWork) finder->pWork = static_cast<FileListWork*>(calloc(1, sizeof(FileListWork)));
  if (!finder->pWork) {
    FileFinderClass(0);
    return ErrRaise(kModule, 1566, 2), nullptr;
  }
  finder->pWork->dir[0] = '\0';
  if (!MemBufSet(&finder->bufResult, nullptr, kFirstResult) && !finder->bufResult.pData) {
    FileFinderClass(0);
    return ErrRaise(kModule, 1572, 3), nullptr;
  }
  return CurrentFile;
}

uint32_t FileFinderClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kFinderTag);
  auto* finder = reinterpret_cast<FileFinder*>(argument);
  if (finder && !ClsLinked(kFinderTag, kFinderClass, finder)) return 0;  // it was released before
  if (finder) CurrentFinder = finder;
  if (!CurrentFinder) return 0;
  free(CurrentFinder->pSpare);
  free(CurrentFinder->pWork);
  MemBufFree(&CurrentFinder->bufResult);
  free(CurrentFinder->pPatterns);
  free(CurrentFinder->pDrives);
  ClsDetach(kFinderTag, &CurrentFinder);
  return 0;
}

namespace {

constexpr char kDriveRoots[] =
    "A:\\\0B:\\\0C:\\\0D:\\\0E:\\\0F:\\\0G:\\\0H:\\\0I:\\\0J:\\\0K:\\\0L:\\\0M:\\\0N:\\\0O:\\\0";
static_assert(sizeof kDriveRoots == 61);

uint32_t DriveBit(UINT type) {
  switch (type) {
    case DRIVE_UNKNOWN:
      return 0x80000000;
    case DRIVE_REMOVABLE:
      return 0x40000000;
    case DRIVE_FIXED:
      return 0x20000000;
    case DRIVE_REMOTE:
      return 0x10000000;
    case DRIVE_CDROM:
      return 0x8000000;
    case DRIVE_RAMDISK:
      return 0x4000000;
    default:
      return 0;
  }
}

}  // namespace

uint32_t FileListDrives(const char* roots, uint32_t typeMask) {
  MemSplit* drives = CurrentFinder ? CurrentFinder->pDrives : nullptr;
  if (!drives) return 0;
  if (!roots) {
    drives->pToken = nullptr;
    return 0;
  }
  bool builtIn = reinterpret_cast<uintptr_t>(roots) == ~uintptr_t{0};
  if (!drives->pToken) {
    const char* list = builtIn ? kDriveRoots : roots;
    uint32_t length = builtIn ? sizeof kDriveRoots : static_cast<uint32_t>(strlen(roots));
    MemSplitInit(drives, list, length, nullptr, 0);
  }
  // Without a separator every token is empty and begins where the list does: the answer is that for
  // the whole text, and asking again would not change it.
  const char* token = MemSplitNext(drives, 0, 0, SPLIT_NEXT);
  if (!token) return 0;
  return DriveBit(GetDriveTypeA(builtIn ? token : roots)) & typeMask;
}

}  // namespace quern

// The enumeration of file names: one name a call, from a list of roots and a list of patterns.
//
// There is one enumeration per process. It is driven by calling FileList again with the same
// arguments until it returns null; the call after that begins anew. The entries of a directory come
// in the order in which the system's search gives them: first the matches of every pattern, in list
// order, then its subdirectories one by one, each with all that it holds.
//
// Compat: these rules surprise and stay:
//  - With FL_RECURSE and a separate list of patterns, a subdirectory is searched first with the
//  pattern
//    that the directory before it ended with, then with every pattern of the list: the matches of
//    the last pattern are reported twice there. At a root each pattern is searched for once.
//  - The depth of FL_RECURSE is the rest of the whole flag word, other flags included; an explicit
//  depth
//    of 2 or more loses the sibling directories at that depth behind the first one searched.
//  - A depth stays for the enumerations that follow until another one is given.
#pragma once

#include <cstdint>

#include "quern/cfile/object.h"
#include "quern/cmem/buffer.h"
#include "quern/cmem/split.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kFinderTag = ClassTag("FINF");

// Flags of FileList.
inline constexpr uint32_t FL_RECURSE = 0x80000000;  // enter subdirectories; depth in the other bits
inline constexpr uint32_t FL_DIRS = 0x20000000;     // report directories that match
inline constexpr uint32_t FL_NO_FILES = 0x10000000;  // do not report files
inline constexpr uint32_t FL_AS_FOUND =
    0x8000000;                                     // directory as given and name, not the full path
inline constexpr uint32_t FL_RESTART = 0x2000000;  // run the start-up steps although one is running
inline constexpr uint32_t FL_FIRST = 0x1000000;    // report one name and end
inline constexpr uint32_t FL_QUOTE = 0x800000;     // quote a name with a blank or a tab in it

// The texts that an enumeration works on, one heap block.
struct FileListWork {
  char dir[260];      // the current directory
  char pattern[256];  // the current pattern
};
static_assert(sizeof(FileListWork) == 516);

// The state of the enumeration, an instance of class 'FINF'.
struct FileFinder {
  InstanceHeader header;
  void* pSpare;         // released with the finder; nothing sets it
  MemSplit* pDrives;    // list of FileListDrives; released with the finder; nothing here makes it
  MemSplit* pPatterns;  // list of patterns; null between enumerations
  int32_t nLevel;  // 1 at a root, more below it; 0: no enumeration runs; -1: its end is requested
  int32_t nMaxDepth;   // deepest level that FL_RECURSE enters; 0 until the first enumeration
  const char* pszSep;  // put between names that are collected in one result; nothing sets it
  FileListWork* pWork;
  MemBuf bufResult;  // the name that was returned last
};
static_assert(sizeof(void*) != 4 || sizeof(FileFinder) == 72);

extern FileFinder* CurrentFinder;  // null until the first enumeration

// The next name, valid until the next call, or null: at the end of the enumeration, or after a
// failure was raised (1000: no finder; 1: no memory for the pattern list; 2: a pattern beyond 255
// bytes; what the expansion and the buffers raise), which ends it, too. `roots` and `patterns` are
// lists split by
// ';', with references such as %TEMP% in them; either may be null, and both null end a running
// enumeration. A root without separate patterns is split into a directory and a pattern itself.
//
// Directories that are missing or cannot be searched are no failure: they yield nothing. Names that
// do not fit 260 bytes are passed over with a trace line.
const char* FileList(const char* roots, const char* patterns, uint32_t flags);

// Steps to the next pattern of the list and returns it, in `work`; null at the end of the list,
// after which it begins anew. A null `work` drops the list.
char* FileListPattern(FileListWork* work, const char* patterns);

// Steps to the next root: fills the directory of `work`, and the pattern, from `pattern` or from
// the root. Returns `work`, or null when there is no further root (the list then begins anew) or
// after a raise.
FileListWork* FileListRoot(FileListWork* work, const char* roots, const char* pattern);

// Makes `object` (a finder, zeroed memory for one, or null: allocated) the finder. Returns the
// current *file*: callers test ErrLast. Raises 1000, 2 or 3 when it cannot be made; nothing is left
// of it then.
FileObject* FileFinderSelect(void* object);

// Class procedure of 'FINF'.
uint32_t FileFinderClass(uintptr_t argument);

// The kind of a drive, as one bit: unknown 0x80000000, removable 0x40000000, fixed 0x20000000,
// remote 0x10000000, CD-ROM 0x8000000, RAM disk 0x4000000; 0 when `typeMask` does not hold it. Null
// roots restart the list, all ones stand for "A:\" to "O:\". Needs a finder with a drive list.
uint32_t FileListDrives(const char* roots, uint32_t typeMask);

}  // namespace quern

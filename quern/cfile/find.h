// The walk through directories that a file list is made of, one state per call.
//
// The walk is process-wide: one search for names (of the current pattern in the current directory)
// and one search for subdirectories per depth, 31 at most. The caller owns the text of the current
// directory; the walk extends and cuts it. It goes down depth first, in the order in which the
// system gives the entries. What it remembers between calls are positions in that text.
//
// Compat: there are two ways up, and they differ. The walk's own ascent leaves the parent's path
// with its trailing separator. The ascent that a caller asks for writes the terminator on the
// separator; the next subdirectory's name is then appended to the parent's path without one, and
// names no directory.
#pragma once

#include <cstdint>

namespace quern {

inline constexpr uint32_t kDirRoom = 260;      // bytes of a directory text, its terminator included
inline constexpr uint32_t kPatternRoom = 256;  // bytes of a pattern, likewise
inline constexpr uint32_t kNameRoom = 260;     // bytes of a name that a system call takes, likewise
inline constexpr int32_t kDepthEnd = 32;  // the walk is over when it would search at this depth

// States, as FileFindStep returns them.
inline constexpr uint32_t FIND_DIR = 1;           // the pattern matched a directory
inline constexpr uint32_t FIND_FILE = 2;          // the pattern matched a file
inline constexpr uint32_t FIND_NEXT_PATTERN = 3;  // another pattern is to be searched for here
inline constexpr uint32_t FIND_END_PATTERN = 4;   // no further match of the pattern here
inline constexpr uint32_t FIND_DOWN = 5;          // a subdirectory was entered
inline constexpr uint32_t FIND_UP = 6;            // the walk went up one level
inline constexpr uint32_t FIND_RESET = 7;         // the walk was reset
inline constexpr uint32_t FIND_DONE = 8;          // the walk is over: above its root, or too deep

struct FindEntry {
  uint32_t attributes;              // FILE_ATTRIBUTE_ bits
  char name[kDirRoom + kNameRoom];  // a match: search directory and name; a subdirectory: its name
};

// One step.
//
// `dir`: the directory text (kDirRoom bytes), or null to reset the walk and close its searches.
// `pattern`: the pattern, or null to announce another one. `entry` receives the entry of FIND_DIR,
// FIND_FILE and FIND_DOWN (valid until the next step), else null; without it the walk goes up.
//
// A pattern may begin with a directory part: names are then found in that subdirectory, and it
// stays in the text for the patterns that follow. Directories that cannot be searched yield no
// entries; subdirectories whose path does not fit the text are passed over with a trace line.
uint32_t FileFindStep(char* dir, const char* pattern, const FindEntry** entry);

}  // namespace quern

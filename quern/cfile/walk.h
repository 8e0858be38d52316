// Walking a directory tree with a callback, level by level: a pass reports one level, and each pass
// that found directories there is followed by one that goes a level deeper.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace quern {

// Codes of the callback.
inline constexpr uint32_t WALK_DIRECTORY = 1;  // a subdirectory, with its entry
inline constexpr uint32_t WALK_FILE = 2;       // a match that is no plain directory, with its entry
inline constexpr uint32_t WALK_BEGIN = 5;      // a directory begins; no entry
inline constexpr uint32_t WALK_END = 6;

// Gets a code and the entry as the search gives it, or null. Its result is not looked at.
using WalkCallback = uint32_t (*)(uint32_t code, const WIN32_FIND_DATAA* entry);

// Walks the directory in `path`, a buffer for the deepest path, where names are added and
// cut off again. A null or empty `pattern` matches no file. Only entries whose attributes are
// exactly a directory's are directories here: one that is read-only is reported with WALK_FILE when
// its name matches, and not entered.
//
// Compat: the counters behind the walk are the process's and are never reset. A directory found at
// the last level lets its later siblings be walked deeper at once, with their own files left
// out, and a second walk begins at the level where the first one ended.
//
// Returns 0, or minus ErrLast after raising 1 (no path) or 2 (called deeper than the level, such as
// from the callback).
int32_t FileWalk(char* path, const char* pattern, WalkCallback callback);

// The same with counters of its own; it lists the matches in every pass, and walks every
// subdirectory with FileWalk right after reporting it. NEVER RETURNS when there is one: every pass
// finds it again.
int32_t FileWalkB(char* path, const char* pattern, WalkCallback callback);

}  // namespace quern

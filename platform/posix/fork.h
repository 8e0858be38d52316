// What tells a forked child's own files from those that it shares with its parent.
#pragma once

#include <cstdint>

namespace posix_layer {

// Which process opened something: 0 in the first one, and one more in each forked child. Something
// of another generation is the parent's. Read in signal handlers.
extern volatile uint32_t generation;

// Whether this process has forked: children may hold what was opened before.
extern bool hasForked;

// Keeps the two up to date from now on. False when there is no memory (the last error is set).
bool WatchForks();

}  // namespace posix_layer

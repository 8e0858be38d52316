// Date, time and words as texts: stamps and the stopwatch, and small routines on words.
#pragma once

#include "quern/ctime/clock.h"  // IWYU pragma: export
#include "quern/ctime/words.h"  // IWYU pragma: export

// The console module: control and queries by numbered commands, colours, the progress bar, the
// expansion of environment references, and small text routines.
#pragma once

#include "quern/ccsl/colour.h"    // IWYU pragma: export
#include "quern/ccsl/console.h"   // IWYU pragma: export
#include "quern/ccsl/control.h"   // IWYU pragma: export
#include "quern/ccsl/expand.h"    // IWYU pragma: export
#include "quern/ccsl/paint.h"     // IWYU pragma: export
#include "quern/ccsl/progress.h"  // IWYU pragma: export
#include "quern/ccsl/text.h"      // IWYU pragma: export
#include "quern/ccsl/width.h"     // IWYU pragma: export

// The console module: the console object and the expansion of environment references.
#pragma once

#include "quern/ccsl/console.h"  // IWYU pragma: export
#include "quern/ccsl/expand.h"   // IWYU pragma: export

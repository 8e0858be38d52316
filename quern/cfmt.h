// The format module: memory as hex digits, dumps and structures.
#pragma once

#include "quern/cfmt/hex.h"        // IWYU pragma: export
#include "quern/cfmt/structure.h"  // IWYU pragma: export

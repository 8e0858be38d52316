// Memory containers and the search of counted blocks.
#pragma once

#include "quern/cmem/buffer.h"  // IWYU pragma: export
#include "quern/cmem/chain.h"   // IWYU pragma: export
#include "quern/cmem/edit.h"    // IWYU pragma: export
#include "quern/cmem/hash.h"    // IWYU pragma: export
#include "quern/cmem/pool.h"    // IWYU pragma: export
#include "quern/cmem/search.h"  // IWYU pragma: export
#include "quern/cmem/split.h"   // IWYU pragma: export
#include "quern/cmem/tree.h"    // IWYU pragma: export

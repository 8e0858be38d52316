// The file module: the enumeration of file names.
#pragma once

#include "quern/cfile/find.h"    // IWYU pragma: export
#include "quern/cfile/list.h"    // IWYU pragma: export
#include "quern/cfile/object.h"  // IWYU pragma: export

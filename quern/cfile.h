// The file module: files as streams or mapped into memory, their names and contents, companion
// files, the enumeration of file names and the walk through a directory tree.
#pragma once

#include "quern/cfile/beside.h"   // IWYU pragma: export
#include "quern/cfile/content.h"  // IWYU pragma: export
#include "quern/cfile/entry.h"    // IWYU pragma: export
#include "quern/cfile/find.h"     // IWYU pragma: export
#include "quern/cfile/list.h"     // IWYU pragma: export
#include "quern/cfile/map.h"      // IWYU pragma: export
#include "quern/cfile/name.h"     // IWYU pragma: export
#include "quern/cfile/object.h"   // IWYU pragma: export
#include "quern/cfile/open.h"     // IWYU pragma: export
#include "quern/cfile/walk.h"     // IWYU pragma: export

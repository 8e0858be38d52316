// The scanner module: tokens of a language that a table describes, from memory and from files.
#pragma once

#include "quern/cscan/define.h"   // IWYU pragma: export
#include "quern/cscan/match.h"    // IWYU pragma: export
#include "quern/cscan/scanner.h"  // IWYU pragma: export
#include "quern/cscan/step.h"     // IWYU pragma: export

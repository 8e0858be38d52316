// The console window's size, asked for without a console object and without a raise.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace quern {

// Columns (or rows) of a window. Compat: 0 for a window of one.
inline int32_t WindowSpan(int16_t first, int16_t last) { return last - first + (last != first); }

// Columns of the window behind standard output; 0 without a console, and for one column.
uint32_t ConsoleWidth();

}  // namespace quern

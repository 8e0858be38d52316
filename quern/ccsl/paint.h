// Recolouring cells of the screen without a change of their text.
#pragma once

#include <cstdint>

namespace quern {

// Paints the cells of standard output's screen buffer from (x1, y1) up to, not including, (x2, y2),
// counted from 0 and in reading order: gives them `attribute` or, when a mask is not 0, clears the
// bits of `clear` and sets those of `set`. A start in front of the buffer, or more than a row
// behind it, is its first cell; such an end is its last. Returns 0 (also without a console), or
// minus ErrLast after raising 2 (no memory, or an end before the start).
int32_t CslPaint(uint32_t attribute, int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint32_t set,
                 uint32_t clear);

}  // namespace quern

// Colours without a console: the table of pairs, and attributes as escape texts.
//
// A colour is a console attribute: bits 0 to 3 the foreground (1 blue, 2 green, 4 red, 8 bright),
// bits 4 to 7 the background (0x10, 0x20, 0x40, 0x80 likewise).
#pragma once

#include <cstdint>

namespace quern {

inline constexpr uint32_t kColorPair = 418;  // the command of CslColorPair

// An attribute of the table of 16 x 16 pairs, each with its column as the background. `shift` (its
// remainder by 256) adds its remainder by 16 to the row and its sixteenth part to the column. Row
// and column wrap after 15, but not below 0: a negative index returns 0. -1 when `command` is not
// kColorPair.
//
// Compat: row and column both start from the background of `attribute`.
int32_t CslColorPair(uint32_t attribute, int32_t shift, uint32_t command);

// Bits of CslAnsi beside an attribute.
inline constexpr uint32_t ANSI_BOLD = 8;  // set by a bright foreground
inline constexpr uint32_t ANSI_UNDERLINE = 0x10;
inline constexpr uint32_t ANSI_BLINK = 0x20;  // set by a bright background
inline constexpr uint32_t ANSI_REVERSE = 0x40;
inline constexpr uint32_t ANSI_HIDDEN = 0x80;
inline constexpr uint32_t ANSI_NO_BACKGROUND = 0x2000;
inline constexpr uint32_t ANSI_NO_FOREGROUND = 0x4000;

// The escape text that sets an attribute, such as ESC "[0;1;33;44m" for 0x1E, in a buffer that
// every call overwrites.
const char* CslAnsi(uint32_t attribute, uint32_t extra);

}  // namespace quern

// A progress bar: one character after the other on standard output.
#pragma once

#include <cstdint>

namespace quern {

// Commands of CslProgress. "r" is the measured range per character, (high - low) / width, or 1 when
// that is 0; every result is truncated.
inline constexpr uint32_t PROGRESS_START = 0x80000007;  // first character; sets the scale to value
inline constexpr uint32_t PROGRESS_ADD = 3;             // base + value / r / scale
inline constexpr uint32_t PROGRESS_ADD_PER_CENT = 4;    // base + value / r / 100 / scale
inline constexpr uint32_t PROGRESS_ADD_PART = 5;  // base + (value - low) / r / (high - low) / scale
inline constexpr uint32_t PROGRESS_FULL = 6;      // width
inline constexpr uint32_t PROGRESS_UP = 0x80000001;    // (value - low) / r
inline constexpr uint32_t PROGRESS_DOWN = 0x80000002;  // width - (value - low) / r

// Draws copies of `character` until there are as many as the command asks for, and returns how many
// were drawn so far; 0 for a width of 0 and an unknown command. A value that is not 0 draws at
// least one. Commands with bit 31 make what is drawn the base of the others.
//
// The start remembers where the cursor is, on a console, and later characters go behind those drawn
// before.
//
// Compat: what was drawn is never forgotten. A second bar shows only what goes beyond the first.
uint32_t CslProgress(uint32_t command, uint32_t value, uint32_t low, uint32_t high, uint32_t width,
                     char character);

}  // namespace quern

// Small routines that the console module has always had.
#pragma once

#include <cstdint>

namespace quern {

// Registers the library's clean-up for the end of the process, when it is not yet, and then
// `function` (when `enroll` is not 0), which so runs before the clean-up. 0, or -1 when the runtime
// refused.
int32_t CslAtExit(void (*function)(), uint32_t enroll);

// Plus 32 for 'A' to 'Z'; every other character as it is.
char CslLower(char character);

// Formats into SharedText and returns it. At most 103 bytes; what is longer is cut. An argument may
// be SharedText itself.
const char* CslFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace quern

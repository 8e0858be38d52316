// Exit registration, ASCII lower-casing, formatting.
#pragma once

#include <cstdint>

namespace quern {

// Registers the library's clean-up for the end of the process, unless it is registered, and then
// `function` (unless `enroll` is 0), so that it runs before the clean-up. Returns 0, or -1 when the
// runtime refused.
int32_t CslAtExit(void (*function)(), uint32_t enroll);

// Plus 32 for 'A' to 'Z'; every other character as it is.
char CslLower(char character);

// Formats into SharedText and returns it. At most 103 bytes; what is longer is cut. An argument may
// be SharedText itself.
const char* CslFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace quern

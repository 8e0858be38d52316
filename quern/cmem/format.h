// Formatted text in counted memory.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace quern {

// vsnprintf, several times faster where all conversions are plain ones (%c %d %i %s %u %x %%, no
// flag, width, precision or size) and the text fits: the length of the whole text, of which
// `room` - 1 bytes and a terminator were written. Negative where vsnprintf fails.
int FormatText(char* text, size_t room, const char* format, va_list arguments);

}  // namespace quern

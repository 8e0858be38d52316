// Formatted text in counted memory.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <type_traits>

namespace quern {

// A va_list as a function receives it: the list itself, or its address where it is an array.
using PassedList = std::decay_t<va_list>;

struct FormatCall {
  const char* format;
  PassedList arguments;
};

// The format and the arguments of a call that may carry a prepared list: with kMemArgList as its
// format, the next argument is the format and the one behind it a va_list, passed by value.
FormatCall ResolveFormat(const char* format, va_list arguments);

// vsnprintf, several times faster where all conversions are plain ones (%c %d %i %s %u %x %%, no
// flag, width, precision or size) and the text fits: the length of the whole text, of which
// `capacity` - 1 bytes and a terminator were written. Negative where vsnprintf fails.
int FormatText(char* text, size_t capacity, const char* format, va_list arguments);

}  // namespace quern

#include "quern/cmem/format.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>

#include "quern/cmem/buffer.h"

namespace quern {
namespace {

// Appends within a capacity. A piece that does not fit makes the text end there, for good.
class Writer {
 public:
  Writer(char* text, size_t capacity)
      : at_(text), end_(text + std::min<size_t>(capacity, INT_MAX)) {}

  char* At() const { return at_; }
  bool Character(char c) {
    if (at_ == end_) return false;
    *at_++ = c;
    return true;
  }
  template <typename T>
  bool Number(T value, int base) {
    auto [behind, error] = std::to_chars(at_, end_, value, base);
    at_ = behind;
    return error == std::errc();
  }
  bool Text(const char* text) {
    if (!text) return false;  // let vsnprintf print null its own way
    size_t length = strnlen(text, static_cast<size_t>(end_ - at_));
    memcpy(at_, text, length);
    at_ += length;
    return at_ != end_;
  }

 private:
  char* at_;
  char* end_;
};

// False at a conversion that is not plain, and when the text does not fit.
bool WritePlain(Writer* writer, const char* format, va_list arguments) {
  for (; *format; ++format) {
    bool written;
    if (*format != '%') {
      written = writer->Character(*format);
    } else {
      switch (*++format) {
        case 'c':
          written = writer->Character(static_cast<char>(va_arg(arguments, int)));
          break;
        case 'd':
        case 'i':
          written = writer->Number(va_arg(arguments, int), 10);
          break;
        case 's':
          written = writer->Text(va_arg(arguments, const char*));
          break;
        case 'u':
          written = writer->Number(va_arg(arguments, unsigned), 10);
          break;
        case 'x':
          written = writer->Number(va_arg(arguments, unsigned), 16);
          break;
        case '%':
          written = writer->Character('%');
          break;
        default:
          written = false;
      }
    }
    if (!written) return false;
  }
  return writer->Character('\0');
}

}  // namespace

FormatCall ResolveFormat(const char* format, va_list arguments) {
  if (format != kMemArgList) return {format, arguments};
  format = va_arg(arguments, const char*);
  return {format, va_arg(arguments, PassedList)};
}

int FormatText(char* text, size_t capacity, const char* format, va_list arguments) {
  Writer writer(text, capacity);
  va_list plain;
  va_copy(plain, arguments);
  bool written = WritePlain(&writer, format, plain);
  va_end(plain);
  return written ? static_cast<int>(writer.At() - text) - 1
                 : vsnprintf(text, capacity, format, arguments);
}

}  // namespace quern

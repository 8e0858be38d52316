// Catches trace lines.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "quern/csys.h"

namespace tavrix_test {

// What a call of `body` writes to the stream of trace lines, as it stands there.
template <class Body>
std::string TracedStream(Body body) {
  quern::TraceFile = tmpfile();
  body();
  std::string text(static_cast<size_t>(ftell(quern::TraceFile)), '\0');
  rewind(quern::TraceFile);
  text.resize(fread(text.data(), 1, text.size(), quern::TraceFile));
  fclose(quern::TraceFile);
  quern::TraceFile = nullptr;
  return text;
}

// Its lines alone: without the stamps, and without the empty lines behind those that end
// themselves.
template <class Body>
std::string Traced(Body body) {
  constexpr size_t kStamp = std::string_view("05.03.2001 10:00:00:000 ").size();
  const std::string text = TracedStream(body);
  std::string lines;
  for (size_t at = 0, end; at < text.size(); at = end) {
    end = text.find('\n', at) + 1;
    if (end - at > kStamp) lines.append(text, at + kStamp, end - at - kStamp);
  }
  return lines;
}

// A number for a text (FNV-1a), in place of one that is too long to be written down.
inline uint64_t Sum(std::string_view text) {
  uint64_t sum = 14695981039346656037u;
  for (unsigned char byte : text) sum = (sum ^ byte) * 1099511628211u;
  return sum;
}

// A line as printf makes it.
inline std::string Line(const char* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  return line;
}

}  // namespace tavrix_test

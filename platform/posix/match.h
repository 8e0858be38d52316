// Names against the patterns of a directory search.
#pragma once

#include <cstdint>

namespace posix_layer {

// Upper-case forms of the 256 bytes in the C locale in force; valid until the locale changes.
using UpperTable = const int32_t*;
UpperTable CurrentUpper();

inline uint8_t Upper(UpperTable upper, char c) {
  return static_cast<uint8_t>(upper[static_cast<uint8_t>(c)]);
}

// A pattern in upper case, with its wildcards as the real system reads them:
//
//  - '*' stands for any run of bytes.
//  - '?' stands for one byte other than '.'; in front of a '.' and at the end of the name it stands
//    for nothing ("a??.txt" finds "a.txt").
//  - A '.' in front of a wildcard or at the end of the pattern stands for nothing at the end of the
//    name ("a.*" and "a." find "a"), and a '*' in front of such a '.' does not run over the last
//    '.' of the name ("*." finds the names without one).
//  - "*.*" is "*"; "." and ".." are themselves.
struct NamePattern {
  uint16_t count;       // codes in use
  uint16_t head, tail;  // plain bytes in front of the first '*' and behind the last one
  bool hasAny;          // holds a '*'
  bool plainAny;        // is head, '*', tail and nothing else
  bool lastDotMatters;  // holds a '*' that stops at the last '.'
  uint16_t codes[260];  // a plain byte, or one of the signs above 255
};

inline constexpr uint32_t kLongestPattern = 259;

// `length` is at most kLongestPattern.
void CompilePattern(const char* text, uint32_t length, UpperTable upper, NamePattern* pattern);

bool MatchName(const NamePattern& pattern, const char* name, uint32_t length, UpperTable upper);

}  // namespace posix_layer

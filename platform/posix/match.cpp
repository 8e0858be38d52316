// Names against the patterns of a directory search.
#include "platform/posix/match.h"

#include <ctype.h>

#include <cstring>

namespace posix_layer {
namespace {

constexpr uint16_t kAny = 256;           // '*'
constexpr uint16_t kAnyToLastDot = 257;  // '*' that does not run over the last '.'
constexpr uint16_t kOne = 258;           // '?'
constexpr uint16_t kDot = 259;           // '.' that is nothing at the end of the name

bool IsWildcard(char c) { return c == '*' || c == '?'; }

bool SamePlain(const uint16_t* codes, const char* name, uint32_t count, UpperTable upper) {
  for (uint32_t i = 0; i < count; ++i) {
    if (codes[i] != Upper(upper, name[i])) return false;
  }
  return true;
}

// Leftmost matches between the '*', going back to the last one only: what lies between two of them
// never ends later for having begun earlier.
bool MatchLeftmost(const NamePattern& pattern, const char* name, uint32_t length,
                   UpperTable upper) {
  constexpr uint32_t kNone = ~0u;
  uint32_t at = 0, position = 0;
  uint32_t behindAny = kNone, retry = 0;
  for (;;) {
    if (at == pattern.count) {
      if (position == length) return true;
    } else {
      uint16_t code = pattern.codes[at];
      if (code == kAny) {
        behindAny = ++at;
        retry = position;
        if (at == pattern.count) return true;
        continue;
      }
      if (position == length) {
        if (code < kOne) return false;
        ++at;
        continue;
      }
      uint8_t byte = Upper(upper, name[position]);
      if (code == kOne && byte == '.') {
        ++at;
        continue;
      }
      if (code == byte || code == kOne || (code == kDot && byte == '.')) {
        ++at;
        ++position;
        continue;
      }
    }
    if (behindAny == kNone) return false;
    position = ++retry;
    at = behindAny;
  }
}

// Every state at once: reached[i] tells that the first i codes can stand for the bytes so far.
bool MatchStates(const NamePattern& pattern, const char* name, uint32_t length, UpperTable upper) {
  bool states[2][kLongestPattern + 2] = {};
  bool* reached = states[0];
  bool* next = states[1];
  const void* dot = memrchr(name, '.', length);
  uint32_t lastDot = dot ? static_cast<uint32_t>(static_cast<const char*>(dot) - name) : length;
  reached[0] = true;
  for (uint32_t position = 0;; ++position) {
    bool finished = position == length;
    uint16_t byte = finished ? 0 : Upper(upper, name[position]);
    memset(next, 0, pattern.count + 1u);
    for (uint32_t at = 0; at < pattern.count; ++at) {
      if (!reached[at]) continue;
      uint16_t code = pattern.codes[at];
      bool nothing = false;  // the code can stand for no byte here
      bool one = false;      // the code takes this byte and is done
      bool more = false;     // the code takes this byte and goes on
      if (code == kAny) {
        nothing = more = true;
      } else if (code == kAnyToLastDot) {
        nothing = true;
        more = position != lastDot;
      } else if (code == kOne) {
        nothing = finished || byte == '.';
        one = !nothing;
      } else if (code == kDot) {
        nothing = finished;
        one = byte == '.';
      } else {
        one = code == byte;
      }
      if (nothing) reached[at + 1] = true;
      if (finished) continue;
      if (one) next[at + 1] = true;
      if (more) next[at] = true;
    }
    if (finished) return reached[pattern.count];
    bool* behind = reached;
    reached = next;
    next = behind;
  }
}

}  // namespace

UpperTable CurrentUpper() { return *__ctype_toupper_loc(); }

void CompilePattern(const char* text, uint32_t length, UpperTable upper, NamePattern* pattern) {
  *pattern = {};
  if (length == 3 && memcmp(text, "*.*", 3) == 0) length = 1;
  bool own = length <= 2 && memcmp(text, "..", length) == 0;
  uint32_t count = 0;
  uint32_t signs = 0;
  for (uint32_t i = 0; i < length; ++i) {
    bool last = i + 1 == length;
    uint16_t code = Upper(upper, text[i]);
    if (text[i] == '*') {
      code = kAny;
    } else if (text[i] == '?') {
      code = kOne;
    } else if (text[i] == '.' && !own && (last || IsWildcard(text[i + 1]))) {
      code = kDot;
      if (count > 0 && pattern->codes[count - 1] == kAny) {
        pattern->codes[count - 1] = kAnyToLastDot;
        pattern->lastDotMatters = true;
      }
    }
    if (code == kAny) pattern->hasAny = true;
    if (code > 255) {
      if (++signs == 1) pattern->head = static_cast<uint16_t>(count);
      pattern->tail = static_cast<uint16_t>(count + 1);  // for now, where the tail begins
    }
    pattern->codes[count++] = code;
  }
  pattern->count = static_cast<uint16_t>(count);
  pattern->tail = static_cast<uint16_t>(count - pattern->tail);
  if (signs == 0) pattern->head = pattern->tail;
  pattern->plainAny = pattern->hasAny && signs == 1;
}

bool MatchName(const NamePattern& pattern, const char* name, uint32_t length, UpperTable upper) {
  if (length < pattern.tail) return false;
  if (pattern.hasAny || pattern.head == pattern.count) {
    // The plain ends first: they refuse most names.
    if (!SamePlain(pattern.codes + pattern.count - pattern.tail, name + length - pattern.tail,
                   pattern.tail, upper)) {
      return false;
    }
    if (pattern.head == pattern.count) return length == pattern.count;
    if (pattern.plainAny) {
      return length >= uint32_t{pattern.head} + pattern.tail &&
             SamePlain(pattern.codes, name, pattern.head, upper);
    }
  }
  return pattern.lastDotMatters ? MatchStates(pattern, name, length, upper)
                                : MatchLeftmost(pattern, name, length, upper);
}

}  // namespace posix_layer

// The rules of MemFind and its family spelled out byte by byte, and calls held against them.
//
// Blocks, patterns and sets lie in heap blocks of exactly their size (with the one byte behind
// where a rule owns it), so that the address sanitizer sees every read past an end. A Try tells
// whether the call did as it should.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "quern/cmem/search.h"
#include "quern/cmem/search_scan.h"

namespace quern::model {

struct Exact : std::vector<char> {
  explicit Exact(const std::string& text) : vector(text.begin(), text.end()) {}
  const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(data()); }
};

// Positions are relative to the block; this one means no hit.
constexpr long kNone = -1;

inline long Position(const void* hit, const Exact& block) {
  return hit ? static_cast<const char*>(hit) - block.data() : kNone;
}

inline int Lower(char c) { return std::tolower(static_cast<uint8_t>(c)); }

inline bool Equal(char a, char b, uint32_t flags) {
  return flags & MEM_NOCASE ? Lower(a) == Lower(b) : a == b;
}

// Backwards `text` holds the byte behind the block, too.
inline long ModelFind(const std::string& text, size_t length, const std::string& pattern,
                      uint32_t flags) {
  if (pattern.empty()) return kNone;
  const long places = static_cast<long>(length) - static_cast<long>(pattern.size()) + 1;
  for (long i = 0; i < places; ++i) {
    const long place = flags & MEM_BACKWARD ? places - i : i;
    size_t same = 0;
    while (same < pattern.size() && Equal(text[place + same], pattern[same], flags)) ++same;
    if (same == pattern.size()) return place;
  }
  return kNone;
}

inline bool TryFind(const std::string& text, char behind, const std::string& pattern,
                    uint32_t flags) {
  const bool backward = flags & MEM_BACKWARD, nocase = flags & MEM_NOCASE;
  const std::string memory = backward ? text + behind : text;
  const Exact block(memory), sought(pattern);
  const auto length = static_cast<uint32_t>(text.size()), n = static_cast<uint32_t>(sought.size());
  const long expected = ModelFind(memory, length, pattern, flags);
  bool holds =
      Position(MemFind(block.data(), length, sought.data(), n, flags), block) == expected &&
      MemFindOfs(block.data(), length, sought.data(), n, flags) ==
          static_cast<uint32_t>(std::max(expected, 0L));
  if (n != 0 && length >= n + bytes::kBaseKernels.width) {
    // The kernel that this machine would not choose.
    const CaseInForce fold(nocase);
    const auto& kernels = bytes::kBaseKernels;
    const auto search = (backward ? kernels.findLast : kernels.findFirst)[nocase];
    const bytes::Pattern same{sought.bytes(), n, fold.table()};
    holds &= Position(search(block.bytes() + backward, length, same), block) == expected;
  }
  return holds;
}

// Zero bytes follow `pattern`, which holds what lies behind the pattern's n bytes as well, without
// end.
inline long ModelWild(const std::string& block, const std::string& pattern, uint32_t n,
                      uint32_t flags, char behind) {
  const auto byte = [&pattern](size_t i) { return i < pattern.size() ? pattern[i] : '\0'; };
  long answer = kNone;
  size_t at = 0;
  for (uint32_t rest = n, length = n; rest != 0; rest -= length) {
    if (at > pattern.size() + 2 * n) return kNone;  // it would run on over zero bytes for ever
    for (uint32_t i = 1; i < length; ++i)
      if (std::memchr("*?", byte(at + i), 3)) length = i;
    const bool star = byte(at) == '*';
    if (star) --length, ++at;
    std::string segment;
    for (uint32_t i = 0; i < length; ++i) segment += byte(at + i);
    long hit = kNone;
    if (star) {
      hit = ModelFind(block + behind, block.size(), segment, flags);
    } else if (byte(at) == '?') {
      if (block[0] != '\0') hit = 0;
      length = 1;
    } else if (ModelFind(block, std::min<size_t>(block.size(), length), segment,
                         flags & MEM_NOCASE) == 0) {
      hit = 0;
    }
    if (hit == kNone) return kNone;
    if (answer == kNone) answer = hit;
    at += length;
  }
  return answer;
}

// `more` lies behind the pattern, and then a zero byte at last: nothing past the first one may be
// read, nor anything of it when the pattern has neither a star nor a zero byte. The text is not
// empty.
inline bool TryWild(const std::string& text, char behind, const std::string& pattern,
                    const std::string& more, uint32_t flags) {
  std::string memory = pattern + more + '\0';
  memory.resize(memory.find('\0', pattern.size()) + 1);
  if (pattern.find_first_of(std::string("*\0", 2)) == std::string::npos) memory = pattern;
  const Exact block(text + behind), sought(memory);
  const uint32_t n = static_cast<uint32_t>(pattern.size());
  const char* hit = MemFind(block.data(), block.size() - 1, sought.data(), n, flags | MEM_WILDCARD);
  return Position(hit, block) == ModelWild(text, memory, n, flags, behind);
}

inline bool ModelInSet(char byte, const std::string& set, uint32_t flags) {
  bool in = false;
  for (char member : set) in |= Equal(byte, member, flags);
  return in != ((flags & MEM_NOTINSET) != 0);
}

inline long ModelFindAny(const std::string& text, const std::string& set, uint32_t flags) {
  const long size = set.empty() ? 0 : static_cast<long>(text.size());
  for (long i = 0; i < size; ++i) {
    const long place = flags & MEM_BACKWARD ? size - 1 - i : i;
    if (ModelInSet(text[place], set, flags)) return place;
  }
  return kNone;
}

// Tries the block by its first byte and by its last one.
inline bool TryFindAny(const std::string& text, const std::string& set, uint32_t flags) {
  const Exact block(text), members(set);
  const int32_t length = static_cast<int32_t>(text.size());
  const long expected = ModelFindAny(text, set, flags);
  const auto same = [&](const char* at, int32_t passed, uint32_t way) {
    const char* hit = MemFindAny(at, passed, members.data(), members.size(), way);
    return Position(hit, block) == expected &&
           MemFindAnyOfs(at, passed, members.data(), members.size(), way) ==
               (hit ? static_cast<uint32_t>(hit - at) : 0);
  };
  bool holds = same(block.data(), length, flags) &&
               (length == 0 || same(block.data() + length - 1, -length, flags ^ MEM_BACKWARD));
  if (text.size() >= bytes::kBaseKernels.width && !set.empty() &&
      set.size() <= bytes::ByteSet::kFew && !(flags & MEM_NOCASE)) {
    const bytes::ByteSet few{
        members.bytes(), static_cast<uint32_t>(set.size()), (flags & MEM_NOTINSET) != 0, {}};
    const auto& kernels = bytes::kBaseKernels;
    const auto search = (flags & MEM_BACKWARD ? kernels.lastIn : kernels.firstIn)[few.count];
    holds &= Position(search(block.bytes(), block.size(), few), block) == expected;
  }
  return holds;
}

}  // namespace quern::model

// MemFind and its family against a model that spells the rules out, byte by byte.
//
// Blocks, patterns and sets lie in heap blocks of exactly their size (with the one byte behind
// where a rule owns it), so that the address sanitizer sees every read past an end.
#include "quern/cmem/search.h"

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "quern/cmem/search_scan.h"

namespace quern {
namespace {

using Random = std::mt19937;

uint32_t Upto(Random& random, uint32_t most) { return random() % (most + 1); }

class Exact {
 public:
  explicit Exact(const std::string& text) : size_(text.size()), data_(new char[text.size()]) {
    std::memcpy(data_.get(), text.data(), size_);
  }
  char* data() const { return data_.get(); }
  uint32_t size() const { return static_cast<uint32_t>(size_); }

 private:
  size_t size_;
  std::unique_ptr<char[]> data_;
};

std::string RandomText(Random& random, const std::string& letters, uint32_t size) {
  std::string text(size, 0);
  for (char& c : text) c = letters[Upto(random, static_cast<uint32_t>(letters.size()) - 1)];
  return text;
}

// Sizes around the widths that vectors have, and any.
uint32_t RandomSize(Random& random) {
  static constexpr uint32_t kWidths[] = {1, 8, 16, 32, 64, 128};
  return random() % 2 ? Upto(random, 200)
                      : kWidths[random() % 6] + Upto(random, 4) - (random() % 2 ? 1 : 0);
}

// --- the model -----------------------------------------------------------------------------------

bool Equal(char a, char b, uint32_t flags) {
  if (!(flags & MEM_NOCASE)) return a == b;
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Positions relative to the block; -1: no hit.
constexpr long kNone = -1;

long ModelFind(const char* block, uint32_t length, const char* pattern, uint32_t n,
               uint32_t flags) {
  if (length == 0 || n == 0 || length < n) return kNone;
  const bool backward = flags & MEM_BACKWARD;
  const long places = static_cast<long>(length) - n + 1;
  for (long i = 0; i < places; ++i) {
    const long place = backward ? places - i : i;
    uint32_t same = 0;
    while (same < n && Equal(block[place + same], pattern[same], flags)) ++same;
    if (same == n) return place;
  }
  return kNone;
}

bool ModelInSet(char byte, const std::string& set, uint32_t flags) {
  bool in = false;
  for (char member : set) in |= Equal(byte, member, flags);
  return in != ((flags & MEM_NOTINSET) != 0);
}

// `at` is the address that is passed: the first byte, or the last one when the length is negative.
long ModelFindAny(const char* at, int32_t length, const std::string& set, uint32_t flags) {
  if (length == 0 || set.empty()) return kNone;
  const bool backward = ((flags & MEM_BACKWARD) != 0) != (length < 0);
  const long low = length < 0 ? length + 1 : 0, high = length < 0 ? 0 : length - 1;
  for (long i = 0; i <= high - low; ++i) {
    const long place = backward ? high - i : low + i;
    if (ModelInSet(at[place], set, flags)) return place;
  }
  return kNone - high + low;  // below every position
}

// `pattern` holds what lies behind the pattern's n bytes as well, and zero bytes follow without
// end.
long ModelWild(const std::string& block, const std::string& pattern, uint32_t n, uint32_t flags,
               char behind) {
  const auto byte = [&pattern](size_t i) { return i < pattern.size() ? pattern[i] : '\0'; };
  uint32_t rest = n, length = n;
  size_t at = 0;
  long answer = kNone;
  while (rest != 0) {
    if (at > pattern.size() + 2 * n) return kNone;  // it would run on over zero bytes for ever
    for (uint32_t i = 0; i < length; ++i) {
      const char c = byte(at + 1 + i);
      if (c == '*' || c == '?' || c == '\0') {
        length = i + 1;
        break;
      }
    }
    long hit = kNone;
    if (byte(at) == '*') {
      --length;
      ++at;
      std::string segment(length, 0), text = block + behind;
      for (uint32_t i = 0; i < length; ++i) segment[i] = byte(at + i);
      hit = ModelFind(text.data(), static_cast<uint32_t>(block.size()), segment.data(), length,
                      flags & ~MEM_WILDCARD);
    } else if (byte(at) == '?') {
      if (block[0] != '\0') hit = 0;
      length = 1;
    } else {
      uint32_t same = 0;
      while (same < length && same < block.size() && Equal(block[same], byte(at + same), flags))
        ++same;
      if (same == length) hit = 0;
    }
    if (hit == kNone) return kNone;
    if (answer == kNone) answer = hit;
    at += length;
    rest -= length;
  }
  return answer;
}

struct Replaced {
  std::string memory;
  uint32_t total;
};

// `room` bytes may be used in all; false when the call would not return.
bool ModelReplaceAll(std::string memory, uint32_t length, const std::string& pattern,
                     const std::string& with, bool copies, uint32_t flags, Replaced* out) {
  long at = 0, remaining = length, contents = length, total = 0;
  for (int round = 0; remaining >= static_cast<long>(pattern.size()); ++round) {
    if (round > 3000) return false;
    const long end = std::max<long>(length, contents);  // nothing behind is scanned or moved
    const long n = static_cast<long>(pattern.size()), m = static_cast<long>(with.size());
    if (at + n > end) break;
    long same = 0;
    while (same < n && Equal(memory[at + same], pattern[same], flags)) ++same;
    if (same < n) {
      ++at, --remaining;
      continue;
    }
    const std::string tail = memory.substr(at + n, std::min(remaining - n, end - at - n));
    memory.replace(at + m, tail.size(), tail);
    if (copies) memory.replace(at, with.size(), with);
    at += m;
    remaining = remaining - n + m + 1;
    contents += m - n;
    total += n - m;
  }
  *out = {memory, static_cast<uint32_t>(total)};
  return true;
}

Replaced ModelReplaceAny(std::string memory, uint32_t length, const std::string& set,
                         const std::string& with, bool copies, uint32_t flags) {
  long at = 0, remaining = length, total = 0;
  for (;;) {
    const long hit = ModelFindAny(memory.data() + at, static_cast<int32_t>(remaining), set, flags);
    if (hit < 0) return {memory, static_cast<uint32_t>(total)};
    remaining -= hit + 1;
    at += hit;
    const std::string tail = memory.substr(at + 1, remaining);
    memory.replace(at + with.size(), tail.size(), tail);
    if (copies && !with.empty()) memory.replace(at++, with.size(), with);
    total += static_cast<long>(with.size()) - 1;
  }
}

// --- the comparisons -----------------------------------------------------------------------------

// A block of `text`, and behind it one more byte for a backward search.
void ExpectFind(const std::string& text, char behind, const std::string& pattern, uint32_t flags) {
  const bool backward = flags & MEM_BACKWARD;
  const Exact block(backward ? text + behind : text), sought(pattern);
  const uint32_t length = static_cast<uint32_t>(text.size());
  const long expected = ModelFind(block.data(), length, sought.data(), sought.size(), flags);
  const char* hit = MemFind(block.data(), length, sought.data(), sought.size(), flags);
  ASSERT_EQ(hit ? hit - block.data() : kNone, expected)
      << "text '" << text << "' pattern '" << pattern << "' flags " << std::hex << flags;
  ASSERT_EQ(MemFindOfs(block.data(), length, sought.data(), sought.size(), flags),
            static_cast<uint32_t>(std::max(expected, 0L)));
}

constexpr uint32_t kFindFlags[] = {0, MEM_BACKWARD, MEM_NOCASE, MEM_BACKWARD | MEM_NOCASE,
                                   0xA0000000 | MEM_NOTINSET};

TEST(SearchTest, FindsPatternsAsRuled) {
  Random random(1);
  const std::string alphabets[] = {"ab", "aAbB", "abcdefgh@`[{", std::string("\0\x80\xE9\xC9z", 5)};
  for (int round = 0; round < 60000; ++round) {
    const std::string& letters = alphabets[random() % 4];
    const std::string text = RandomText(random, letters, RandomSize(random));
    std::string pattern = RandomText(random, letters, 1 + Upto(random, random() % 4 ? 6 : 70));
    if (random() % 2 && text.size() >= pattern.size())  // one that is there
      pattern = text.substr(Upto(random, text.size() - pattern.size()), pattern.size());
    ExpectFind(text, letters[random() % letters.size()], pattern, kFindFlags[random() % 5]);
    if (HasFatalFailure()) return;
  }
}

// The kernels that this machine would not choose, for the calls that went to better ones.
void ExpectSameOfBaseKernels(const char* text, uint32_t length, const Exact& pattern, bool nocase) {
  if (length < pattern.size() + bytes::kBaseKernels.width) return;
  const CaseInForce fold(nocase);
  const auto* block = reinterpret_cast<const uint8_t*>(text);
  const bytes::Pattern sought{reinterpret_cast<const uint8_t*>(pattern.data()), pattern.size(),
                              fold.table()};
  ASSERT_EQ(bytes::kBaseKernels.findFirst[nocase](block, length, sought),
            bytes::FindFirst(block, length, sought));
  ASSERT_EQ(bytes::kBaseKernels.findLast[nocase](block, length, sought),
            bytes::FindLast(block, length, sought));
}

// Text and patterns that repeat themselves, which is where a search that skips can skip too far.
TEST(SearchTest, FindsPatternsInTextThatRepeatsItself) {
  Random random(2);
  std::string fibonacci = "b", next = "a";
  while (fibonacci.size() < 5000) fibonacci = next + fibonacci, std::swap(fibonacci, next);
  for (int round = 0; round < 6000; ++round) {
    std::string text;
    if (random() % 4 == 0) {
      text = fibonacci.substr(Upto(random, 500), 300 + Upto(random, 3000));
    } else {
      const std::string unit = RandomText(random, "aab", 1 + Upto(random, random() % 2 ? 4 : 60));
      const uint32_t size = 300 + Upto(random, 3000);
      while (text.size() < size) text += unit;
    }
    for (uint32_t flaws = Upto(random, 4); flaws > 0; --flaws) text[random() % text.size()] ^= 3;
    const uint32_t size = 1 + Upto(random, random() % 2 ? 40 : 280);
    std::string pattern = text.substr(Upto(random, text.size() - size), size);
    for (uint32_t flaws = Upto(random, 2); flaws > 0; --flaws) pattern[random() % size] ^= 3;
    const uint32_t flags = kFindFlags[random() % 4];
    if (flags & MEM_NOCASE)
      for (char& c : text) c ^= random() % 2 ? 0x20 : 0;
    ExpectFind(text, 'a', pattern, flags);
    const Exact block(text);
    ExpectSameOfBaseKernels(block.data(), block.size(), Exact(pattern), (flags & MEM_NOCASE) != 0);
    if (HasFatalFailure()) return;
  }
}

// Long enough for a search to arm itself against one text, to relax and to meet the next one.
TEST(SearchTest, FindsPatternsBehindTextOfManyKinds) {
  Random random(6);
  const std::string pattern = RandomText(random, "ab", 30) + std::string(40, 'a') + "b";
  std::string text;
  for (int stretch = 0; stretch < 6; ++stretch) {
    text += RandomText(random, "ab", 20000);
    for (int i = 0; i < 300; ++i) text += pattern.substr(0, 70) + std::string(40, 'a');
    text += std::string(200000, '.');
  }
  text += pattern + std::string(100, 'a');
  const Exact block(text), sought(pattern);
  for (uint32_t flags : {0u, MEM_NOCASE, MEM_BACKWARD}) {
    const char* hit = MemFind(block.data(), block.size() - 1, sought.data(), sought.size(), flags);
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(static_cast<size_t>(hit - block.data()), text.find(pattern));
  }
  EXPECT_EQ(text.find(pattern), text.size() - 100 - pattern.size());
  ExpectSameOfBaseKernels(block.data(), block.size(), sought, false);
}

TEST(SearchTest, FindsMembersOfSetsAsRuled) {
  Random random(3);
  std::string all(256, 0);
  for (int i = 0; i < 256; ++i) all[i] = static_cast<char>(i);
  const std::string alphabets[] = {"ab,", "aAbBcC*[", all};
  for (int round = 0; round < 60000; ++round) {
    const std::string& letters = alphabets[random() % 3];
    const uint32_t sizes[] = {1 + Upto(random, 2), 1 + Upto(random, 12), 1 + Upto(random, 300)};
    const std::string set = RandomText(random, letters, sizes[random() % 3]);
    std::string text = RandomText(random, letters, RandomSize(random));
    uint32_t flags = 0x80000000;
    for (uint32_t flag : {MEM_NOTINSET, MEM_BACKWARD, MEM_NOCASE}) flags |= random() % 2 ? flag : 0;
    if (random() % 2)  // few members in the text, or few others
      for (char& c : text)
        if (ModelInSet(c, set, flags) && random() % 50) c = '\x01';
    const Exact block(text), members(set);
    const int32_t length = static_cast<int32_t>(text.size()) * (random() % 2 ? 1 : -1);
    const char* passed = block.data() + (length < 0 ? -length - 1 : 0);
    const long expected = ModelFindAny(passed, length, set, flags);
    const long low = length < 0 ? length + 1 : 0;
    const char* hit = MemFindAny(passed, length, members.data(), members.size(), flags);
    ASSERT_EQ(hit != nullptr, expected >= low && length != 0) << std::hex << flags;
    ASSERT_EQ(MemFindAnyOfs(passed, length, members.data(), members.size(), flags),
              hit ? static_cast<uint32_t>(expected) : 0);
    if (length >= static_cast<int32_t>(bytes::kBaseKernels.width) && !(flags & MEM_NOCASE) &&
        set.size() <= bytes::ByteSet::kFew) {
      const bytes::ByteSet few{reinterpret_cast<const uint8_t*>(set.data()),
                               members.size(),
                               (flags & MEM_NOTINSET) != 0,
                               {}};
      const auto search = (flags & MEM_BACKWARD ? bytes::kBaseKernels.lastIn
                                                : bytes::kBaseKernels.firstIn)[few.count];
      ASSERT_EQ(reinterpret_cast<const char*>(
                    search(reinterpret_cast<const uint8_t*>(passed), block.size(), few)),
                hit);
    }
    if (hit) {
      ASSERT_EQ(hit - passed, expected) << std::hex << flags << " length " << length;
    }
  }
}

// Any bytes behind the pattern, but a zero byte at last: nothing past that one may be read.
TEST(SearchTest, WalksWildcardsAsRuled) {
  Random random(4);
  const std::string pattern_letters[] = {"ab*?", "aAb**", std::string("a*?\0", 4)};
  const std::string block_letters[] = {"ab", "aAB", std::string("ab\0", 3)};
  int hits = 0;
  for (int round = 0; round < 300000; ++round) {
    const std::string& letters = pattern_letters[random() % 3];
    const std::string block =
        RandomText(random, block_letters[random() % 3], 1 + Upto(random, random() % 8 ? 6 : 50));
    const std::string pattern = RandomText(random, letters, 1 + Upto(random, 6));
    std::string memory = pattern;
    memory += RandomText(random, letters, Upto(random, 4));
    memory += '\0';
    memory.resize(memory.find('\0', pattern.size()) + 1);
    const uint32_t flags = MEM_WILDCARD | kFindFlags[random() % 4];
    const char behind = "ab"[random() % 2];
    const Exact text(block + behind), sought(memory);
    const uint32_t n = static_cast<uint32_t>(pattern.size());
    const long expected = ModelWild(block, memory, n, flags, behind);
    const char* hit = MemFind(text.data(), text.size() - 1, sought.data(), n, flags);
    ASSERT_EQ(hit ? hit - text.data() : kNone, expected)
        << "block '" << block << "' pattern '" << memory << "' of " << n << " flags " << std::hex
        << flags;
    hits += hit != nullptr;
  }
  EXPECT_GT(hits, 10000);
}

TEST(SearchTest, WildcardsReadNothingBehindAPatternWithoutAStar) {
  for (const std::string pattern : {"abc", "a?b", "?", "??c", "abcabcabc"}) {
    const Exact sought(pattern), block("abcab");
    const char* hit =
        MemFind(block.data(), block.size(), sought.data(), sought.size(), MEM_WILDCARD);
    EXPECT_EQ(hit, pattern == "abc" || pattern == "?" ? block.data() : nullptr) << pattern;
  }
  // What follows a star is not there: the byte behind the pattern does not matter.
  const Exact starred("*x");
  EXPECT_EQ(MemFind("abc", 3, starred.data(), starred.size(), MEM_WILDCARD), nullptr);
}

TEST(SearchTest, WildcardOddities) {
  const char abcd[] = "abcd";
  EXPECT_EQ(MemFind(abcd, 4, "abc", 3, MEM_WILDCARD), abcd);
  EXPECT_EQ(MemFind(abcd, 3, "a?a", 3, MEM_WILDCARD), abcd);  // both are compared with the start
  EXPECT_EQ(MemFind(abcd, 3, "a?c", 3, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind(abcd, 4, "*", 1, MEM_WILDCARD), nullptr);
  // The round more that a star costs takes the byte behind the pattern.
  EXPECT_EQ(MemFind(abcd, 4, "*cd", 3, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind(abcd, 4, "*cd?", 3, MEM_WILDCARD), abcd + 2);
  EXPECT_EQ(MemFind(abcd, 4, "*cda", 3, MEM_WILDCARD), abcd + 2);
  EXPECT_EQ(MemFind(abcd, 4, "*cdb", 3, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind(abcd, 4, "*ca*", 2, MEM_WILDCARD), abcd + 2);
  EXPECT_NE(MemFind("\0cd", 3, "*cd", 3, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind("\0cd", 3, "?", 1, MEM_WILDCARD), nullptr);
  // The count of what is left has wrapped, and the pattern's text ends: no hit instead of a long
  // walk.
  EXPECT_EQ(MemFind("\0cdef", 5, "*cdef*cde", 5, MEM_WILDCARD), nullptr);
  // A literal that is longer than the block is not its beginning.
  EXPECT_EQ(MemFind(abcd, 2, "abc", 3, MEM_WILDCARD), nullptr);
}

TEST(SearchTest, BackwardPlacesAreOneHigher) {
  const char text[] = "abab";
  EXPECT_EQ(MemFind(text, 4, "ab", 2, 0), text);
  EXPECT_EQ(MemFind(text, 4, "ab", 2, MEM_BACKWARD), text + 2);
  EXPECT_EQ(MemFind(text, 3, "ab", 2, MEM_BACKWARD), text + 2);  // over the byte behind the block
  EXPECT_EQ(MemFind("ab", 2, "ab", 2, MEM_BACKWARD), nullptr);   // the first byte is no place
  EXPECT_EQ(MemFind("ab", 3, "ab", 2, MEM_BACKWARD), nullptr);
  EXPECT_EQ(MemFind(text, 5, "ababab", 6, MEM_BACKWARD), nullptr);
  // The byte behind is read only when all before it match.
  const Exact block("abc");
  EXPECT_EQ(MemFind(block.data(), 3, "xb", 2, MEM_BACKWARD), nullptr);
  EXPECT_EQ(MemFind(block.data(), 3, "bc", 2, MEM_BACKWARD), block.data() + 1);
}

TEST(SearchTest, NoArgumentNoHit) {
  EXPECT_EQ(MemFind(nullptr, 1, "a", 1, 0), nullptr);
  EXPECT_EQ(MemFind("a", 1, nullptr, 1, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind("a", 0, "a", 1, MEM_WILDCARD), nullptr);
  EXPECT_EQ(MemFind("a", 1, "a", 0, MEM_BACKWARD), nullptr);
  EXPECT_EQ(MemFindAny(nullptr, -1, "a", 1, 0), nullptr);
  EXPECT_EQ(MemFindAny("a", 1, "a", 0, MEM_NOTINSET), nullptr);
  char text[] = "aa";
  EXPECT_EQ(MemReplaceAll(nullptr, 2, "a", 1, "b", 1, 0), 0u);
  EXPECT_EQ(MemReplaceAll(text, 2, "a", 0, "b", 1, 0), 0u);
  EXPECT_EQ(MemReplaceAny(text, 2, nullptr, 1, "b", 1, 0), 0u);
  EXPECT_EQ(MemCount(text, 2, "a", 0, 0), 0u);
  EXPECT_EQ(MemCountAny(text, 0, "a", 1, 0), 0u);
  EXPECT_STREQ(text, "aa");
}

TEST(SearchTest, Compares) {
  EXPECT_EQ(MemCmp("abc", "abd", 2, 0), 0);
  EXPECT_LT(MemCmp("abc", "abd", 3, 0), 0);
  EXPECT_GT(MemCmp("\x80", "a", 1, 0), 0);
  EXPECT_GT(MemCmp("\x80", "a", 1, MEM_NOCASE), 0);
  EXPECT_NE(MemCmp("ABC", "abc", 3, 0), 0);
  EXPECT_EQ(MemCmp("ABC", "abc", 3, MEM_NOCASE), 0);
  EXPECT_GT(MemCmp("_", "Z", 1, 0), 0);
  EXPECT_LT(MemCmp("_", "Z", 1, MEM_NOCASE), 0);  // compared in lower case
}

TEST(SearchTest, ReplacesAsRuled) {
  Random random(5);
  int endless = 0;
  for (int round = 0; round < 60000; ++round) {
    const std::string letters = random() % 2 ? "aAb" : "ab";
    const std::string text = RandomText(random, letters, Upto(random, random() % 4 ? 12 : 120));
    const std::string what = RandomText(random, letters, 1 + Upto(random, 3));
    const std::string with = RandomText(random, letters, Upto(random, 4));
    const bool copies = random() % 8 != 0;
    const uint32_t flags = random() % 2 ? MEM_NOCASE | MEM_BACKWARD : MEM_WILDCARD;
    const uint32_t length = static_cast<uint32_t>(text.size());
    Replaced expected;
    const std::string room(text.size() * 5 + 8, '.');
    if (ModelReplaceAll(text + room, length, what, with, copies, flags, &expected)) {
      // As much room as the contents grow by, and no more.
      const long growth = -static_cast<long>(static_cast<int32_t>(expected.total));
      const size_t size = text.size() + static_cast<size_t>(std::max(growth, 0L));
      const Exact block((text + room).substr(0, size));
      ASSERT_EQ(MemReplaceAll(block.data(), length, what.data(), what.size(),
                              copies ? with.data() : nullptr, with.size(), flags),
                expected.total)
          << text << " " << what << " " << with;
      ASSERT_EQ(std::string(block.data(), size), expected.memory.substr(0, size))
          << text << " " << what << " " << with;
    } else {
      ++endless;
      ASSERT_TRUE(what.size() == 1 && with.empty());
    }
    const uint32_t set_flags = (random() % 2 ? MEM_NOCASE : 0) | (random() % 4 ? 0 : MEM_NOTINSET) |
                               (random() % 4 ? 0 : MEM_BACKWARD);
    expected = ModelReplaceAny(text + room, length, what, with, copies, set_flags);
    const long growth = static_cast<int32_t>(expected.total);
    const size_t size = text.size() + static_cast<size_t>(std::max(growth, 0L));
    const Exact block((text + room).substr(0, size));
    ASSERT_EQ(MemReplaceAny(block.data(), length, what.data(), what.size(),
                            copies ? with.data() : nullptr, with.size(), set_flags),
              expected.total);
    ASSERT_EQ(std::string(block.data(), size), expected.memory.substr(0, size))
        << text << " " << what << " " << with;
  }
  EXPECT_GT(endless, 0);  // the model met them; they are not called here
}

TEST(SearchTest, ReplaceOddities) {
  char lines[] = "x\r\ny";
  EXPECT_EQ(MemReplaceAll(lines, 4, "\r\n", 2, "\n", 1, 0), 1u);
  EXPECT_EQ(std::string(lines, 3), "x\ny");
  // Hits among the bytes that the moves left behind count as well.
  char left[] = "aaaa";
  EXPECT_EQ(MemReplaceAll(left, 4, "aa", 2, nullptr, 0, 0), 6u);
  char grown[16] = "a-a";
  EXPECT_EQ(MemReplaceAll(grown, 3, "a", 1, "bcd", 3, 0), static_cast<uint32_t>(-4));
  EXPECT_EQ(std::string(grown, 7), "bcd-bcd");
  // The scan goes on inside the replacement and stops so much earlier; the last byte is written
  // over.
  char set[16] = "a,b,c";
  EXPECT_EQ(MemReplaceAny(set, 5, ",", 1, "::", 2, 0), 2u);
  EXPECT_STREQ(set, "a::b::");
}

TEST(SearchTest, CountsFromTheSameStart) {
  EXPECT_EQ(MemCount("ab ab ab", 8, "ab", 2, 0), 4u);  // the first one, as often as it fits
  EXPECT_EQ(MemCount("xxab", 4, "ab", 2, 0), 1u);
  EXPECT_EQ(MemCount("xAbab", 5, "ab", 2, MEM_NOCASE), 1u);
  EXPECT_EQ(MemCount("xab", 2, "ab", 2, MEM_BACKWARD), 1u);  // the length would wrap
  EXPECT_EQ(MemCount("a", 1, "?x?", 3, MEM_WILDCARD), 0u);
  EXPECT_EQ(MemCount("a", 1, "???", 3, MEM_WILDCARD), 1u);
  EXPECT_EQ(MemCountAny("xx,xxxx", 7, ",", 1, 0), 3u);  // lengths 7, 5, 3
  EXPECT_EQ(MemCountAny("xx,x,", 5, ",", 1, MEM_BACKWARD), 1u);
  EXPECT_EQ(MemCountAny("xxxx", 4, ",", 1, 0), 0u);
}

// A locale with one byte a letter, where there is one; then back, for tables are kept by locale.
TEST(SearchTest, FollowsTheLocale) {
  const char small[] = "caf\xE9 noir, d\xE9j\xE0 vu, et caetera", large[] = "\xC9J\xC0";
  const auto find = [&] {
    const char* hit = MemFind(small, sizeof small - 1, large + 1, 2, MEM_NOCASE);
    const char* any = MemFindAny(small, sizeof small - 1, large, 1, MEM_NOCASE);
    EXPECT_EQ(MemCmp("\xE9", "\xC9", 1, MEM_NOCASE) == 0, any != nullptr);
    EXPECT_EQ(hit != nullptr, any != nullptr);
    return any ? any - small : kNone;
  };
  EXPECT_EQ(find(), kNone);
  const char* names[] = {"de_DE.ISO-8859-1",
                         "de_DE.ISO-8859-15",
                         "en_US.ISO-8859-1",
                         "fr_FR.ISO-8859-1",
                         "de_DE",
                         "fr_FR",
                         "German_Germany.1252",
                         "English_United States.1252"};
  const char* set = nullptr;
  volatile int capital = 0xC9;  // or the compiler answers for the locale
  for (const char* name : names)
    if (!set && std::setlocale(LC_CTYPE, name) && std::tolower(capital) == 0xE9) set = name;
  if (set) {
    EXPECT_EQ(find(), 3) << set;
  }
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(find(), kNone);
  if (!set) GTEST_SKIP() << "no locale of one byte a letter is installed";
}

}  // namespace
}  // namespace quern

// MemFind and its family against the model of their rules.
#include <clocale>

#include "tests/support/search_model.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using namespace model;
using Random = std::mt19937;

uint32_t Upto(Random& random, uint32_t most) { return random() % (most + 1); }

std::string RandomText(Random& random, const std::string& letters, uint32_t size) {
  std::string text(size, 0);
  for (char& c : text) c = letters[random() % letters.size()];
  return text;
}

// Sizes around the widths that vectors have, and any.
uint32_t RandomSize(Random& random) {
  if (random() % 2) return Upto(random, 200);
  return (1u << Upto(random, 7)) + Upto(random, 4) - random() % 2;
}

constexpr uint32_t kFindFlags[] = {0, MEM_BACKWARD, MEM_NOCASE, MEM_BACKWARD | MEM_NOCASE,
                                   0xA0000000 | MEM_NOTINSET};

TEST(SearchTest, FindsPatternsAsRuled) {
  Random random(1);
  const std::string alphabets[] = {"ab", "aAbB", "abcdefgh@`[{", std::string("\0\x80\xE9\xC9z", 5)};
  for (int round = 0; round < 60000; ++round) {
    const std::string& letters = alphabets[random() % 4];
    const std::string text = RandomText(random, letters, RandomSize(random));
    std::string pattern = RandomText(random, letters, Upto(random, random() % 4 ? 6 : 70));
    if (random() % 2 && text.size() >= pattern.size())  // one that is there
      pattern = text.substr(Upto(random, text.size() - pattern.size()), pattern.size());
    ASSERT_TRUE(TryFind(text, letters[0], pattern, kFindFlags[random() % 5])) << round;
  }
}

// Text and patterns that repeat themselves, which is where a search that skips can skip too far.
TEST(SearchTest, FindsPatternsInTextThatRepeatsItself) {
  Random random(2);
  std::string fibonacci = "b", next = "a";
  while (fibonacci.size() < 5000) fibonacci = next + fibonacci, std::swap(fibonacci, next);
  for (int round = 0; round < 6000; ++round) {
    std::string text = fibonacci.substr(Upto(random, 500));
    if (random() % 4) {
      const std::string unit = RandomText(random, "aab", 1 + Upto(random, random() % 2 ? 4 : 60));
      for (text = unit; text.size() < 3300;) text += unit;
    }
    text.resize(300 + Upto(random, 3000));
    for (uint32_t flaws = Upto(random, 4); flaws > 0; --flaws) text[random() % text.size()] ^= 3;
    const uint32_t size = 1 + Upto(random, random() % 2 ? 40 : 280);
    std::string pattern = text.substr(Upto(random, text.size() - size), size);
    for (uint32_t flaws = Upto(random, 2); flaws > 0; --flaws) pattern[random() % size] ^= 3;
    const uint32_t flags = kFindFlags[random() % 4];
    if (flags & MEM_NOCASE)
      for (char& c : text) c ^= random() % 2 ? 0x20 : 0;
    ASSERT_TRUE(TryFind(text, 'a', pattern, flags)) << round;
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
  // Many places at which nearly everything matches, and each fails at another one.
  const std::string plain = std::string(5000, 'a') + "bb";
  std::string flawed;
  while (flawed.size() < 30000) flawed += std::string(Upto(random, 400), 'a') + "b";
  flawed += plain;
  for (uint32_t flags : {0u, MEM_NOCASE, MEM_BACKWARD}) {
    EXPECT_TRUE(TryFind(text, 'a', pattern, flags)) << flags;
    EXPECT_TRUE(TryFind(text, 'a', pattern.substr(0, 18), flags)) << flags;
    EXPECT_TRUE(TryFind(flawed, 'a', plain, flags)) << flags;
  }
}

TEST(SearchTest, FindsMembersOfSetsAsRuled) {
  Random random(3);
  std::string all(256, 0);
  for (int i = 0; i < 256; ++i) all[i] = static_cast<char>(i);
  const std::string alphabets[] = {"ab,", "aAbBcC*[", all};
  for (int round = 0; round < 60000; ++round) {
    const std::string& letters = alphabets[random() % 3];
    const uint32_t sizes[] = {2, 12, 300};
    const std::string set = RandomText(random, letters, Upto(random, sizes[random() % 3]));
    std::string text = RandomText(random, letters, RandomSize(random));
    uint32_t flags = 0x80000000;
    for (uint32_t flag : {MEM_NOTINSET, MEM_BACKWARD, MEM_NOCASE}) flags |= random() % 2 ? flag : 0;
    if (random() % 2)  // few members in the text, or few others
      for (char& c : text)
        if (ModelInSet(c, set, flags) && random() % 50) c = '\x01';
    ASSERT_TRUE(TryFindAny(text, set, flags)) << round;
  }
}

TEST(SearchTest, WalksWildcardsAsRuled) {
  Random random(4);
  const std::string pattern_letters[] = {"ab*?", "aAb**", std::string("a*?\0", 4)};
  const std::string block_letters[] = {"ab", "aAB", std::string("ab\0", 3)};
  for (int round = 0; round < 300000; ++round) {
    const std::string& letters = pattern_letters[random() % 3];
    const std::string block =
        RandomText(random, block_letters[random() % 3], 1 + Upto(random, random() % 8 ? 6 : 50));
    const std::string pattern = RandomText(random, letters, Upto(random, 7));
    const std::string more = RandomText(random, letters, Upto(random, 4));
    const char behind = "ab"[random() % 2];
    ASSERT_TRUE(TryWild(block, behind, pattern, more, kFindFlags[random() % 4])) << round;
  }
}

TEST(SearchTest, ReplacesAsRuled) {
  Random random(5);
  for (int round = 0; round < 60000; ++round) {
    const std::string letters = random() % 2 ? "aAb" : "ab";
    const std::string text = RandomText(random, letters, Upto(random, random() % 4 ? 12 : 120));
    Replacing by = {RandomText(random, letters, Upto(random, 4)),
                    RandomText(random, letters, Upto(random, 4)), random() % 8 != 0, MEM_WILDCARD};
    for (uint32_t flag : {MEM_NOTINSET, MEM_BACKWARD, MEM_NOCASE})
      if (random() % 3 == 0) by.flags |= flag;
    ASSERT_TRUE(TryReplace(false, text, by)) << round;
    if (!IsEndless(text, by)) {
      ASSERT_TRUE(TryReplace(true, text, by)) << round;
    }
  }
}

// What the model must not have wrong, and what it leaves out.
TEST(SearchTest, Oddities) {
  const struct {
    const char *block, *pattern;  // the pattern may go on behind its length
    uint32_t length, size, flags;
    long hit;
  } kRows[] = {
      {"abcd", "a?a", 3, 3, MEM_WILDCARD, 0},  // both are compared with the start
      {"abcd", "*", 4, 1, MEM_WILDCARD, kNone},
      // The round more that a star costs takes the byte behind the pattern.
      {"abcd", "*cd", 4, 3, MEM_WILDCARD, kNone},
      {"abcd", "*cd?", 4, 3, MEM_WILDCARD, 2},
      // The count of what is left has wrapped, and the pattern's text ends: no long walk.
      {"\0cdef", "*cdef*cde", 5, 5, MEM_WILDCARD, kNone},
      {"abab", "ab", 3, 2, MEM_BACKWARD, 2},     // over the byte behind the block
      {"abc", "ab", 3, 2, MEM_BACKWARD, kNone},  // the first byte is no place
  };
  for (const auto& row : kRows) {
    const char* hit = MemFind(row.block, row.length, row.pattern, row.size, row.flags);
    EXPECT_EQ(hit ? hit - row.block : kNone, row.hit) << row.pattern;
  }
  // The byte behind is read only when all before it match.
  EXPECT_EQ(MemFind(Exact("abc").data(), 3, "xb", 2, MEM_BACKWARD), nullptr);
  // Hits among the bytes that the moves left behind are replaced and counted as well.
  char left[] = "aaaa";
  EXPECT_EQ(MemReplaceAll(left, 4, "aa", 2, nullptr, 0, 0), 6u);
  EXPECT_EQ(MemCount("ab ab ab", 8, "ab", 2, 0), 4u);        // the first one, as often as it fits
  EXPECT_EQ(MemCount("xab", 2, "ab", 2, MEM_BACKWARD), 1u);  // the length would wrap
  EXPECT_EQ(MemCountAny("xx,xxxx", 7, ",", 1, 0), 3u);       // lengths 7, 5, 3
  EXPECT_EQ(MemCountAny("xx,x,", 5, ",", 1, MEM_BACKWARD), 1u);
  EXPECT_GT(MemCmp("ab\x80", "aba", 3, MEM_NOCASE), 0);
  EXPECT_EQ(MemCmp("ABCx", "abcy", 3, MEM_NOCASE), 0);
  EXPECT_GT(MemCmp("_", "Z", 1, 0), 0);
  EXPECT_LT(MemCmp("_", "Z", 1, MEM_NOCASE), 0);  // compared in lower case
  EXPECT_EQ(MemCmp(nullptr, "a", 1, 0), -1);
  EXPECT_EQ(MemCmp("a", nullptr, 1, 0), 1);
  EXPECT_EQ(MemCmp(nullptr, nullptr, 1, 0), 0);
  EXPECT_EQ(MemCmp("a", "b", 0, 0), 0);
}

// A table of these lower forms, by what its fields say.
CaseTable TableOf(const uint8_t* lower) {
  CaseTable table = {};
  table.pairs = table.ascii = true;
  for (int byte = 0; byte < 256; ++byte) {
    table.lower[byte] = lower[byte];
    table.twin[byte] = static_cast<uint8_t>(byte);
    int others = 0;
    for (int other = 0; other < 256; ++other) {
      if (other == byte || lower[other] != lower[byte]) continue;
      table.twin[byte] = static_cast<uint8_t>(other);
      table.spread[byte] |= static_cast<uint8_t>(other ^ byte);
      ++others;
    }
    table.pairs &= others < 2;
    table.ascii &= lower[byte] == (byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
  }
  return table;
}

// A locale with one byte a letter, where there is one or can be made; then back, for tables are
// kept by locale.
TEST(SearchTest, FollowsTheLocale) {
  const auto knows = [] {
    const bool known = MemCmp("\xE9", "\xC9", 1, MEM_NOCASE) == 0;
    EXPECT_EQ(MemFind("d\xE9j\xE0", 4, "J\xC0", 2, MEM_NOCASE) != nullptr, known);
    EXPECT_EQ(MemFindAny("caf\xE9", 4, "\xC9", 1, MEM_NOCASE) != nullptr, known);
    uint8_t lower[256];
    int (*volatile const lower_case)(int) = std::tolower;  // not the compiler's
    for (int byte = 0; byte < 256; ++byte) lower[byte] = static_cast<uint8_t>(lower_case(byte));
    const CaseInForce in_force(true);
    const CaseTable wanted = TableOf(lower);
    EXPECT_EQ(std::memcmp(in_force.table(), &wanted, sizeof wanted), 0);
    return known;
  };
  EXPECT_FALSE(knows());
  const tavrix_test::Tree tree;
#ifndef _WIN32
  const std::string made = tree.Path("made");
  if (std::system(("localedef --no-archive -i de_DE -f ISO-8859-1 " + made + " >" +
                   tree.Path("log") + " 2>&1")
                      .c_str()) == 0)
    setenv("LOCPATH", tree.Path().c_str(), 1);
#endif
  volatile int capital = 0xC9;  // or the compiler answers for the locale
  bool set = false;
  for (const char* name : {"made", "de_DE.ISO-8859-1", "en_US.ISO-8859-1", "de_DE", "fr_FR",
                           "German_Germany.1252", "English_United States.1252"})
    set = set || (std::setlocale(LC_CTYPE, name) && std::tolower(capital) == 0xE9);
  EXPECT_EQ(knows(), set);
  // Of locales that find no place any more, or have too long a name, a table is made by each call.
  for (std::string name : {"C.UTF-8@", "C.UTF-8", "C.utf8", "C.UTF8", "C.utf-8", "C.Utf-8"}) {
    if (name.back() == '@') name += std::string(70, 'x');
    if (std::setlocale(LC_CTYPE, name.c_str())) {
      EXPECT_FALSE(knows()) << name;
    }
  }
  std::setlocale(LC_CTYPE, "C");
  EXPECT_FALSE(knows());
  if (!set) GTEST_SKIP() << "no locale of one byte a letter is installed";
}

}  // namespace
}  // namespace quern

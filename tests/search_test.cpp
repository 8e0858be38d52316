// MemFind and its family against the model of their rules.
#include <clocale>

#include "tests/support/search_trial.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using namespace model;
using tavrix_test::Choices;

TEST(Search, AgreesWithTheModel) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 60'000, tavrix_test::SearchTrial), "");
}

// Long enough for a search to arm itself against one text, to relax and to meet the next one.
TEST(Search, FindsPatternsBehindTextOfManyKinds) {
  Choices choices(6);
  auto any = [&](uint32_t size) {
    std::string made(size, 'a');
    for (char& c : made) c = choices.One({'a', 'b'});
    return made;
  };
  const std::string pattern = any(30) + std::string(40, 'a') + "b";
  std::string text;
  for (int stretch = 0; stretch < 6; ++stretch) {
    text += any(20000);
    for (int i = 0; i < 300; ++i) text += pattern.substr(0, 70) + std::string(40, 'a');
    text += std::string(200000, '.');
  }
  text += pattern + std::string(100, 'a');
  // Many places at which nearly everything matches, and each fails at another one.
  const std::string plain = std::string(5000, 'a') + "bb";
  std::string flawed;
  while (flawed.size() < 30000) flawed += std::string(choices.Below(400), 'a') + "b";
  flawed += plain;
  for (uint32_t flags : {0u, MEM_NOCASE, MEM_BACKWARD}) {
    EXPECT_TRUE(TryFind(text, 'a', pattern, flags)) << flags;
    EXPECT_TRUE(TryFind(text, 'a', pattern.substr(0, 18), flags)) << flags;
    EXPECT_TRUE(TryFind(flawed, 'a', plain, flags)) << flags;
  }
}

// What the model must not have wrong, and what it leaves out.
TEST(Search, Oddities) {
  const struct {
    const char *block, *pattern;  // the pattern may go on behind its length
    uint32_t length, size, flags;
    long hit;
  } kRows[] = {
      {"abcd", "a?a", 3, 3, MEM_WILDCARD, 0},  // both are compared with the start
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
  EXPECT_EQ(MemCount("ab ab ab", 8, "ab", 2, 0), 4u);        // the first one, as often as it fits
  EXPECT_EQ(MemCount("xab", 2, "ab", 2, MEM_BACKWARD), 1u);  // the length would wrap
  EXPECT_EQ(MemCountAny("xx,xxxx", 7, ",", 1, 0), 3u);       // lengths 7, 5, 3
  EXPECT_GT(MemCmp("ab\x80", "aba", 3, MEM_NOCASE), 0);
  EXPECT_EQ(MemCmp("ABCx", "abcy", 3, MEM_NOCASE), 0);
  EXPECT_TRUE(MemCmp("_", "Z", 1, 0) > 0 && MemCmp("_", "Z", 1, MEM_NOCASE) < 0);
  EXPECT_TRUE(MemCmp(nullptr, "a", 1, 0) == -1 && MemCmp("a", nullptr, 1, 0) == 1);
}

// Bytes that were moved away stay behind the contents, and hits among them are replaced and counted
// as well.
TEST(Search, ReplacesInPlace) {
  const struct {
    decltype(&MemReplaceAll) replace;
    const char *text, *what, *with, *left;
    int32_t change;  // of all: by how much the contents shrink; of any: by how much they grow
    uint32_t flags = 0;
  } kRows[] = {
      {MemReplaceAll, "xaxbx", "ax", "", "xbxbx", 2},
      {MemReplaceAll, "aaaa", "aa", nullptr, "aaaa", 6},
      {MemReplaceAll, "abcab", "ab", "xyz", "xyzcxyz", -2},
      {MemReplaceAll, "aAbAB", "AB", "-", "a--BB", 2, MEM_NOCASE},
      {MemReplaceAll, "abab.", "ab", "", ".b.b.", 4},
      {MemReplaceAny, "a,b;c", ",;", "--", "a--b--", 2},
      {MemReplaceAny, "xaxa.", "a", "", "xx...", -2},
      {MemReplaceAny, "aBa", "b", "bb", "abbb", 2, MEM_NOCASE},
      {MemReplaceAny, "abc", "a", nullptr, "bcc", -1},
      {MemReplaceAny, "abcdb", "bd", "-", "abcd-", 0, MEM_BACKWARD},
      {MemReplaceAny, "abc", "b", "x", "xbx", 0, MEM_NOTINSET},
      {MemReplaceAny, "aaa", "a", "aba", "ababa", 4},
  };
  for (const auto& row : kRows) {
    char block[20] = "";
    const auto length = static_cast<uint32_t>(strlen(strcpy(block, row.text)));
    const uint32_t change = row.replace(block, length, row.what, strlen(row.what), row.with,
                                        row.with ? strlen(row.with) : 0, row.flags);
    EXPECT_EQ(static_cast<int32_t>(change), row.change) << row.text;
    EXPECT_STREQ(block, row.left);
  }
}

// A locale with one byte a letter, where there is one or can be made; then back, for tables are
// kept by locale.
TEST(Search, FollowsTheLocale) {
  const auto knows = [] {
    const bool known = MemCmp("\xE9", "\xC9", 1, MEM_NOCASE) == 0;
    EXPECT_EQ(MemFind("d\xE9j\xE0", 4, "J\xC0", 2, MEM_NOCASE) != nullptr, known);
    EXPECT_EQ(MemFindAny("caf\xE9", 4, "\xC9", 1, MEM_NOCASE) != nullptr, known);
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
  for (const char* name : {"made", "German_Germany.1252"})
    set = set || (std::setlocale(LC_CTYPE, name) && std::tolower(capital) == 0xE9);
  EXPECT_EQ(knows(), set);
  std::setlocale(LC_CTYPE, "C");
  EXPECT_FALSE(knows());
  if (!set) GTEST_SKIP() << "no locale of one byte a letter is installed";
}

}  // namespace
}  // namespace quern

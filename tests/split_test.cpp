// The token splitter: any steps, and the rules that surprise.

#include "tests/support/split_trial.h"
#include "tests/support/test.h"

namespace quern {
namespace {

TEST(Split, RandomTokensAreWhatTheSeparatorsStandBetween) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 5000, tavrix_test::SplitTrial), "");
}

// Plays ">", "<" or "-" (no direction) with a count, or "?" with what is searched, behind a "t" for
// trimming or an "i" for any case. A token is its place and length. The text's last byte is the
// caller's.
void Expect(const std::string& text, const std::string& sep, const std::string& transcript) {
  const auto size = static_cast<uint32_t>(text.size() - 1);
  MemSplit split;
  MemSplitInit(&split, text.data(), size, sep.data(), static_cast<uint32_t>(sep.size()));
  auto step = [&](const tavrix_test::Words& w) {
    uint32_t flags = w[0][0] == 't' ? SPLIT_TRIM : w[0][0] == 'i' ? MEM_NOCASE : 0;
    const auto length = static_cast<uint32_t>(w[1].size());
    const char* at = w[1].data();
    const char* hit = nullptr;
    if (w[0].back() == '?') {
      hit = MemSplitFind(&split, at, length, flags);
    } else {
      flags |= w[0].back() == '>' ? SPLIT_NEXT : w[0].back() == '<' ? SPLIT_PREV : 0;
      flags |= isdigit(w[1][0]) ? static_cast<uint32_t>(std::stoi(w[1])) : 0;
      EXPECT_EQ(MemSplitNext(&split, 0, 0, flags), split.pToken);
    }
    const std::string found = hit ? std::to_string(hit - at) + " in " : "";
    if (!split.pToken) return found + ".";
    return found + std::to_string(split.pToken - text.data()) + "+" + std::to_string(split.nToken);
  };
  EXPECT_EQ(tavrix_test::Played(transcript, step, [] { return tavrix_test::State(); }), transcript);
}

TEST(Split, StepsAndTrims) {
  Expect("ab;c;;d\n", ";", R"(
    < : ., > : 0+2, > : 3+1, > : 5+0, > : 6+1, > : ., > : 0+2, > 2 : 5+0, > 2 : ., > 2 : 0+2
    - 3 : 0+2, > 2 : 5+0, < : 5+0, > 3 : ., > : 0+2, > : 3+1, < : 2+0, < : 2+0, - : 0+2, < : .)");
  Expect("ab, ;c, ;d, ;\n", ", ;",
         "> : 0+2, > : 5+1, > : 9+1, > : ., > 2 : 0+2, > 2 : 9+1, < : 6+0, < : 6+0");
  Expect(" \ta b\t ; \t;c \n", ";", R"(
    t> : 2+3, t> : 10+0, t> : 11+1, t> : ., t- : 2+3, t< : 2+3, - : 0+7, > : 8+2, < : 7+0, t< : 7+0
    t> 2 : 11+1)");
  // Behind the text a tab is passed over, and no blank.
  Expect("x,, \t", ",,", "t> : 0+1, t> : 5+0, t< : 1+0");
  Expect("x,,  ", ",,", "t> : 0+1, t> : 4+0");
}

// A longer separator is passed by one byte: what is left of it begins the next token.
TEST(Split, FindsTheFirstTokenThatOccurs) {
  Expect("Jan;Feb; Mar \n", ";", R"(
    ? 12FEB : ., i? 12FEB : 2 in 4+3, > : 8+5, ? 12FEB : 8+5, t? 1Mar : 1 in 9+3
    ? 1FebJan : 4 in 0+3)");
  Expect("x; Mar\n", "; ", "? 1Mar : ., t? 1Mar : 1 in 3+3");
  const char* march = "1Mar";
  EXPECT_EQ(MemSplitFindIn(march, 4, "Feb,Mar", 7, ",", 1, 0), march + 1);
}

}  // namespace
}  // namespace quern

// The token splitter against its rules written out over positions, and the rules that surprise.

#include "quern/cmem/split.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <string>

#include "quern/cerr.h"
#include "quern/cmem/search.h"
#include "tests/support/alloc.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

struct Token {
  size_t at;
  size_t length;
  bool operator==(const Token&) const = default;
};

// Forward steps only: tokens are what stands between separators, trimmed.
struct Model {
  std::string text;
  std::string sep;
  bool trim;

  bool Separator(size_t at) const {
    return text.compare(at, sep.size(), sep) == 0 && at < text.size();
  }
  size_t Next(size_t at) const {
    while (at < text.size() && !Separator(at)) ++at;
    return at;
  }
  size_t Skip(size_t at) const {
    while (trim && at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
    return at;
  }
  std::optional<Token> From(size_t at) const {
    if (at >= text.size()) return std::nullopt;
    at = Skip(at);
    size_t end = Next(at);
    while (trim && end > 0 && (text[end - 1] == '\t' || (text[end - 1] == ' ' && end > 1))) --end;
    return Token{at, end > at ? end - at : 0};
  }
  std::optional<Token> After(const std::optional<Token>& token, int count) const {
    if (!token) return From(0);
    size_t at = Skip(token->at + token->length) + sep.size();
    for (; count > 1 && at < text.size(); --count) at = Next(at) + sep.size();
    return From(at);
  }
};

TEST(Split, ForwardStepsAgreeWithAModel) {
  std::mt19937 random(7);
  const std::string alphabet = "ab ;\t,";
  const std::string seps[] = {";", ",", ";;", ", ;"};
  for (int round = 0; round < 20000; ++round) {
    Model model;
    for (uint32_t n = random() % 14; n > 0; --n) model.text += alphabet[random() % alphabet.size()];
    model.sep = seps[random() % 4];
    model.trim = random() % 2;
    MemSplit split;
    MemSplitInit(&split, model.text.c_str(), static_cast<uint32_t>(model.text.size()),
                 model.sep.c_str(), static_cast<uint32_t>(model.sep.size()));
    std::optional<Token> current;
    for (int step = 0; step < 8; ++step) {
      int count = static_cast<int>(random() % 4);
      uint32_t flags = static_cast<uint32_t>(count) | (model.trim ? SPLIT_TRIM : 0);
      if (random() % 8) {
        flags |= SPLIT_NEXT;
        current = model.After(current, count);
      } else {  // no direction: the first token, whatever the count
        current = model.From(0);
      }
      const char* token = MemSplitNext(&split, 0, 0, flags);
      std::optional<Token> got;
      if (token) got = Token{static_cast<size_t>(token - model.text.c_str()), split.nToken};
      ASSERT_EQ(got.has_value(), current.has_value()) << '"' << model.text << '"';
      ASSERT_EQ(got, current) << '"' << model.text << "\" by \"" << model.sep << '"';
    }
  }
}

TEST(Split, BackwardLandsOnTheSeparator) {
  const char* text = "a;b;c";
  MemSplit split;
  MemSplitInit(&split, text, 5, ";", 1);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV), nullptr);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT), text);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT | 2), text + 4);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV | 3), text + 3);  // further steps stay there
  EXPECT_EQ(split.nToken, 0u);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV), text + 3);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT), text + 4);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT), nullptr);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT), text);  // round and round
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV), nullptr);
  EXPECT_EQ(MemSplitNext(nullptr, 0, 0, SPLIT_NEXT), nullptr);
  // A tab behind the text is passed over; nothing is searched for there.
  const char behind[] = {'x', ',', ',', ' ', '\t', '\0'};
  MemSplitInit(&split, behind, 4, ",,", 2);
  MemSplitNext(&split, 0, 0, SPLIT_NEXT | SPLIT_TRIM);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT | SPLIT_TRIM), behind + 5);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV | SPLIT_TRIM), behind + 3 - 2);
}

TEST(Split, FindsTheFirstTokenThatOccurs) {
  const char* list = "Jan;Feb; Mar ";
  const char* in = "12 FEB";
  MemSplit split;
  MemSplitInit(&split, list, 13, ";", 1);
  EXPECT_EQ(MemSplitFind(&split, in, 6, 0), nullptr);
  EXPECT_EQ(split.pToken, nullptr);  // as it was
  EXPECT_EQ(MemSplitFind(&split, in, 6, MEM_NOCASE), in + 3);
  EXPECT_EQ(split.pToken, list + 4);
  EXPECT_EQ(split.nToken, 3u);
  EXPECT_EQ(MemSplitFindIn("May", 3, list, 13, ";", 1, SPLIT_TRIM), nullptr);
  const char* march = "1Mar";
  EXPECT_EQ(MemSplitFindIn(march, 4, list, 13, ";", 1, SPLIT_TRIM), march + 1);
  EXPECT_EQ(MemSplitFindIn(march, 4, list, 13, ";", 1, 0), nullptr);
  // A separator of two bytes is passed by one; the blank left over begins the next token.
  EXPECT_EQ(MemSplitFindIn(march, 4, "x; Mar", 6, "; ", 2, 0), nullptr);
  EXPECT_EQ(MemSplitFindIn(march, 4, "x; Mar", 6, "; ", 2, SPLIT_TRIM), march + 1);
  EXPECT_EQ(MemSplitFindIn(march, 4, "", 0, ";", 1, 0), nullptr);
}

TEST(Split, AllocatesARecordOrRaises) {
  MemSplit* split = MemSplitInit(nullptr, "a", 1, ";", 1);
  ASSERT_NE(split, nullptr);
  EXPECT_EQ(split->pToken, nullptr);
  free(split);
  tavrix_test::AllocationFault fault(1);
  EXPECT_EQ(MemSplitInit(nullptr, "a", 1, ";", 1), nullptr);
  EXPECT_EQ(ErrLine, 712);
  EXPECT_EQ(tavrix_test::ClearedTrail(), "01");
}

}  // namespace
}  // namespace quern

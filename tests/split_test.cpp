// The token splitter against its rules written out over positions, and the rules that surprise.

#include "quern/cmem/split.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>

#include "quern/cerr.h"
#include "quern/cmem/search.h"

namespace quern {
namespace {

struct Token {
  size_t at;
  size_t length;
  bool operator==(const Token&) const = default;
};

// Tokens are what stands between separators, trimmed.
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
  // The separator in front, or the text's beginning; further steps stay there.
  std::optional<Token> Before(const std::optional<Token>& token) const {
    if (!token || token->at == 0) return std::nullopt;
    size_t at = token->at;
    while (at > 0 && !Separator(at)) --at;
    return From(at);
  }
  // The first token that `in` holds, and where.
  std::optional<Token> In(const std::string& in, size_t* hit) const {
    for (size_t at = 0; at < text.size(); at = Next(at) + 1) {
      at = Skip(at);
      Token token = at < text.size() ? *From(at) : Token{at, 0};
      *hit = token.length == 0 ? in.npos : in.find(text.substr(token.at, token.length));
      if (*hit != in.npos) return token;
    }
    return std::nullopt;
  }
};

TEST(Split, AgreesWithAModelOverRandomSteps) {
  std::mt19937 random(7);
  const std::string alphabet = "ab ;\t,";
  const std::string seps[] = {";", ",", ";;", ", ;", ""};
  int backward = 0, hits = 0;
  for (int round = 0; round < 30000; ++round) {
    Model model;
    for (uint32_t n = random() % 14; n > 0; --n) model.text += alphabet[random() % alphabet.size()];
    model.sep = seps[random() % 5];
    model.trim = random() % 2;
    const uint32_t trim = model.trim ? SPLIT_TRIM : 0;
    const auto size = static_cast<uint32_t>(model.text.size());
    const auto sepSize = static_cast<uint32_t>(model.sep.size());
    MemSplit split;
    memset(&split, 0xAA, sizeof split);
    EXPECT_EQ(MemSplitInit(&split, model.text.c_str(), size, model.sep.c_str(), sepSize), &split);
    ASSERT_EQ(split.unused[0] + split.unused[1] + split.nToken, 0u);
    std::optional<Token> current;
    for (int step = 0; step < 8; ++step) {
      const int count = static_cast<int>(random() % 4);
      uint32_t flags = static_cast<uint32_t>(count) | trim;
      const char* token;
      if (random() % 8 == 0) {
        const std::string in{"ab;,"[random() % 4], "ab; "[random() % 4], "ab"[random() % 2]};
        size_t at = in.npos;
        if (const auto found = model.In(in, &at)) current = found, ++hits;
        const char* hit = MemSplitFind(&split, in.data(), 3, trim);
        ASSERT_EQ(hit, at == in.npos ? nullptr : in.data() + at) << '"' << model.text << '"' << in;
        ASSERT_EQ(hit, MemSplitFindIn(in.data(), 3, model.text.c_str(), size, model.sep.c_str(),
                                      sepSize, trim));
        token = split.pToken;
      } else {
        const uint32_t way = random() % 8;  // no direction: the first token, whatever the count
        if (way > 0) flags |= way > 2 ? SPLIT_NEXT : SPLIT_PREV;
        current = way == 0  ? model.From(0)
                  : way > 2 ? model.After(current, count)
                            : model.Before(current);
        backward += way > 0 && way < 3 && current;
        token = MemSplitNext(&split, 0, 0, flags);
        ASSERT_EQ(token, split.pToken);
      }
      std::optional<Token> got;
      if (token) got = Token{static_cast<size_t>(token - model.text.c_str()), split.nToken};
      ASSERT_TRUE(token || split.nToken == 0);
      ASSERT_EQ(got, current) << '"' << model.text << "\" by \"" << model.sep << '"';
    }
  }
  EXPECT_GT(std::min(backward, hits), 3000);
}

// A tab, and no blank.
TEST(Split, ReadsATabBehindTheText) {
  char behind[] = {'x', ',', ',', ' ', '\t', '\0'};
  MemSplit split;
  MemSplitInit(&split, behind, 4, ",,", 2);
  MemSplitNext(&split, 0, 0, SPLIT_NEXT | SPLIT_TRIM);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT | SPLIT_TRIM), behind + 5);
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_PREV | SPLIT_TRIM), behind + 3 - 2);
  behind[4] = ' ';
  EXPECT_EQ(MemSplitNext(&split, 0, 0, SPLIT_NEXT | SPLIT_TRIM), behind + 4);
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
  // A separator of two bytes is passed by one; the blank left over begins the next token.
  const char* march = "1Mar";
  EXPECT_EQ(MemSplitFindIn(march, 4, "x; Mar", 6, "; ", 2, 0), nullptr);
  EXPECT_EQ(MemSplitFindIn(march, 4, "x; Mar", 6, "; ", 2, SPLIT_TRIM), march + 1);
  // No list, and nothing in it.
  EXPECT_EQ(MemSplitFindIn(march, 4, nullptr, 5, ";", 1, 0), nullptr);
  EXPECT_EQ(MemSplitFindIn(march, 4, "Mar", 0, ";", 1, 0), nullptr);
  EXPECT_EQ(MemSplitFind(nullptr, march, 4, 0), nullptr);
  EXPECT_EQ(MemSplitNext(nullptr, 0, 0, SPLIT_NEXT), nullptr);
}

}  // namespace
}  // namespace quern

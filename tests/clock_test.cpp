// Stamps, the stopwatch, and routines on words.

#include "tests/support/test.h"

namespace quern {
namespace {

TEST(Clock, StampsShowThePartsAskedFor) {
  SYSTEMTIME time = {2001, 3, 1, 5, 14, 7, 9, 42}, wild = {65535, 99, 0, 65535, 99, 99, 99, 65535};
  const struct {
    const SYSTEMTIME* time;
    uint32_t flags;
    const char* stamp;
  } kRows[] = {
      {&time, STAMP_DATE | STAMP_SECONDS, "50829.000000.3"},
      {&time, STAMP_DATE | STAMP_MILLIS, "05.03.2001 14:07:09:042"},
      {&time, STAMP_SECONDS | STAMP_TIME, "50829.000000.3 14:07:09"},
      {&wild, STAMP_SECONDS, "362504.000000.3"},
      {&wild, STAMP_DATE | STAMP_MILLIS, "65535.99.65535 99:99:99:65535"},
  };
  for (const auto& row : kRows) EXPECT_STREQ(TimeStamp(row.time, row.flags), row.stamp);
}

TEST(Clock, WatchTextsAreTheSameOnEverySystem) {
  std::string all;  // from 0 ms to 100 h
  for (uint32_t ms = 0; ms <= 360'000'000; ms += 997) all += WatchText(ms, 0);
  EXPECT_EQ(tavrix_test::Sum(all), 17677342030779123311u);  // worked out apart from this code
  const std::tuple<uint32_t, uint32_t, const char*> kRows[] = {
      {0xFFFFFFFF, 0, "1193:02:47.295"},
      {2'000'999, WATCH_NUMBER, "2000.000000.3"},
      {61500, WATCH_NUMBER | WATCH_MILLIS, "61500.000000"},
  };
  for (auto [ms, flags, text] : kRows) EXPECT_STREQ(WatchText(ms, flags), text);
}

TEST(Clock, TheWatchRunsStopsAndBeginsAnew) {
  EXPECT_EQ(TimeWatch(0, 0), nullptr);
  Sleep(30);
  const std::string text = TimeWatch(0, 0);
  EXPECT_TRUE(text >= "0.015" && text < "0.900") << text;
  EXPECT_EQ(TimeWatch(0, WATCH_RESTART), nullptr);
  EXPECT_LT(std::string(TimeWatch(0, WATCH_STOP)), "0.015");
  EXPECT_EQ(TimeWatch(0, 0), nullptr);
}

TEST(Clock, WordsAreMeasuredQuotedAndFound) {
  const std::pair<const char*, uint32_t> kLengths[] = {
      {"  \"a b\" c", 7},   {"word next", 4}, {"\t\v\f\r\nx", 6}, {"x\xA0y \"", 3},
      {" \"open end ", 11}, {"a\"b c\"", 3},  {"  ", 2},          {"", 0}};
  for (auto [text, length] : kLengths) EXPECT_EQ(StrWordLen(text), length) << text;
  const std::pair<const char*, const char*> kQuoted[] = {
      {"", ""},     {"plain", "plain"},   {"a b", "\"a b\""},     {"\"a b\"", "\"a b\""},
      {"\"", "\""}, {"\"a b", "\"a b\""}, {"a\"\"b\"", "\"ab\""}, {"\"\"\"x", "\"x\""}};
  for (auto [given, quoted] : kQuoted) {
    const auto length = static_cast<uint32_t>(strlen(given));
    std::string text = std::string(given) + "~~~";
    const uint32_t result = StrQuote(text.data(), length);
    EXPECT_EQ(text.substr(0, result), quoted);
    EXPECT_EQ(text[result], result == length ? '~' : '\0') << given;
  }
  char copy[] = "~~~~~";
  EXPECT_EQ(StrCopyN(copy, "ab", 5) + StrCopyN(copy + 2, "cdef", 2), 4u);
  EXPECT_STREQ(copy, "abcd~");
  const char* text = "12 Feb;x";
  EXPECT_EQ(StrFindToken(text, "Jan;Feb;Mar", ";", 0), text + 3);
  EXPECT_EQ(StrFindToken(text, "Feb;x", "", 0), text + 3);  // one token
  EXPECT_FALSE(StrFindToken(text, "jan;feb", ";", 0) || StrFindToken(text, "Feb;y", nullptr, 0));
}

}  // namespace
}  // namespace quern

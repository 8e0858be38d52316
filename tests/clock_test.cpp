// Stamps, the stopwatch, and routines on words.

#include "tests/support/test.h"

namespace quern {
namespace {

using std::chrono::system_clock;

TEST(Clock, StampsByFlags) {
  const SYSTEMTIME time = {2001, 3, 1, 5, 14, 7, 9, 42}, late = {2001, 3, 1, 5, 23, 59, 59, 2999};
  // The seconds take the place of a date in front of them, and hide a time behind both.
  const char* const kStamps[16] = {
      "~",
      "50829.000000.3",
      "05.03.2001",
      "50829.000000.3",
      "14:07:09",
      "50829.000000.3 14:07:09",
      "05.03.2001 14:07:09",
      "50829.000000.3",
      "14:07:09:042",
      "50829.000000.3 14:07:09:042",
      "05.03.2001 14:07:09:042",
      "50829.000000.3",
      "14:07:09:042",
      "50829.000000.3 14:07:09:042",
      "05.03.2001 14:07:09:042",
      "50829.000000.3",
  };
  for (uint32_t flags = 0; flags < 16; ++flags) {
    strcpy(SharedText, "~");
    EXPECT_EQ(TimeStamp(&time, flags), SharedText);
    EXPECT_STREQ(SharedText, kStamps[flags]) << flags;
  }
  EXPECT_STREQ(TimeStamp(&late, STAMP_SECONDS), "86401.000000.3");
  // The local time, in the middle of two looks at the clock (time() may lag behind it).
  auto now = [] { return system_clock::to_time_t(system_clock::now()); };
  time_t before = now();
  std::string stamp = TimeStamp(nullptr, STAMP_DATE | STAMP_TIME);
  std::string around[2];
  for (int i = 0; i < 2; ++i) {
    time_t at = i ? now() : before;
    char text[32];
    strftime(text, sizeof text, "%d.%m.%Y %H:%M:%S", localtime(&at));
    around[i] = text;
  }
  EXPECT_TRUE(stamp == around[0] || stamp == around[1] || around[0] != around[1]) << stamp;
}

// A number over all texts from 0 ms to 100 h. Every home must come to the same.
TEST(Clock, WatchTextsAreTheSameOnEveryHome) {
  uint64_t sum = 14695981039346656037u;  // FNV-1a
  for (uint64_t ms = 0; ms <= 360'000'000; ms += 997) {
    for (const char* at = WatchText(static_cast<uint32_t>(ms), 0); *at; ++at)
      sum = (sum ^ static_cast<unsigned char>(*at)) * 1099511628211u;
  }
  EXPECT_EQ(sum, 17677342030779123311u);  // worked out apart from this code
  EXPECT_STREQ(WatchText(0, 0), "0.000");
  EXPECT_STREQ(WatchText(2'000'999, WATCH_NUMBER), "2000.000000.3");
  EXPECT_STREQ(WatchText(3004, 0), "03.004");
  EXPECT_STREQ(WatchText(61500, 0), "01:01.500");
  EXPECT_STREQ(WatchText(3723004, 0), "01:02:03.004");
  EXPECT_STREQ(WatchText(60000, 0), "01:00.000");
  EXPECT_STREQ(WatchText(0xFFFFFFFF, 0), "1193:02:47.295");
  EXPECT_STREQ(WatchText(61500, WATCH_NUMBER), "61.000000.3");
  EXPECT_STREQ(WatchText(61500, WATCH_NUMBER | WATCH_MILLIS), "61500.000000");
}

TEST(Clock, TheWatchRunsStopsAndBeginsAnew) {
  EXPECT_EQ(TimeWatch(0, 0), nullptr);
  for (DWORD start = GetTickCount(); GetTickCount() - start < 30;) {
  }
  std::string text = TimeWatch(0, 0);
  EXPECT_GE(text, "0.015");
  EXPECT_LT(text, "0.900");
  EXPECT_NE(TimeWatch(0, 0), nullptr) << "it runs on";
  EXPECT_EQ(TimeWatch(0, WATCH_RESTART), nullptr);
  EXPECT_LT(std::string(TimeWatch(0, WATCH_STOP)), "0.015");
  EXPECT_EQ(TimeWatch(0, 0), nullptr);
}

TEST(Clock, WordsAreMeasured) {
  EXPECT_EQ(StrWordLen("  \"a b\" c"), 7u);
  EXPECT_EQ(StrWordLen("word next"), 4u);
  EXPECT_EQ(StrWordLen("\t\v\f\r\nx"), 6u);
  EXPECT_EQ(StrWordLen("x\xA0y \""), 3u);
  EXPECT_EQ(StrWordLen(" \"open end "), 11u);
  EXPECT_EQ(StrWordLen("a\"b c\""), 3u);
  EXPECT_EQ(StrWordLen("  "), 2u);
  EXPECT_EQ(StrWordLen(""), 0u);
}

std::string Quoted(std::string text) {
  uint32_t length = static_cast<uint32_t>(text.size());
  text.resize(length + 4, '~');
  uint32_t result = StrQuote(text.data(), length);
  EXPECT_EQ(text[result], result == length ? '~' : '\0');
  return text.substr(0, result);
}

TEST(Clock, WordsAreQuotedAndCopied) {
  EXPECT_EQ(Quoted(""), "");
  EXPECT_EQ(Quoted("plain"), "plain");
  EXPECT_EQ(Quoted(std::string("a\0b", 3)).size(), 3u);
  EXPECT_EQ(Quoted("a b"), "\"a b\"");
  EXPECT_EQ(Quoted("a\tb"), "\"a\tb\"");
  EXPECT_EQ(Quoted("\"a b\""), "\"a b\"");
  EXPECT_EQ(Quoted("\""), "\"");
  EXPECT_EQ(Quoted("\"a b"), "\"a b\"");
  EXPECT_EQ(Quoted("a\"\"b\""), "\"ab\"");
  EXPECT_EQ(Quoted("\"\"\"x"), "\"x\"");
  char copy[] = "~~~~~";
  EXPECT_EQ(StrCopyN(copy, "ab", 5), 2u);
  EXPECT_EQ(StrCopyN(copy + 2, "cdef", 2), 2u);
  EXPECT_STREQ(copy, "abcd~");
}

TEST(Clock, TokensAreFound) {
  const char* text = "12 Feb;x";
  EXPECT_EQ(StrFindToken(text, "Jan;Feb;Mar", ";", 0), text + 3);
  EXPECT_EQ(StrFindToken(text, "jan;feb", ";", 0), nullptr);
  EXPECT_EQ(StrFindToken(text, "Feb;x", "", 0), text + 3);  // one token
  EXPECT_EQ(StrFindToken(text, "Feb;y", nullptr, 0), nullptr);
  EXPECT_EQ(StrFindToken(text, nullptr, ";", 0), nullptr);
}

}  // namespace
}  // namespace quern

// Trace lines: who gets them, and what they begin with. And the restart, as far as it is refused.

#include <regex>

#include "tests/support/test.h"

namespace quern {
namespace {

TEST(Trace, StreamsGetStampedLines) {
  const std::string longText(2000, 'x');
  std::string lines = tavrix_test::TracedStream([&] {
    Trace(0, "zero\n");
    Trace(1, "dropped");
    Trace(-1, "below %d", 5);
    TraceLevel = 5;
    EXPECT_EQ(Trace(4, "four"), 0);
    EXPECT_EQ(Trace(6, "dropped"), 0);
    TraceLevel = INT32_MIN | 4;
    Trace(1000, "%s", longText.c_str());
    Trace(0, nullptr);
    ErrRaiseText("test", 7, 3, longText.c_str());
    Trace(0, nullptr);
  });
  static const std::regex time(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d:\d{3} )");
  const std::string failure = "Error 03 (TEST7): ";  // the stack is left alone
  EXPECT_EQ(std::regex_replace(lines, time, "@"),
            "@zero\n\n@below 5\n@four\n@" + longText.substr(1001) + "\n@\n@" + failure +
                longText.substr(1001 + failure.size()) + "\n");
  EXPECT_EQ(tavrix_test::ClearedTrail(), "03");
}

#ifndef _WIN32

TEST(Trace, RestartsAreRefused) {
  EXPECT_EQ(SysShutdown(), -3);
  EXPECT_EQ(ErrLine, 76);
}

#endif

}  // namespace
}  // namespace quern

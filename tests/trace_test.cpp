// Trace lines: who gets them, and what they begin with. And the restart, as far as it is refused.

#include <regex>

#include "tests/support/test.h"

namespace quern {
namespace {

// Lines that reach a stream, with "<time> " where they begin with one.
template <class Body>
std::string Stamped(Body body) {
  static const std::regex time(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d:\d{3} )");
  return std::regex_replace(tavrix_test::TracedStream(body), time, "<time> ");
}

TEST(Trace, StreamsGetStampedLines) {
  EXPECT_EQ(Stamped([] {
              Trace(0, "zero\n");
              Trace(1, "dropped");
              Trace(-1, "below %d", 5);
              TraceLevel = 5;
              EXPECT_EQ(Trace(4, "four"), 0);
              EXPECT_EQ(Trace(6, "dropped"), 0);
              TraceLevel = INT32_MIN | 4;
              Trace(1000, "all");
            }),
            "<time> zero\n\n<time> below 5\n<time> four\n<time> all\n");
}

TEST(Trace, LongLinesAreCutAndFailuresReported) {
  std::string longText(2000, 'x');
  std::string lines = Stamped([&] { Trace(0, "%s", longText.c_str()); });
  EXPECT_EQ(lines, "<time> " + std::string(1023 - 24, 'x') + "\n");
  EXPECT_EQ(Stamped([] { Trace(0, nullptr); }), "<time> \n");
  ErrRaiseText("test", 7, 3, longText.c_str());
  EXPECT_EQ(Stamped([] { Trace(0, nullptr); }),
            "<time> " + ("Error 03 (TEST7): " + longText).substr(0, 1023 - 24) + "\n");
  EXPECT_EQ(tavrix_test::ClearedTrail(), "03");  // the stack is left alone
}

#ifndef _WIN32

TEST(Trace, DebuggersGetLinesAsTheyAre) {
  tavrix_test::Tree tree;
  setenv("TAVRIX_DEBUG_OUTPUT", tree.Path("debug").c_str(), 1);
  Trace(0, "zero\n");
  Trace(4, "dropped\n");
  Trace(-0x40000000, "hash\n");
  TraceLevel = 5;
  Trace(4, "four\n");
  TraceLevel = INT32_MIN | 4;
  Trace(4, "masked\n");
  Trace(2, "two");
  EXPECT_EQ(tree.Read("debug"),
            "zero\nTrace -1073741824: hash\nTrace 04: four\nmasked\nTrace 02: two");
}

TEST(Trace, RestartsAreRefused) {
  SysInit(0);
  {
    tavrix_test::AllocationFault fault(1);  // of the table of handles
    EXPECT_EQ(SysShutdown(), -1);
  }
  EXPECT_EQ(tavrix_test::ClearedTrail(), "01");
  EXPECT_EQ(SysShutdown(), -3);
  char report[512];
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  EXPECT_STREQ(report,
               "Error 03 (CSYS76): Can't shutdown system A required privilege is not held by the "
               "client (1314)");
  SysPlatformId = 1;  // no privilege needed: straight to the request
  EXPECT_EQ(SysShutdown(), -3);
  EXPECT_EQ(ErrLine, 76);
  ErrClear();
}

#else

TEST(Trace, RestartsAreRefused) {
  // Where the privilege is enabled without a complaint, and only there, nothing is restarted.
  HANDLE token;
  TOKEN_PRIVILEGES privileges = {1, {{{0, 0}, SE_PRIVILEGE_ENABLED}}};
  SetLastError(1);
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token) ||
      !LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid) ||
      !AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr) || GetLastError() != 0)
    GTEST_SKIP() << "the system would be asked to restart";
  SysInit(0);
  EXPECT_EQ(SysShutdown(), -2);
  EXPECT_EQ(ErrLine, 72);
  char text[128] = "";
  ErrGetText(text, 0);
  EXPECT_STREQ(text, "Error AdjustTokenPrivileges");
  EXPECT_EQ(tavrix_test::ClearedTrail(), "02");
}

#endif

}  // namespace
}  // namespace quern

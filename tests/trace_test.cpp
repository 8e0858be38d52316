// Trace lines and debug output: who gets them, what they begin with, and that they disturb nobody.

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

void SetListener(const std::string& name) { setenv("TAVRIX_DEBUG_OUTPUT", name.c_str(), 1); }

TEST(Trace, DebugOutputGoesToTheFileThatWasNamedFirst) {
  tavrix_test::Tree tree;
  tree.File("log", "old\n");
  SetListener(tree.Path("log"));
  // The host has closed a standard stream: its place is not taken for the log.
  close(STDERR_FILENO);
  EXPECT_TRUE(DebugOutputHeard());
  EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD), -1);
  SetListener(tree.Path("other"));
  SetLastError(1234), errno = ERANGE;
  for (const char* text : {"one\n", static_cast<const char*>(nullptr), "", "100%s\n"})
    OutputDebugStringA(text);
  EXPECT_TRUE(errno == ERANGE && GetLastError() == 1234);
  TraceLevel = 5;
  Trace(4, "four\n");
  Trace(6, "dropped");
  TraceLevel = INT32_MIN | 4;
  Trace(4, "masked");
  EXPECT_EQ(tree.Read("log"), "old\none\n100%s\nTrace 04: four\nmasked");
  EXPECT_FALSE(tree.Exists("other"));
}

// A pipe, a socket and a terminal behind standard error, and a pipe with a name. What a reader that
// sleeps loses is whole lines.
TEST(Trace, DebugOutputWaitsForNoReader) {
  tavrix_test::Tree tree;
  const std::string path = tree.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  for (int kind = 0; kind < 4; ++kind) {
    int ends[2] = {open(path.c_str(), O_RDWR), -1};
    EXPECT_TRUE(kind != 0 || pipe(ends) == 0);
    EXPECT_TRUE(kind != 1 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    if (kind == 2 && openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) != 0)
      GTEST_SKIP() << "no terminal can be opened";
    SetListener(kind == 3 ? path : "stderr");
    const int code = tavrix_test::InChild([&] {
      alarm(20);
      dup2(kind == 3 ? ends[0] : ends[1], STDERR_FILENO);
      std::string text;
      for (int i = 100'000; i < 120'000; ++i) {
        text += std::to_string(i) + "\n";
        if (text.size() == 8400) OutputDebugStringA(std::exchange(text, "").c_str());
      }
      return fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK;
    });
    EXPECT_EQ(code, 0) << kind;
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    std::string heard(200'000, '\0');
    const ssize_t count = read(ends[0], heard.data(), heard.size());
    EXPECT_TRUE(heard.starts_with("100000") && (kind == 2 || count % 7 == 0)) << kind;
  }
}

#endif

}  // namespace
}  // namespace quern

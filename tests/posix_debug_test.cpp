// Debug output: who hears it, and that it disturbs nobody.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "platform/win32.h"
#include "tests/support/child.h"
#include "tests/support/deadline.h"
#include "tests/support/limit.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;

void SetListener(const std::string& name) { setenv("TAVRIX_DEBUG_OUTPUT", name.c_str(), 1); }

TEST(PosixDebug, AppendsToTheFileThatWasNamedFirst) {
  Tree tree;
  tree.File("log", "old\n");
  SetListener(tree.Path("log"));
  // The host has closed two standard streams: their places are not taken for the log.
  int input = dup(STDIN_FILENO), output = dup(STDOUT_FILENO);
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  bool heard = DebugOutputHeard();
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  EXPECT_TRUE(heard);
  SetListener(tree.Path("other"));
  SetLastError(1234);
  errno = ERANGE;
  OutputDebugStringA("one\n");
  OutputDebugStringA(nullptr);
  OutputDebugStringA("");
  OutputDebugStringA("100%s\n");
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(GetLastError(), 1234u);
  EXPECT_EQ(tree.Read("log"), "old\none\n100%s\n");
  EXPECT_FALSE(tree.Exists("other"));
}

TEST(PosixDebug, SpeaksToStandardError) {
  SetListener("stderr");
  testing::internal::CaptureStderr();
  EXPECT_TRUE(DebugOutputHeard());
  OutputDebugStringA("heard\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "heard\n");
}

// A name that cannot be opened, or none. In a child each, since the first use decides.
TEST(PosixDebug, DropsWhatNobodyHears) {
  Tree tree;
  ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0600), 0);
  tavrix_test::EndAfter(20000, 3);
  for (const std::string& name : {std::string("-"), std::string(), tree.Path(),
                                  tree.Path("missing/log"), tree.Path("pipe")}) {
    auto run = [&name] {
      name == "-" ? static_cast<void>(unsetenv("TAVRIX_DEBUG_OUTPUT")) : SetListener(name);
      errno = ERANGE;
      SetLastError(1234);
      OutputDebugStringA("text");
      _exit(!DebugOutputHeard() && errno == ERANGE && GetLastError() == 1234 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^$") << name;
  }
}

TEST(PosixDebug, TakesNoStandardStreamsPlaceForWantOfOthers) {
  Tree tree;
  int code = tavrix_test::InChild([&] {
    close(STDOUT_FILENO);
    SetListener(tree.Path("log"));
    tavrix_test::Limit few(RLIMIT_NOFILE, 3);
    return DebugOutputHeard() || fcntl(STDOUT_FILENO, F_GETFD) >= 0;
  });
  EXPECT_EQ(code, 0);
  code = tavrix_test::InChild([&] {
    close(STDERR_FILENO);
    SetListener("stderr");
    return DebugOutputHeard();
  });
  EXPECT_EQ(code, 0);
}

TEST(PosixDebug, OutlivesAListenerThatWentAway) {
  Tree tree;
  std::string path = tree.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  SetListener(path);
  int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  OutputDebugStringA("heard");
  char text[8] = "";
  EXPECT_EQ(read(reader, text, sizeof text), 5);
  EXPECT_STREQ(text, "heard");
  close(reader);
  OutputDebugStringA("a signal would end the process here");
  // Whoever listens again hears again.
  reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  OutputDebugStringA("again");
  EXPECT_EQ(read(reader, text, sizeof text), 5);
  close(reader);
}

// A pipe, a socket and a terminal behind standard error, and a pipe with a name. What a reader that
// sleeps loses is whole lines.
TEST(PosixDebug, WaitsForNoReader) {
  Tree tree;
  std::string path = tree.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  tavrix_test::EndAfter(20000, 3);
  for (int kind = 0; kind < 4; ++kind) {
    int ends[2];
    ASSERT_EQ(kind == 0   ? pipe(ends)
              : kind == 1 ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends)
              : kind == 2 ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr)
                          : (ends[0] = open(path.c_str(), O_RDWR), ends[1] = dup(ends[0]), 0),
              0);
    SetListener(kind == 3 ? path : "stderr");
    int code = tavrix_test::InChild([&] {
      dup2(ends[1], STDERR_FILENO);
      for (int i = 100'000; i < 120'000; ++i)
        OutputDebugStringA((std::to_string(i) + "\n").c_str());
      return fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK;
    });
    EXPECT_EQ(code, 0) << kind;
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    std::string heard(200'000, '\0');
    ssize_t count = read(ends[0], heard.data(), heard.size());
    heard.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    EXPECT_TRUE(heard.starts_with("100000")) << kind;
    EXPECT_TRUE(kind == 2 || heard.size() % 7 == 0) << kind;
    close(ends[0]);
    close(ends[1]);
  }
}

}  // namespace

// Debug output: who hears it, and that it disturbs nobody.
#include "tests/support/test.h"

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

// Command lines in words, and processes from their start to their end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/process.h"
#include "platform/win32.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;
using Words = std::vector<std::string>;

Words Split(const char* line) {
  posix_layer::CommandWords words;
  if (!posix_layer::SplitCommandLine(line, &words)) return {};
  Words result(words.words, words.words + words.count);
  EXPECT_EQ(words.words[words.count], nullptr);
  free(words.words);
  return result;
}

TEST(PosixCommandLine, SplitsAsTheWindowsRuntimeDoes) {
  struct Row {
    const char* line;
    Words words;
  };
  const Row kRows[] = {
      {"", {""}},
      {"p", {"p"}},
      {"  p\ta  b ", {"p", "a", "b"}},
      {R"("C:\my dir\p" a)", {R"(C:\my dir\p)", "a"}},
      {R"(C:\"my dir"\p a)", {R"(C:\my dir\p)", "a"}},
      {R"("p\" a")", {R"(p\)", "a"}},
      {R"("open a)", {"open a"}},
      {R"(p "a b c" d e)", {"p", "a b c", "d", "e"}},
      {R"(p "ab\"c" "\\" d)", {"p", R"(ab"c)", R"(\)", "d"}},
      {R"(p a\\\b d"e f"g h)", {"p", R"(a\\\b)", "de fg", "h"}},
      {R"(p a\\\"b c d)", {"p", R"(a\"b)", "c", "d"}},
      {R"(p a\\\\"b c" d e)", {"p", R"(a\\b c)", "d", "e"}},
      {R"(p a"b"" c d)", {"p", R"(ab" c d)"}},
      {R"(p """a""" b)", {"p", R"("a")", "b"}},
      {R"(p "" b)", {"p", "", "b"}},
      {R"(p a\ b\)", {"p", R"(a\)", R"(b\)"}},
      {"p a\"b\tc\"", {"p", "ab\tc"}},
  };
  for (const Row& row : kRows) EXPECT_EQ(Split(row.line), row.words) << row.line;
  // As many words and bytes as a line can hold.
  std::string line = "p";
  for (int i = 0; i < 1000; ++i) line += " x";
  EXPECT_EQ(Split(line.c_str()).size(), 1001u);
}

// Starts a command line; the thread handle is closed. Null when it could not be started.
HANDLE Start(std::string line) {
  STARTUPINFOA startup;
  GetStartupInfoA(&startup);
  PROCESS_INFORMATION information = {};
  SetLastError(0);
  if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE,
                      CREATE_NO_WINDOW | NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup,
                      &information)) {
    return nullptr;
  }
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_TRUE(CloseHandle(information.hThread));
  return information.hProcess;
}

// Starts, waits, and gives the exit code; or minus the last error.
int RunLine(const std::string& line) {
  HANDLE process = Start(line);
  if (!process) return -static_cast<int>(GetLastError());
  DWORD code = 0;
  EXPECT_EQ(WaitForSingleObject(process, INFINITE), WAIT_OBJECT_0);
  EXPECT_TRUE(GetExitCodeProcess(process, &code));
  EXPECT_TRUE(CloseHandle(process));
  return static_cast<int>(code);
}

TEST(PosixProcess, RunsProgramsAndGivesTheirExitCodes) {
  Tree tree;
  std::string out = tree.Path("out");
  EXPECT_EQ(RunLine("true"), 0);
  EXPECT_EQ(RunLine("sh -c \"exit 3\""), 3);
  EXPECT_EQ(RunLine("/bin/sh -c \"kill -9 $$\""), 128 + 9);
  EXPECT_EQ(RunLine("\\bin\\sh -c \"printf %s \\\"a b\\\" >" + out + "\""), 0);
  EXPECT_EQ(tree.Read("out"), "a b");
  setenv("TAVRIX_SEEN", "yes", 1);
  EXPECT_EQ(RunLine("sh -c \"printf %s $TAVRIX_SEEN >" + out + "\""), 0);
  EXPECT_EQ(tree.Read("out"), "yes");
}

TEST(PosixProcess, TellsWhyAProgramDidNotStart) {
  Tree tree;
  tree.Dir("folder");
  tree.File("text", "not a program");
  tree.File("noise", "\x01\x02\x03");
  std::filesystem::permissions(tree.root() / "noise", std::filesystem::perms::all);
  EXPECT_EQ(RunLine("no-such-program-anywhere"), -static_cast<int>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(RunLine(""), -static_cast<int>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(RunLine(tree.Path("missing")), -static_cast<int>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(RunLine(tree.Path("missing/program")), -static_cast<int>(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(RunLine(tree.Path("folder")), -static_cast<int>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(RunLine(tree.Path("text")), -static_cast<int>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(RunLine(tree.Path("noise")), -static_cast<int>(ERROR_BAD_EXE_FORMAT));
  EXPECT_EQ(RunLine(std::string(260, 'p')), -static_cast<int>(ERROR_FILENAME_EXCED_RANGE));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a failure leaves no child";
}

TEST(PosixProcess, SearchesPathForFilesThatMayRun) {
  Tree tree;
  tree.Dir("one/tool");
  tree.File("two/tool", "#!/bin/sh\nexit 4\n");
  tree.File("three/tool", "#!/bin/sh\nexit 5\n");
  std::filesystem::permissions(tree.root() / "three/tool", std::filesystem::perms::all);
  std::string before = getenv("PATH") ? getenv("PATH") : "";
  std::string path = tree.Path("one") + ":" + tree.Path("two");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(RunLine("tool"), -static_cast<int>(ERROR_ACCESS_DENIED));
  setenv("PATH", (path + ":" + tree.Path("three")).c_str(), 1);
  EXPECT_EQ(RunLine("tool"), 5);
  // An empty entry is the current directory.
  ASSERT_EQ(chdir(tree.Path("three").c_str()), 0);
  setenv("PATH", (path + ":").c_str(), 1);
  EXPECT_EQ(RunLine("tool"), 5);
  ASSERT_EQ(chdir("/"), 0);
  setenv("PATH", before.c_str(), 1);
}

TEST(PosixProcess, WaitsAsLongAsItIsTold) {
  HANDLE process = Start("sleep 0.3");
  ASSERT_NE(process, nullptr);
  DWORD code = 0;
  EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_TIMEOUT);
  auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(WaitForSingleObject(process, 50), WAIT_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));
  EXPECT_TRUE(GetExitCodeProcess(process, &code));
  EXPECT_EQ(code, STILL_ACTIVE);
  // With no descriptor left to be told by.
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit none = {0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(WaitForSingleObject(process, 30), WAIT_TIMEOUT);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(WaitForSingleObject(process, 20000), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_OBJECT_0);
  EXPECT_TRUE(GetExitCodeProcess(process, &code));
  EXPECT_EQ(code, 0u);
  EXPECT_TRUE(CloseHandle(process));
  EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(PosixProcess, GivesTheChildACleanStart) {
  Tree tree;
  int open = dup(0);
  ASSERT_GT(open, 2);
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  EXPECT_EQ(RunLine("sh -c \"ls /proc/self/fd >" + tree.Path("fds") + "\""), 0);
  // The list itself takes one.
  EXPECT_EQ(tree.Read("fds"), "0\n1\n2\n3\n");
  EXPECT_EQ(RunLine("sh -c \"kill -15 $$; exit 0\""), 128 + 15);
  close(open);
}

TEST(PosixProcess, WorksUnderAHostThatIgnoresItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(RunLine("sleep 0.2"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(190));
  signal(SIGCHLD, SIG_DFL);
}

TEST(PosixProcess, LeavesNoZombieForLong) {
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(CloseHandle(Start("sleep 0.1")));
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  EXPECT_EQ(RunLine("true"), 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace

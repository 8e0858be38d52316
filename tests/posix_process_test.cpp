// Command lines in words, and processes from their start to their end.
#include "platform/posix/process.h"
#include "tests/support/test.h"

namespace {

using namespace std::chrono_literals;
using tavrix_test::Tree;
using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

Words Split(const std::string& line) {
  posix_layer::CommandWords words;
  EXPECT_TRUE(posix_layer::SplitCommandLine(line.c_str(), &words) && !words.words[words.count]);
  Words result(words.words, words.words + words.count);
  free(words.words);
  return result;
}

TEST(PosixCommandLine, SplitsAsTheWindowsRuntimeDoes) {
  const std::pair<const char*, Words> kRows[] = {
      {R"(C:\"my dir"\p a\ b\)", {R"(C:\my dir\p)", R"(a\)", R"(b\)"}},
      {R"("p\" a")", {R"(p\)", "a"}},
      {R"(p "ab\"c" "\\" "" d)", {"p", R"(ab"c)", R"(\)", "", "d"}},
      {R"(p a\\\b d"e f"g a\\\\"b c" d)", {"p", R"(a\\\b)", "de fg", R"(a\\b c)", "d"}},
      {R"(p """a""" a"b"" c d)", {"p", R"("a")", R"(ab" c d)"}},
  };
  for (const auto& [line, words] : kRows) EXPECT_EQ(Split(line), words) << line;
}

// Starts a command line. Null when it could not be started.
HANDLE Start(std::string line) {
  PROCESS_INFORMATION information = {};
  CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                 nullptr, &information);
  if (information.hThread) CloseHandle(information.hThread);
  return information.hProcess;
}

// Starts, waits, and gives the exit code; or minus the last error.
int RunLine(const std::string& line) {
  HANDLE process = Start(line);
  if (!process) return -static_cast<int>(GetLastError());
  DWORD code = 0;
  EXPECT_EQ(WaitForSingleObject(process, INFINITE), WAIT_OBJECT_0);
  EXPECT_TRUE(GetExitCodeProcess(process, &code) && CloseHandle(process));
  return static_cast<int>(code);
}

TEST(PosixProcess, RunsProgramsFromACleanStart) {
  Tree tree;
  setenv("TAVRIX_SEEN", "a b", 1);
  EXPECT_EQ(RunLine("\\bin\\sh -c \"echo $TAVRIX_SEEN >" + tree.Path("out") + "; exit 3\""), 3);
  EXPECT_EQ(tree.Read("out"), "a b\n");
  EXPECT_GE(dup(0), 0);  // is not inherited
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  EXPECT_EQ(RunLine("sh -c \"ls /proc/self/fd >" + tree.Path("out") + "\""), 0);
  EXPECT_EQ(tree.Read("out"), "0\n1\n2\n3\n") << "the list itself takes one";
  EXPECT_EQ(RunLine("sh -c \"kill -15 $$; exit 0\""), 128 + 15);
}

TEST(PosixProcess, SearchesPathAndTellsWhyAProgramDidNotStart) {
  Tree tree;
  tree.Dir("one/tool");
  tree.File("two/tool", "#!/bin/sh\nexit 4\n");
  tree.File("three/tool", "#!/bin/sh\nexit 5\n");
  tree.File("noise", "\x01\x02\x03");
  for (const char* name : {"three/tool", "noise"})
    std::filesystem::permissions(tree.root() / name, std::filesystem::perms::all);
  const std::string path = tree.Path("one") + ":" + tree.Path("two");
  setenv("PATH", path.c_str(), 1);
  const std::pair<DWORD, Words> kRows[] = {
      {ERROR_FILE_NOT_FOUND, {"no-such-program-anywhere", ""}},
      {ERROR_PATH_NOT_FOUND, {tree.Path("missing/program")}},
      {ERROR_ACCESS_DENIED, {tree.Path("one"), tree.Path("two/tool"), "tool"}},
      {ERROR_BAD_EXE_FORMAT, {tree.Path("noise")}},
      {ERROR_FILENAME_EXCED_RANGE, {std::string(260, 'p'), "/" + std::string(259, 'p')}},
  };
  for (const auto& [error, lines] : kRows)
    for (const std::string& line : lines)
      EXPECT_EQ(RunLine(line), -static_cast<int>(error)) << line;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a failure leaves no child";
  // An empty entry is the current directory; one that is too long is passed over.
  ASSERT_EQ(chdir(tree.Path("three").c_str()), 0);
  setenv("PATH", (path + ":" + std::string(5000, 'p') + ":").c_str(), 1);
  EXPECT_EQ(RunLine("tool"), 5);
  unsetenv("PATH");
  EXPECT_EQ(RunLine("true"), 0) << "where programs usually are";
}

TEST(PosixProcess, WaitsAsLongAsItIsToldAndLeavesNoZombie) {
  HANDLE process = Start("sleep 0.2");
  DWORD code = 0;
  const auto begun = Clock::now();
  EXPECT_EQ(WaitForSingleObject(process, 50), WAIT_TIMEOUT);
  EXPECT_GE(Clock::now() - begun, 50ms);
  EXPECT_TRUE(GetExitCodeProcess(process, &code) && code == STILL_ACTIVE);
  {
    tavrix_test::Limit none(RLIMIT_NOFILE, 0);  // no descriptor is left to be told by
    EXPECT_EQ(WaitForSingleObject(process, 30), WAIT_TIMEOUT);
  }
  EXPECT_EQ(WaitForSingleObject(process, 20000), WAIT_OBJECT_0);
  EXPECT_TRUE(CloseHandle(process) && WaitForSingleObject(process, 0) == WAIT_FAILED);
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(CloseHandle(Start("sleep 0.1")));
  std::this_thread::sleep_for(600ms);
  EXPECT_TRUE(RunLine("true") == 0 && waitpid(-1, nullptr, WNOHANG) == -1);
  signal(SIGCHLD, SIG_IGN);  // a host that ignores its children
  EXPECT_EQ(RunLine("sh -c \"sleep 0.1; exit 0\""), 0);
}

}  // namespace

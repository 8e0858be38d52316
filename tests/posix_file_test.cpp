// Opened files: dispositions, sharing, and what other processes do to them.
#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;

constexpr DWORD kRead = GENERIC_READ, kWrite = GENERIC_WRITE, kBoth = kRead | kWrite;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE Open(const std::string& name, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING) {
  return CreateFileA(name.c_str(), access, share, nullptr, disposition, 0, nullptr);
}

// Opens and closes. The last error.
DWORD TryOpen(const std::string& name, DWORD access, DWORD disposition = OPEN_EXISTING,
              DWORD share = kShareAll) {
  HANDLE file = Open(name, access, share, disposition);
  const DWORD error = GetLastError();
  EXPECT_EQ(file != INVALID_HANDLE_VALUE && CloseHandle(file), error == 0);
  return error;
}

TEST(PosixFile, TellsWhyItCouldNotOpen) {
  Tree tree;
  tree.File("dir/file", "text");
  tree.SetReadOnly("dir/file", true);
  std::filesystem::create_symlink("nowhere", tree.root() / "link");
  ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0666), 0);
  const std::string longest = std::string(258 - tree.Path().size(), 'n');
  struct {
    std::string name;
    DWORD access, disposition, error;
  } const kRows[] = {
      {"dir", kRead, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {"pipe", kRead, OPEN_EXISTING, ERROR_ACCESS_DENIED},  // without waiting
      {"link", kBoth, OPEN_ALWAYS, ERROR_FILE_NOT_FOUND},
      {"no/file", kRead, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {"dir/file/x", kRead, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {"dir/file", kBoth, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {"dir/file", kRead, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
      {"dir/file", kRead, TRUNCATE_EXISTING, ERROR_INVALID_PARAMETER},
      {longest, kBoth, CREATE_NEW, 0},
      {longest + "n", kBoth, CREATE_NEW, ERROR_FILENAME_EXCED_RANGE},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(TryOpen(tree.Path(row.name), row.access, row.disposition), row.error) << row.name;
  EXPECT_EQ(tree.Read("dir/file"), "text");
  tavrix_test::CallFault fault("statx", ENOMEM);  // what it made itself is gone again
  EXPECT_EQ(TryOpen(tree.Path("new"), kBoth, OPEN_ALWAYS), ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(tree.Exists("new"));
}

TEST(PosixFile, WritesAllHoweverLittleIsTakenAndRaisesNoSignal) {
  int ends[2], calls = 0;
  char text[8] = "";
  DWORD written = 1;
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  dup2(ends[1], STDERR_FILENO);
  {
    tavrix_test::StandIn<ssize_t(int, const void*, size_t)> little(
        "write", [&](int file, const void* bytes, size_t) {
          const int turn = calls++ % 3;
          return turn == 2 ? write(file, bytes, 1) : (errno = turn ? EAGAIN : EINTR, -1);
        });
    EXPECT_TRUE(WriteFile(GetStdHandle(STD_ERROR_HANDLE), "text", 4, &written, nullptr));
  }
  EXPECT_TRUE(written == 4 && read(ends[0], text, 8) == 4) << text;
  close(ends[0]);
  // A host that has blocked the signal finds it as it left it: pending when it was.
  sigset_t set, now, blocked;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  for (bool pending : {false, true}) {
    if (pending) sigprocmask(SIG_BLOCK, &set, nullptr), raise(SIGPIPE);
    EXPECT_FALSE(WriteFile(GetStdHandle(STD_ERROR_HANDLE), "text", 4, &written, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
    sigpending(&now);
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_TRUE(sigismember(&now, SIGPIPE) == pending && sigismember(&blocked, SIGPIPE) == pending);
  }
}

// A process that opens what it is told to. It was forked before there was anything to inherit.
class OtherProcess {
 public:
  OtherProcess() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_), 0);
    child_ = fork();
    if (child_ == 0) Serve();
  }
  ~OtherProcess() { End(); }

  // Opens a file, after closing the last one; `map` keeps a view alone. The last error.
  DWORD Try(const std::string& name, DWORD access, DWORD share, bool map = false) {
    Order order = {"", access, share, map};
    strcpy(order.name, name.c_str());
    DWORD error = ~0u;
    EXPECT_EQ(write(ends_[0], &order, sizeof order), ssize_t{sizeof order});
    EXPECT_EQ(read(ends_[0], &error, sizeof error), ssize_t{sizeof error}) << "it has died";
    return error;
  }

  void End() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    waitpid(std::exchange(child_, 0), nullptr, 0);
  }

 private:
  struct Order {
    char name[MAX_PATH];
    DWORD access, share;
    bool map;
  };

  void Serve() {
    HANDLE file = nullptr;
    for (Order order; read(ends_[1], &order, sizeof order) > 0;) {
      CloseHandle(file);
      SetLastError(0);
      file = Open(order.name, order.access, order.share);
      DWORD error = GetLastError();
      if (order.map) {
        HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        MapViewOfFileEx(mapping, FILE_MAP_READ, 0, 0, 0, nullptr);
        for (HANDLE done : {mapping, file}) CloseHandle(done);
      }
      (void)!write(ends_[1], &error, sizeof error);
    }
    _exit(0);
  }

  int ends_[2];
  pid_t child_;
};

TEST(PosixFile, ObeysWhatOthersShare) {
  Tree tree;
  OtherProcess process;
  tree.File("file", "text");
  tree.File("other", "text");
  std::filesystem::create_hard_link(tree.root() / "file", tree.root() / "twin");
  const std::string name = tree.Path("file"), twin = tree.Path("twin"), other = tree.Path("other");
  constexpr DWORD kAccess[] = {0, kRead, kWrite, kBoth};
  for (int i = 0; i < 4 * 4 * 4 * 4; ++i) {
    // The number of an access is at the same time that of the sharing that allows it.
    DWORD access = i & 3, share = i >> 2 & 3, nextAccess = i >> 4 & 3, nextShare = i >> 6 & 3;
    HANDLE first = Open(name, kAccess[access], share);
    bool allowed = !access || !nextAccess || !((nextAccess & ~share) | (access & ~nextShare));
    const DWORD error = allowed ? 0 : ERROR_SHARING_VIOLATION;
    EXPECT_EQ(TryOpen(twin, kAccess[nextAccess], OPEN_EXISTING, nextShare), error) << i;
    EXPECT_EQ(TryOpen(other, kBoth, OPEN_EXISTING, 0), 0u);
    EXPECT_EQ(process.Try(twin, kAccess[nextAccess], nextShare), error) << i;
    process.Try(other, 0, 0);
    CloseHandle(first);
  }
  Open(name, kRead, FILE_SHARE_READ);
  EXPECT_EQ(TryOpen(name, kBoth, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
  EXPECT_FALSE(OpenStream(name.c_str(), "wb"));
  EXPECT_EQ(tree.Read("file"), "text") << "refused before it is emptied";
}

TEST(PosixFile, CutsNothingThatAnotherProcessUses) {
  Tree tree;
  OtherProcess other;
  tree.File("file", "text");
  const std::string name = tree.Path("file");
  // Of a view alone the claim on what it was opened for is over; nobody cuts what it shows.
  EXPECT_EQ(other.Try(name, kRead, FILE_SHARE_READ, true), 0u);
  HANDLE file = Open(name, kBoth, 0);
  for (LONG size : {3, 4, 5}) {
    SetFilePointer(file, size, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file) ? size > 3 : GetLastError() == ERROR_USER_MAPPED_FILE) << size;
  }
  CloseHandle(file);
  EXPECT_EQ(TryOpen(name, kBoth, CREATE_ALWAYS), ERROR_USER_MAPPED_FILE);
  EXPECT_FALSE(OpenStream(name.c_str(), "wb") || DeleteFileA(name.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  // Everything ends with its process, however that ends.
  EXPECT_EQ(other.Try(name, kBoth, 0), 0u);
  EXPECT_FALSE(DeleteFileA(name.c_str()));
  EXPECT_EQ(TryOpen(name, kBoth, TRUNCATE_EXISTING), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(tree.Read("file"), std::string("text\0", 5));
  other.End();
  EXPECT_EQ(TryOpen(name, kBoth, TRUNCATE_EXISTING), 0u);
  EXPECT_TRUE(DeleteFileA(name.c_str()));
}

// Programs that append one line each, all at the same time: what succeeds is there.
TEST(PosixFile, KeepsTheLinesOfFortyWriters) {
  for (int round = 0; round < 3; ++round) {
    Tree tree;
    auto line = [](int i) { return "line " + std::to_string(i) + "\n"; };
    std::map<pid_t, int> writers;
    for (int i = 0; i < 40; ++i) {
      const pid_t child = fork();
      writers[child] = i;
      if (child != 0) continue;
      if (!freopen(tree.Path(std::to_string(i)).c_str(), "w", stderr)) _exit(98);
      execl(TAVRIX_PROGRAM, "tavrix", "append", tree.Path("f").c_str(), line(i).c_str(), nullptr);
      _exit(99);
    }
    size_t size = 0;
    int status;
    for (pid_t child; (child = waitpid(-1, &status, 0)) > 0;) {
      const int i = writers[child];
      const std::string text = "\n" + tree.Read("f");
      const bool there = text.find("\n" + line(i)) != text.npos;
      EXPECT_EQ(status, there ? 0 : 0x100);
      EXPECT_EQ(tree.Read(std::to_string(i)).find("(32)") == std::string::npos, there);
      if (there) size += line(i).size();
    }
    EXPECT_TRUE(size > 0 && tree.Read("f").size() == size) << "no byte but these";
  }
}

}  // namespace

// Opened files: dispositions, sharing, and what other processes do to them.
#include "tests/support/test.h"

namespace {

bool IsPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal);
}

TEST(PosixFile, RaisesNoSignalForAPipeWithoutAReader) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  dup2(ends[1], STDERR_FILENO);
  auto refused = [written = DWORD{1}]() mutable {
    return !WriteFile(GetStdHandle(STD_ERROR_HANDLE), "text", 4, &written, nullptr) &&
           GetLastError() == ERROR_BROKEN_PIPE && written == 0;
  };
  EXPECT_TRUE(refused()) << "with the default action";
  // A host that has blocked the signal finds it as it left it: blocked, and pending when it was.
  sigset_t pipeSignal, mask;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_FALSE(sigismember(&mask, SIGPIPE));
  sigprocmask(SIG_BLOCK, &pipeSignal, nullptr);
  EXPECT_TRUE(refused());
  EXPECT_FALSE(IsPending(SIGPIPE));
  raise(SIGPIPE);
  EXPECT_TRUE(refused());
  EXPECT_TRUE(IsPending(SIGPIPE));
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_TRUE(sigismember(&mask, SIGPIPE));
}

using tavrix_test::Tree;

constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE Open(const std::string& name, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING) {
  return CreateFileA(name.c_str(), access, share, nullptr, disposition, 0, nullptr);
}

// Opens and closes. The last error.
DWORD TryOpen(const std::string& name, DWORD access, DWORD disposition = OPEN_EXISTING,
              DWORD share = kShareAll) {
  SetLastError(1234);
  HANDLE file = Open(name, access, share, disposition);
  DWORD error = GetLastError();
  EXPECT_EQ(file != INVALID_HANDLE_VALUE, error == 0 || error == ERROR_ALREADY_EXISTS);
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  return error;
}

TEST(PosixFile, OpensAsTheDispositionSays) {
  Tree tree;
  struct {
    DWORD disposition, found, missing;  // the last error of each
    const char* kept;
  } const kRows[] = {{CREATE_NEW, ERROR_FILE_EXISTS, 0, "old"},
                     {CREATE_ALWAYS, ERROR_ALREADY_EXISTS, 0, ""},
                     {OPEN_EXISTING, 0, ERROR_FILE_NOT_FOUND, "old"},
                     {OPEN_ALWAYS, ERROR_ALREADY_EXISTS, 0, "old"},
                     {TRUNCATE_EXISTING, 0, ERROR_FILE_NOT_FOUND, ""},
                     {0, ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, "old"},
                     {6, ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, "old"}};
  for (const auto& row : kRows) {
    tree.File("found", "old");
    EXPECT_EQ(TryOpen(tree.Path("found"), kBoth, row.disposition), row.found) << row.disposition;
    EXPECT_EQ(tree.Read("found"), row.kept) << row.disposition;
    EXPECT_EQ(TryOpen(tree.Path("new"), kBoth, row.disposition), row.missing) << row.disposition;
    EXPECT_EQ(tree.Exists("new"), row.missing == 0) << row.disposition;
    tree.Remove("new");
  }
  tree.File("found", "old");
  EXPECT_EQ(TryOpen(tree.Path("found"), GENERIC_READ, TRUNCATE_EXISTING), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(tree.Read("found"), "old");
  // A link that leads nowhere is neither found nor made.
  std::filesystem::create_symlink("nowhere", tree.root() / "link");
  EXPECT_EQ(TryOpen(tree.Path("link"), kBoth, OPEN_ALWAYS), ERROR_FILE_NOT_FOUND);
}

TEST(PosixFile, TellsWhyItCouldNotOpen) {
  Tree tree;
  tree.File("dir/file", "text");
  ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0666), 0);
  for (DWORD access : {GENERIC_READ, GENERIC_WRITE, kBoth}) {
    EXPECT_EQ(TryOpen(tree.Path("dir"), access), ERROR_ACCESS_DENIED);
    EXPECT_EQ(TryOpen(tree.Path("pipe"), access), ERROR_ACCESS_DENIED) << "without waiting";
    EXPECT_EQ(TryOpen("/dev/null", access), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(TryOpen(tree.Path("no/file"), GENERIC_READ), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(TryOpen(tree.Path("no/file"), kBoth, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(TryOpen(tree.Path("dir/file/x"), GENERIC_READ), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(TryOpen("", GENERIC_READ), ERROR_PATH_NOT_FOUND);
  tree.SetReadOnly("dir/file", true);
  EXPECT_EQ(TryOpen(tree.Path("dir/file"), kBoth), ERROR_ACCESS_DENIED);
  EXPECT_EQ(TryOpen(tree.Path("dir/file"), GENERIC_READ, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
  EXPECT_EQ(tree.Read("dir/file"), "text");
  EXPECT_EQ(TryOpen(tree.Path("dir/file"), GENERIC_READ), 0u);
  std::string longest = tree.Path("");
  longest += "/" + std::string(258 - longest.size(), 'n');
  EXPECT_EQ(TryOpen(longest, kBoth, CREATE_NEW), 0u);
  EXPECT_EQ(TryOpen(longest + "n", kBoth, CREATE_NEW), ERROR_FILENAME_EXCED_RANGE);
  // What it made itself is gone again, and nothing else.
  tavrix_test::CallFault fault("statx", ENOMEM);
  for (const char* name : {"new", "pipe"})
    EXPECT_EQ(TryOpen(tree.Path(name), kBoth, OPEN_ALWAYS), ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(access(tree.Path("new").c_str(), F_OK), -1);
  EXPECT_EQ(access(tree.Path("pipe").c_str(), F_OK), 0);
}

// A process that opens what it is told to. It was forked before there was anything to inherit.
class OtherProcess {
 public:
  struct Order {
    char name[MAX_PATH];
    DWORD access, share, disposition;
    bool map;
  };

  OtherProcess() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
    child_ = fork();
    if (child_ == 0) Serve();
  }
  ~OtherProcess() { End(); }

  // Opens a file, after closing the last one. The last error.
  DWORD Try(const std::string& name, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING,
            bool map = false) {
    Order order = {"", access, share, disposition, map};
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
  [[noreturn]] void Serve() {
    HANDLE file = INVALID_HANDLE_VALUE;
    Order order;
    close(ends_[0]);
    while (read(ends_[1], &order, sizeof order) == ssize_t{sizeof order}) {
      if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
      SetLastError(0);
      file = Open(order.name, order.access, order.share, order.disposition);
      DWORD error = GetLastError();
      if (order.map && file != INVALID_HANDLE_VALUE) {
        HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        MapViewOfFileEx(mapping, FILE_MAP_READ, 0, 0, 0, nullptr);
        CloseHandle(mapping);
        CloseHandle(std::exchange(file, INVALID_HANDLE_VALUE));
      }
      if (write(ends_[1], &error, sizeof error) < 0) break;
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
  constexpr DWORD kAccess[] = {0, GENERIC_READ, GENERIC_WRITE, kBoth};
  for (int i = 0; i < 4 * 4 * 4 * 4; ++i) {
    // The number of an access is at the same time that of the sharing that allows it.
    DWORD access = i & 3, share = i >> 2 & 3, nextAccess = i >> 4 & 3, nextShare = i >> 6 & 3;
    HANDLE first = Open(tree.Path("file"), kAccess[access], share);
    HANDLE second = Open(tree.Path("twin"), kAccess[nextAccess], nextShare);
    bool allowed = !access || !nextAccess || !((nextAccess & ~share) | (access & ~nextShare));
    EXPECT_EQ(second != INVALID_HANDLE_VALUE, allowed) << i;
    if (!allowed) {
      EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    } else {
      CloseHandle(second);
    }
    EXPECT_EQ(TryOpen(tree.Path("other"), kBoth, OPEN_EXISTING, 0), 0u);
    EXPECT_EQ(process.Try(tree.Path("twin"), kAccess[nextAccess], nextShare),
              allowed ? 0 : ERROR_SHARING_VIOLATION)
        << i;
    process.Try(tree.Path("other"), 0, 0);
    CloseHandle(first);
  }
  HANDLE reader = Open(tree.Path("file"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(TryOpen(tree.Path("file"), kBoth, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(OpenStream(tree.Path("file").c_str(), "wb"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(tree.Read("file"), "text") << "refused before it is emptied";
  CloseHandle(reader);
  EXPECT_EQ(TryOpen(tree.Path("file"), kBoth, CREATE_ALWAYS, 0), ERROR_ALREADY_EXISTS);
}

TEST(PosixFile, CutsNothingThatAnotherProcessUses) {
  Tree tree;
  OtherProcess other;
  tree.File("file", "text");
  std::string name = tree.Path("file");
  // Of a view alone the claim on what it was opened for is over; nobody cuts what it shows.
  EXPECT_EQ(other.Try(name, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, true), 0u);
  HANDLE file = Open(name, kBoth, 0);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  for (LONG size : {3, 4, 5}) {
    SetFilePointer(file, size, nullptr, FILE_BEGIN);
    SetLastError(0);
    EXPECT_EQ(SetEndOfFile(file), size > 3) << size;
    EXPECT_EQ(GetLastError(), size > 3 ? 0 : ERROR_USER_MAPPED_FILE);
  }
  CloseHandle(file);
  EXPECT_EQ(TryOpen(name, kBoth, CREATE_ALWAYS), ERROR_USER_MAPPED_FILE);
  EXPECT_FALSE(OpenStream(name.c_str(), "wb") || DeleteFileA(name.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  // Everything ends with its process, however that ends.
  EXPECT_EQ(other.Try(name, kBoth, 0), 0u);
  EXPECT_FALSE(DeleteFileA(name.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(TryOpen(name, kBoth, TRUNCATE_EXISTING), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(tree.Read("file"), std::string("text\0", 5));
  other.End();
  EXPECT_EQ(TryOpen(name, kBoth, TRUNCATE_EXISTING), 0u);
  EXPECT_TRUE(DeleteFileA(name.c_str()));
}

// Programs that append one line each, all at the same time: what succeeds is there.
TEST(PosixFile, KeepsTheLinesOfFortyWriters) {
  Tree tree;
  for (int round = 0; round < 3; ++round) {
    std::vector<pid_t> writers;
    for (int i = 0; i < 40; ++i) {
      std::string line = "line " + std::to_string(i) + "\n", output = tree.Path(std::to_string(i));
      writers.push_back(fork());
      if (writers.back() != 0) continue;
      dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
      execl(TAVRIX_PROGRAM, "tavrix", "append", tree.Path("f").c_str(), line.c_str(), nullptr);
      _exit(99);
    }
    size_t size = 0;
    for (int i = 0; i < 40; ++i) {
      int status;
      waitpid(writers[static_cast<size_t>(i)], &status, 0);
      std::string line = "line " + std::to_string(i) + "\n", text = tree.Read("f");
      bool there = text.starts_with(line) || text.find("\n" + line) != text.npos;
      EXPECT_EQ(status, there ? 0 : 0x100);
      if (there) size += line.size();
      EXPECT_EQ(tree.Read(std::to_string(i)).find("(32)") == std::string::npos, there);
    }
    EXPECT_TRUE(size > 0 && tree.Read("f").size() == size) << "no byte but these";
    tree.Remove("f");
  }
}

}  // namespace

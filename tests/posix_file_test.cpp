// The standard streams as handles, opened files, and writing to them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/tree.h"

namespace {

// Standard output is something else while it lives: `descriptor`, which it closes, or nothing (-1).
class OutputIs {
 public:
  explicit OutputIs(int descriptor) : before_(dup(STDOUT_FILENO)) {
    descriptor < 0 ? close(STDOUT_FILENO) : dup2(descriptor, STDOUT_FILENO);
    if (descriptor >= 0) close(descriptor);
  }
  ~OutputIs() {
    dup2(before_, STDOUT_FILENO);
    close(before_);
  }
  OutputIs(const OutputIs&) = delete;
  OutputIs& operator=(const OutputIs&) = delete;

 private:
  int before_;
};

// Writes to standard output. The last error, or 0.
DWORD Write(const std::string& text, DWORD* written) {
  *written = 0xDEAD;
  return WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()),
                   written, nullptr)
             ? 0
             : GetLastError();
}

TEST(PosixFile, HasOneHandleForEachOpenStream) {
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  SetLastError(1234);
  {
    OutputIs closed(-1);
    EXPECT_EQ(GetStdHandle(STD_OUTPUT_HANDLE), nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
  }
  EXPECT_EQ(GetStdHandle(STD_OUTPUT_HANDLE), output);
  EXPECT_NE(GetStdHandle(STD_ERROR_HANDLE), output);
  EXPECT_FALSE(CloseHandle(output)) << "the process keeps it";
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(GetStdHandle(STD_OUTPUT_HANDLE), output);
  for (DWORD stream : {STD_INPUT_HANDLE + 1, STD_ERROR_HANDLE - 1, DWORD{0}, DWORD{1}}) {
    SetLastError(0);
    EXPECT_EQ(GetStdHandle(stream), INVALID_HANDLE_VALUE) << stream;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
}

TEST(PosixFile, TheAllocationOfAFirstHandleMayFail) {
  tavrix_test::AllocationFault fault(1);
  EXPECT_EQ(GetStdHandle(STD_INPUT_HANDLE), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
}

TEST(PosixFile, TellsWhyItCouldNotWrite) {
  DWORD written;
  {
    OutputIs full(open("/dev/full", O_WRONLY));
    EXPECT_EQ(Write("text", &written), ERROR_DISK_FULL);
    EXPECT_EQ(written, 0u);
  }
  {
    OutputIs input(open("/dev/null", O_RDONLY));
    EXPECT_EQ(Write("text", &written), ERROR_ACCESS_DENIED);
  }
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  int overlapped;
  EXPECT_FALSE(WriteFile(output, "text", 4, &written, &overlapped));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  written = 1;
  EXPECT_FALSE(WriteFile(nullptr, "text", 4, nullptr, nullptr));
  EXPECT_FALSE(SetEndOfFile(nullptr) || GetFileTime(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(SetFilePointer(nullptr, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_FALSE(WriteFile(nullptr, "text", 4, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(written, 0u);
}

bool IsPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal);
}

TEST(PosixFile, RaisesNoSignalForAPipeWithoutAReader) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  OutputIs broken(ends[1]);
  DWORD written;
  EXPECT_EQ(Write("text", &written), ERROR_BROKEN_PIPE) << "with the default action";
  EXPECT_EQ(written, 0u);
  // A host that has blocked the signal finds it as it left it: blocked, and pending when it was.
  sigset_t pipeSignal, mask;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_FALSE(sigismember(&mask, SIGPIPE));
  sigprocmask(SIG_BLOCK, &pipeSignal, nullptr);
  EXPECT_EQ(Write("text", &written), ERROR_BROKEN_PIPE);
  EXPECT_FALSE(IsPending(SIGPIPE));
  raise(SIGPIPE);
  EXPECT_EQ(Write("text", &written), ERROR_BROKEN_PIPE);
  EXPECT_TRUE(IsPending(SIGPIPE));
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_TRUE(sigismember(&mask, SIGPIPE));
}

// Writes more than a pipe holds while a thread reads it slowly up to `limit` bytes. What was read.
std::string ThroughPipe(const std::string& text, int flags, size_t limit, DWORD expectedError,
                        DWORD* written) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, flags), 0);
  fcntl(ends[0], F_SETFL, 0);
  std::string seen;
  std::thread reader([&] {
    char part[30000];
    ssize_t count;
    while (seen.size() < limit && (count = read(ends[0], part, sizeof part)) > 0) {
      seen.append(part, static_cast<size_t>(count));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    close(ends[0]);
  });
  {
    OutputIs pipe(ends[1]);
    EXPECT_EQ(Write(text, written), expectedError);
  }
  reader.join();
  return seen;
}

TEST(PosixFile, WritesAllHoweverLittleAPipeTakes) {
  std::string text;
  for (int i = 0; text.size() < 1'000'000; ++i) text += std::to_string(i);
  DWORD written;
  for (int flags : {0, O_NONBLOCK}) {
    EXPECT_TRUE(ThroughPipe(text, flags, text.size() + 1, 0, &written) == text) << flags;
    EXPECT_EQ(written, text.size());
  }
  // The reader leaves in the middle.
  std::string seen = ThroughPipe(text, 0, 200'000, ERROR_BROKEN_PIPE, &written);
  EXPECT_GE(written, seen.size());
  EXPECT_LT(written, text.size());
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

TEST(PosixFile, TellsHundredsOfFilesApart) {
  Tree tree;
  std::vector<HANDLE> files;
  for (int i = 0; i < 200; ++i) {
    std::string name = tree.Path("file" + std::to_string(i));
    files.push_back(Open(name, kBoth, 0, CREATE_NEW));
    ASSERT_NE(files.back(), INVALID_HANDLE_VALUE) << "not shared, but another file";
    if (i % 2) CloseHandle(files.back());
  }
  for (int i = 0; i < 200; ++i) {
    std::string name = tree.Path("file" + std::to_string(i));
    EXPECT_EQ(TryOpen(name, kBoth, OPEN_EXISTING, 0), i % 2 ? 0 : ERROR_SHARING_VIOLATION) << i;
    EXPECT_EQ(DeleteFileA(name.c_str()), i % 2) << i;
    if (i % 2 == 0) CloseHandle(files[static_cast<size_t>(i)]);
  }
}

TEST(PosixFile, KeepsSizesPositionsAndTimes) {
  Tree tree;
  tree.File("file", "0123456789");
  HANDLE file = Open(tree.Path("file"), kBoth, kShareAll);
  DWORD high = 1, written;
  EXPECT_EQ(GetFileSize(file, &high), 10u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(SetFilePointer(file, 4, nullptr, FILE_BEGIN), 4u);
  EXPECT_TRUE(WriteFile(file, "ab", 2, nullptr, nullptr));
  EXPECT_TRUE(SetEndOfFile(file)) << "at the position behind what was written";
  EXPECT_EQ(tree.Read("file"), "0123ab");
  SetFilePointer(file, 8, nullptr, FILE_BEGIN);
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(tree.Read("file"), std::string("0123ab\0\0", 8));
  EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_BEGIN + 1), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  LONG top = 0x7FFFFFFF;
  SetFilePointer(file, 0, &top, FILE_BEGIN);
  EXPECT_FALSE(WriteFile(file, "z", 1, &written, nullptr)) << "no file is that long";
  EXPECT_EQ(tree.Read("file"), std::string("0123ab\0\0", 8)) << "nor is it written elsewhere";
  top = 1;
  SetLastError(0);
  EXPECT_EQ(SetFilePointer(file, -1, &top, FILE_BEGIN), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 0u) << "no failure but 8 GiB - 1";
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(GetFileSize(file, &high), 0xFFFFFFFFu);
  EXPECT_EQ(high, 1u);

  // 2001-09-09 01:46:40 and a half; the access ten seconds before.
  timespec times[] = {{999'999'990, 0}, {1'000'000'000, 500'000'000}};
  ASSERT_EQ(utimensat(AT_FDCWD, tree.Path("file").c_str(), times, 0), 0);
  FILETIME birth, access, write;
  ASSERT_TRUE(GetFileTime(file, &birth, &access, &write));
  ASSERT_TRUE(GetFileTime(file, nullptr, nullptr, nullptr));
  auto ticks = [](FILETIME time) {
    return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  };
  EXPECT_EQ(ticks(write), 126444736005000000u);
  EXPECT_EQ(ticks(access), ticks(write) - 105'000'000);
  EXPECT_GT(ticks(birth), ticks(write)) << "it was made just now";
  HANDLE old = Open("/proc/version", GENERIC_READ, kShareAll);
  ASSERT_TRUE(GetFileTime(old, &birth, nullptr, &write));
  EXPECT_EQ(ticks(birth), ticks(write)) << "where no birth is noted";
  CloseHandle(old);

  HANDLE reader = Open(tree.Path("file"), GENERIC_READ, kShareAll);
  EXPECT_FALSE(SetEndOfFile(reader));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(WriteFile(reader, "x", 1, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(CloseHandle(reader));
  EXPECT_EQ(GetFileSize(reader, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  CloseHandle(file);
}

TEST(PosixFile, OpensStreamsForBytes) {
  Tree tree;
  tree.File("dir/file", "one\r\n");
  std::string name = tree.Path("dir/file");
  std::replace(name.begin() + 1, name.end(), '/', '\\');
  FILE* stream = OpenStream(name.c_str(), "a+b");
  ASSERT_TRUE(stream);
  EXPECT_TRUE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC);
  rewind(stream);
  fputs("two", stream);
  fclose(stream);
  EXPECT_EQ(tree.Read("dir/file"), "one\r\ntwo");
  stream = OpenStream(name.c_str(), "r+b");
  EXPECT_EQ(fgetc(stream), 'o');
  fseek(stream, 0, SEEK_SET);
  fputs("O", stream);
  fclose(stream);
  EXPECT_EQ(tree.Read("dir/file"), "One\r\ntwo");
  fclose(OpenStream(name.c_str(), "wb"));
  EXPECT_EQ(tree.Read("dir/file"), "");
  fclose(OpenStream("/dev/null", "wb"));
  struct {
    const char *name, *mode;
    DWORD error;
  } const kRows[] = {
      {"dir", "rb", ERROR_ACCESS_DENIED},          {"dir", "wb", ERROR_ACCESS_DENIED},
      {"none", "rb", ERROR_FILE_NOT_FOUND},        {"none", "r+b", ERROR_FILE_NOT_FOUND},
      {"dir/file", "xb", ERROR_INVALID_PARAMETER}, {"no/file", "wb", ERROR_PATH_NOT_FOUND}};
  for (const auto& row : kRows) {
    EXPECT_EQ(OpenStream(tree.Path(row.name).c_str(), row.mode), nullptr) << row.name;
    EXPECT_EQ(GetLastError(), row.error) << row.name;
  }
  EXPECT_FALSE(tree.Exists("none"));
}

TEST(PosixFile, TakesNoStandardStreamsPlaceAndLeavesNothing) {
  Tree tree;
  tree.File("file", "text");
  TryOpen(tree.Path("file"), GENERIC_READ);  // the table of handles stays
  int64_t blocks = tavrix_test::LiveBlocks();
  int input = dup(STDIN_FILENO), free = dup(STDIN_FILENO);
  close(free);
  close(STDIN_FILENO);
  HANDLE file = Open(tree.Path("file"), GENERIC_READ, kShareAll);
  EXPECT_EQ(GetStdHandle(STD_INPUT_HANDLE), nullptr);
  EXPECT_TRUE(fcntl(free, F_GETFD) & FD_CLOEXEC);
  CloseHandle(file);
  EXPECT_LT(fcntl(free, F_GETFD), 0) << "closed";
  dup2(input, STDIN_FILENO);
  EXPECT_EQ(tavrix_test::LiveBlocks(), blocks);
}

TEST(PosixFile, NamesTheRunningProgram) {
  std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  DWORD length = static_cast<DWORD>(self.size());
  std::string buffer(length + 2, 'x');
  EXPECT_EQ(GetModuleFileNameA(nullptr, buffer.data(), length + 1), length);
  EXPECT_EQ(buffer, self + std::string("\0x", 2));
  EXPECT_EQ(GetModuleFileNameA(nullptr, buffer.data(), length), length);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_STREQ(buffer.c_str(), self.substr(0, length - 1).c_str());
}

}  // namespace

// The standard streams as handles, and writing to them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "platform/win32.h"
#include "tests/support/alloc.h"

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

TEST(PosixFile, ReportsAFirstHandleWithoutMemory) {
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

}  // namespace

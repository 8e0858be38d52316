// A terminal for tests: a pseudo-terminal, and behind it as much of an emulator as tells where the
// cursor is.
//
//   Terminal terminal(20, 5);
//   EXPECT_EQ(terminal.Run([] { puts("seen"); }), 0);
//   EXPECT_EQ(terminal.Text(), "seen\n");
#pragma once

#ifndef _WIN32

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <regex>
#include <string>
#include <utility>

namespace tavrix_test {

struct TerminalOptions {
  const char* term = "xterm";     // the variable TERM; null: there is none
  bool mute = false;              // answers no question
  bool errorsApart = false;       // standard error is a pipe, see Errors
  std::string typedAhead = {};    // waits as input when the body begins
  std::string beforeAnswer = {};  // typed between the first question and its answer
};

// A full row wraps only when the next character comes.
class Terminal {
 public:
  Terminal(int columns, int rows, TerminalOptions options = {})
      : options_(std::move(options)), columns_(columns), rows_(rows) {}

  // Runs the body in a child that has this terminal as its controlling terminal and, in the
  // foreground, as its standard streams; the child ends by exit(0) unless the body ends it in
  // another way, and after 20 seconds. Expectations that fail in the body are failures of the test.
  //
  // Returns the exit code, or minus the signal that ended the child.
  int Run(const std::function<void()>& body) {
    bytes_.clear(), errors_.clear();
    questions_ = 0;
    int slave, errors[2], failures[2], status = 0;
    const winsize size = {static_cast<uint16_t>(rows_), static_cast<uint16_t>(columns_), 0, 0};
    EXPECT_EQ(pipe2(errors, O_CLOEXEC) + pipe2(failures, O_CLOEXEC), 0);
    if (openpty(&master_, &slave, nullptr, nullptr, &size) != 0) Skip();
    Type(options_.typedAhead);
    const pid_t child = fork();
    if (child == 0) {
      Listen(failures[1]);
      login_tty(slave);
      if (options_.errorsApart) dup2(errors[1], STDERR_FILENO);
      alarm(20);
      fcntl(master_, F_SETFD, FD_CLOEXEC);
      setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      options_.term ? setenv("TERM", options_.term, 1) : unsetenv("TERM");
      Type("");
      body();
      exit(0);
    }
    for (int file : {slave, errors[1], failures[1]}) close(file);
    for (int file : {master_, errors[0], failures[0]}) fcntl(file, F_SETFL, O_NONBLOCK);
    std::string failed;
    for (bool ended = false; !ended;) {
      pollfd events[] = {{master_, POLLIN, 0}, {errors[0], POLLIN, 0}};
      poll(events, 2, 5);
      ended = waitpid(child, &status, WNOHANG) == child;
      for (char byte : Arrived(master_)) Take(byte);
      errors_ += Arrived(errors[0]);
      failed += Arrived(failures[0]);
    }
    for (int file : {master_, errors[0], failures[0]}) close(file);
    if (!failed.empty()) ADD_FAILURE() << "in the child: " << failed;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }

  // For the body: types, behind what was written before.
  void Type(const std::string& bytes) {
    fflush(stdout);
    EXPECT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    // A look at the input waits until the kernel has handed over what was typed.
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    poll(&input, 1, 0);
  }

  // Of the last run:
  const std::string& Bytes() const { return bytes_; }    // arrived; '\n' as "\r\n"
  const std::string& Errors() const { return errors_; }  // bytes of the pipe, see errorsApart
  int Questions() const { return questions_; }           // for the cursor's position

  // The bytes without escape sequences and carriage returns.
  std::string Text() const {
    static const std::regex control("\x1b\\[[^@-~]*[@-~]|\r");
    return std::regex_replace(bytes_, control, "");
  }

 private:
  // Ends the test that runs.
  [[noreturn]] static void Skip() {
    [] { GTEST_SKIP() << "no terminal can be opened: " << strerror(errno); }();
    throw testing::AssertionException({testing::TestPartResult::kSkip, __FILE__, __LINE__, ""});
  }

  // In the child: hands failed expectations to the test.
  static void Listen(int failures) {
    struct Listener : testing::EmptyTestEventListener {
      int failures;
      void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) {
          dprintf(failures, "%s:%d\n%s\n", result.file_name() ? result.file_name() : "",
                  result.line_number(), result.message());
        }
      }
    };
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    auto* listener = new Listener;
    listener->failures = failures;
    listeners.Append(listener);
  }

  static std::string Arrived(int file) {
    std::string all;
    char bytes[4096];
    for (ssize_t count; (count = read(file, bytes, sizeof bytes)) > 0;)
      all.append(bytes, static_cast<size_t>(count));
    return all;
  }

  void Take(char byte) {
    bytes_ += byte;
    if (!sequence_.empty() || byte == '\x1b') {
      sequence_ += byte;
      if (sequence_.size() > 2 && byte >= '@') Obey(std::exchange(sequence_, "").substr(1));
      return;
    }
    if (byte < ' ' && byte != '\n' && byte != '\r') return;
    const bool wraps = byte >= ' ' && std::exchange(full_, false);
    if (byte == '\n' || wraps) row_ = std::min(row_ + 1, rows_ - 1);
    if (byte == '\r' || wraps) column_ = 0;
    if (byte < ' ') return;
    full_ = column_ == columns_ - 1;
    column_ = std::min(column_ + 1, columns_ - 1);
  }

  // A sequence without the ESC in front.
  void Obey(const std::string& sequence) {
    int row, column;
    if (sscanf(sequence.c_str(), "[%d;%d%*[H]", &row, &column) == 2 && sequence.back() == 'H') {
      row_ = std::clamp(row, 1, rows_) - 1;
      column_ = std::clamp(column, 1, columns_) - 1;
      full_ = false;
    } else if (sequence == "[6n") {
      std::string answer = questions_++ == 0 ? options_.beforeAnswer : "";
      const std::string place = std::to_string(row_ + 1) + ";" + std::to_string(column_ + 1);
      Type(options_.mute ? answer : answer + "\x1b[" + place + "R");
    }
  }

  TerminalOptions options_;
  int columns_, rows_, column_ = 0, row_ = 0, questions_ = 0, master_ = -1;
  bool full_ = false;  // the next character goes on below
  std::string sequence_, bytes_, errors_;
};

}  // namespace tavrix_test

#endif

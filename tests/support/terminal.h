// A terminal for tests: a pseudo-terminal, and behind it a small emulator that the test can look
// at.
//
//   Terminal terminal(20, 5);
//   EXPECT_EQ(terminal.Run([] { puts("seen"); }), 0);
//   EXPECT_EQ(terminal.Text(), "seen");
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
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace tavrix_test {

// How cells look. Colours count in the terminal's order (1 is red, 4 is blue, 8 is bright black).
struct Look {
  int foreground = -1, background = -1;  // 0 to 15, or the terminal's own
  bool underline = false, reverse = false;

  bool operator==(const Look&) const = default;

  // False for a number that the library does not write.
  bool Apply(int number) {
    if (number == 0) return *this = {}, true;
    if (number == 4 || number == 7) return (number == 4 ? underline : reverse) = true;
    const int bright = number >= 90 ? 60 : 0, colour = number - bright;
    (colour < 40 ? foreground : background) = colour % 10 + (bright ? 8 : 0);
    return (colour / 10 == 3 || colour / 10 == 4) && colour % 10 < 8;
  }
};

struct Cell {
  char text = ' ';
  Look look = {};
};

struct TerminalOptions {
  const char* term = "xterm";     // the variable TERM; null: there is none
  bool mute = false;              // answers no question
  bool errorsApart = false;       // standard error is a pipe, see Errors
  std::string typedAhead = {};    // waits as input when the body begins
  std::string beforeAnswer = {};  // typed between the first question and its answer
};

// Prints with wrapping (a full row wraps only when the next character comes), scrolls, and knows
// what the library writes; any other sequence is a failure of the test that runs. What one body
// leaves on the screen the next one finds.
class Terminal {
 public:
  Terminal(int columns, int rows, TerminalOptions options = {})
      : options_(std::move(options)), columns_(columns), rows_(rows), cells_(columns * rows) {}

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
    if (openpty(&master_, &slave, nullptr, nullptr, &size) != 0 || pipe2(errors, O_CLOEXEC) != 0 ||
        pipe2(failures, O_CLOEXEC) != 0) {
      ADD_FAILURE() << "no terminal: " << strerror(errno);
      return -1;
    }
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

  // The screen. Rows and columns count from 0.
  const Cell& At(int column, int row) const { return cells_[row * columns_ + column]; }
  // The rows with '\n' between them, without the blanks behind them and the empty ones below.
  std::string Text() const {
    std::string text;
    for (int row = 0; row < rows_; ++row) {
      std::string line;
      for (int column = 0; column < columns_; ++column) line += At(column, row).text;
      text += Cut(&line, ' ') + "\n";
    }
    return Cut(&text, '\n');
  }
  bool CursorVisible() const { return visible_; }
  int CursorShape() const { return shape_; }  // as DECSCUSR numbers them; 0: the terminal's own
  bool Wraps() const { return wraps_; }
  const Look& CurrentLook() const { return look_; }  // of text to come

 private:
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

  static std::string& Cut(std::string* text, char end) {
    return text->erase(text->find_last_not_of(end) + 1);
  }

  void Take(char byte) {
    bytes_ += byte;
    if (!sequence_.empty() || byte == '\x1b') {
      sequence_ += byte;
      if (sequence_.size() > 2 && byte >= '@') Obey(std::exchange(sequence_, "").substr(1));
      return;
    }
    if (byte == '\a') return;
    if (byte == '\n' || (byte >= ' ' && full_)) LineFeed();
    if (byte == '\r' || (byte >= ' ' && full_)) column_ = 0;
    if (byte == '\b') column_ = std::max(column_ - 1, 0);
    full_ = false;
    if (byte < ' ') return;
    cells_[row_ * columns_ + column_] = {byte, look_};
    full_ = column_ == columns_ - 1 && wraps_;
    column_ = std::min(column_ + 1, columns_ - 1);
  }

  void LineFeed() {
    if (++row_ < rows_) return;
    row_ = rows_ - 1;
    cells_.erase(cells_.begin(), cells_.begin() + columns_);
    cells_.resize(columns_ * rows_);
  }

  // A sequence without the ESC in front.
  void Obey(const std::string& sequence) {
    const char action = sequence.back();
    std::vector<int> n;
    std::istringstream parts(sequence.substr(1));
    for (std::string part; std::getline(parts, part, ';');) n.push_back(atoi(part.c_str()));
    bool known = sequence[0] == '[';
    if (action == 'H' && n.size() == 2) {
      row_ = std::clamp(n[0], 1, rows_) - 1;
      column_ = std::clamp(n[1], 1, columns_) - 1;
      full_ = false;
    } else if (action == 'm') {
      for (int number : n) known &= look_.Apply(number);
    } else if (sequence.ends_with(" q")) {
      shape_ = n[0];
    } else if (sequence == "[?25h" || sequence == "[?25l") {
      visible_ = action == 'h';
    } else if (sequence == "[?7h" || sequence == "[?7l") {
      wraps_ = action == 'h';
    } else if (sequence == "[6n") {
      std::string answer = questions_++ == 0 ? options_.beforeAnswer : "";
      const std::string place = std::to_string(row_ + 1) + ";" + std::to_string(column_ + 1);
      Type(options_.mute ? answer : answer + "\x1b[" + place + "R");
    } else if (sequence.ends_with("$r") && n.size() > 4 && n[0] == n[2] && n[3] <= columns_) {
      for (int column = n[1]; column <= n[3]; ++column)
        for (size_t i = 4; i < n.size(); ++i)
          known &= cells_.at((n[0] - 1) * columns_ + column - 1).look.Apply(n[i]);
    } else {
      known = false;
    }
    EXPECT_TRUE(known) << "The terminal does not know ESC " << sequence;
  }

  TerminalOptions options_;
  int columns_, rows_, column_ = 0, row_ = 0, shape_ = 0, questions_ = 0, master_ = -1;
  bool visible_ = true, wraps_ = true, full_ = false;  // full: the next character goes on below
  std::vector<Cell> cells_;
  Look look_;
  std::string sequence_, bytes_, errors_;
};

}  // namespace tavrix_test

#endif

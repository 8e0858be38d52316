#include "tests/support/terminal.h"

#ifndef _WIN32

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tavrix_test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kDeadline{20};

// The first byte of a request; each is answered with a byte.
constexpr char kReport = 'r', kType = 't', kResize = 's', kFailure = 'f';
constexpr size_t kMostRequest = 1 << 16;

void Require(bool done, const char* what) {
  if (done) return;
  perror(what);
  abort();
}

winsize SizeOf(int columns, int rows) {
  winsize size = {};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = static_cast<unsigned short>(rows);
  return size;
}

// Hands failed expectations of the child to the test.
class Failures : public testing::EmptyTestEventListener {
 public:
  explicit Failures(std::function<void(const std::string&)> tell) : tell_(std::move(tell)) {}
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    const char* file = result.file_name() ? result.file_name() : "";
    tell_(std::to_string(result.line_number()) + " " + file + "\n" + result.message());
  }

 private:
  std::function<void(const std::string&)> tell_;
};

void AddFailure(const std::string& text) {
  const size_t blank = text.find(' '), line = text.find('\n');
  ADD_FAILURE_AT(text.substr(blank + 1, line - blank - 1).c_str(), atoi(text.c_str()))
      << "in the child: " << text.substr(line + 1);
}

// The numbers between ';', 0 for those left out; at least one.
std::vector<int> Numbers(const std::string& text) {
  std::vector<int> numbers = {0};
  for (char c : text) {
    if (c == ';') {
      numbers.push_back(0);
    } else {
      numbers.back() = numbers.back() * 10 + c - '0';
    }
  }
  return numbers;
}

// False for a number that is none of SGR.
bool Apply(int number, Look* look) {
  if (number == 0) *look = {};
  if (number == 1 || number == 22) look->bold = number == 1;
  if (number == 4 || number == 24) look->underline = number == 4;
  if (number == 7 || number == 27) look->reverse = number == 7;
  for (int bright : {0, 60}) {
    const int colour = number - bright, first = bright ? 8 : 0;
    if (colour >= 30 && colour <= 37) look->foreground = first + colour - 30;
    if (colour >= 40 && colour <= 47) look->background = first + colour - 40;
  }
  if (number == 39) look->foreground = Look::kOwn;
  if (number == 49) look->background = Look::kOwn;
  constexpr int kSingles[] = {0, 1, 4, 7, 22, 24, 27, 39, 49};
  const auto within = [number](int first) { return number >= first && number <= first + 7; };
  return std::count(std::begin(kSingles), std::end(kSingles), number) > 0 || within(30) ||
         within(40) || within(90) || within(100);
}

}  // namespace

Terminal::Terminal(int columns, int rows, TerminalOptions options) : options_(std::move(options)) {
  Fit(columns, rows);
}

// --- the child and its requests ------------------------------------------------------------------

int Terminal::Run(const std::function<void()>& body) {
  bytes_.clear(), reported_.clear(), errors_.clear(), sequence_.clear();
  questions_ = 0, state_ = State::kText;
  int slave, channel[2], errors[2];
  const winsize size = SizeOf(Columns(), Rows());
  Require(openpty(&master_, &slave, nullptr, nullptr, &size) == 0, "openpty");
  Require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, channel) == 0, "socketpair");
  Require(pipe2(errors, O_CLOEXEC) == 0, "pipe2");
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  fcntl(master_, F_SETFL, O_NONBLOCK);
  const std::string& typed = options_.typedAhead;
  Require(write(master_, typed.data(), typed.size()) >= 0, "write");
  fflush(nullptr);
  const pid_t child = fork();
  Require(child >= 0, "fork");
  if (child == 0) {
    for (int end : {master_, channel[0], errors[0]}) close(end);
    channel_ = channel[1];
    login_tty(slave);
    if (options_.errorsApart) dup2(errors[1], STDERR_FILENO);
    close(errors[1]);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    options_.term ? setenv("TERM", options_.term, 1) : unsetenv("TERM");
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Failures([this](const std::string& text) { Request(kFailure, text); }));
    // A look at the input waits until the kernel has handed over what was typed.
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    poll(&input, 1, 0);
    body();
    exit(0);
  }
  for (int end : {slave, channel[1], errors[1]}) close(end);
  int status = 0;
  Serve(channel[0], errors[0], child, &status);
  for (int end : {master_, channel[0], errors[0]}) close(end);
  master_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// Shows and answers until the child has ended and everything that it left is taken.
void Terminal::Serve(int channel, int errors, int child, int* status) {
  fcntl(errors, F_SETFL, O_NONBLOCK);
  const auto end = Clock::now() + kDeadline;
  std::vector<char> request(kMostRequest), piped(4096);
  for (bool ended = false; !ended;) {
    pollfd events[] = {{master_, POLLIN, 0}, {errors, POLLIN, 0}, {channel, POLLIN, 0}};
    poll(events, 3, 5);
    ended = waitpid(child, status, WNOHANG) == child;
    if (!ended && Clock::now() > end) {
      ADD_FAILURE() << "The child on the terminal did not end.";
      kill(child, SIGKILL);
      ended = waitpid(child, status, 0) == child;
    }
    // What was written before a request is shown before it is done.
    const ssize_t size = recv(channel, request.data(), request.size(), MSG_DONTWAIT);
    while (Drain()) continue;
    for (ssize_t count; (count = read(errors, piped.data(), piped.size())) > 0;) {
      errors_.append(piped.data(), static_cast<size_t>(count));
    }
    if (size <= 0) continue;
    const std::string text(request.data() + 1, static_cast<size_t>(size - 1));
    if (request[0] == kReport) reported_ += text + "\n";
    if (request[0] == kFailure) AddFailure(text);
    if (request[0] == kType) Require(write(master_, text.data(), text.size()) >= 0, "write");
    if (request[0] == kResize) Fit(Numbers(text)[0], Numbers(text)[1]);
    send(channel, "", 1, MSG_NOSIGNAL);
  }
}

// Takes what has arrived. False when that was nothing.
bool Terminal::Drain() {
  char bytes[4096];
  const ssize_t count = read(master_, bytes, sizeof bytes);
  for (ssize_t i = 0; i < count; ++i) Take(bytes[i]);
  return count > 0;
}

void Terminal::Request(char kind, const std::string& text) {
  const std::string request = kind + text.substr(0, kMostRequest - 1);
  char done;
  if (send(channel_, request.data(), request.size(), MSG_NOSIGNAL) > 0) recv(channel_, &done, 1, 0);
}

void Terminal::Report(const std::string& text) {
  fflush(stdout);
  Request(kReport, text);
}

void Terminal::Type(const std::string& bytes) {
  fflush(stdout);
  Request(kType, bytes);
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  poll(&input, 1, 0);  // as in Run
}

void Terminal::Resize(int columns, int rows) {
  if (channel_ < 0) return Fit(columns, rows);
  fflush(stdout);
  Request(kResize, std::to_string(columns) + ";" + std::to_string(rows));
}

// --- the screen ----------------------------------------------------------------------------------

void Terminal::Fit(int columns, int rows) {
  cells_.resize(static_cast<size_t>(rows));
  for (std::vector<Cell>& row : cells_) row.resize(static_cast<size_t>(columns));
  columns_ = columns;
  column_ = std::min(column_, columns - 1);
  lastColumn_ = column_;
  row_ = std::min(row_, rows - 1);
  full_ = false;
  const winsize size = SizeOf(columns, rows);
  if (master_ >= 0) ioctl(master_, TIOCSWINSZ, &size);
}

void Terminal::Take(char byte) {
  bytes_ += byte;
  if (state_ == State::kSequence) {
    sequence_ += byte;
    if (byte < '@' || byte > '~') return;
    state_ = State::kText;
    return Obey(sequence_);
  }
  if (state_ == State::kEscape) {
    EXPECT_EQ(byte, '[') << "an escape sequence of another kind";
    state_ = byte == '[' ? State::kSequence : State::kText;
    sequence_.clear();
    return;
  }
  if (byte == '\x1b') {
    state_ = State::kEscape;
  } else if (byte == '\n') {
    LineFeed();
  } else if (byte == '\a') {
    return;
  } else if (byte == '\r' || byte == '\b' || byte == '\t') {
    full_ = false;
    if (byte == '\r') column_ = 0;
    if (byte == '\b') column_ = std::max(column_ - 1, 0);
    if (byte == '\t') column_ = std::min((column_ / 8 + 1) * 8, columns_ - 1);
  } else {
    Print(byte);
  }
}

void Terminal::Print(char byte) {
  if ((byte & 0xC0) == 0x80) {  // belongs to the character before
    cells_[row_][lastColumn_].text += byte;
    return;
  }
  if (full_) {
    column_ = 0;
    LineFeed();
  }
  cells_[row_][column_] = {std::string(1, byte), look_};
  lastColumn_ = column_;
  full_ = column_ == columns_ - 1 && wraps_;
  if (column_ < columns_ - 1) ++column_;
}

void Terminal::LineFeed() {
  full_ = false;
  if (row_ < Rows() - 1) {
    ++row_;
    return;
  }
  cells_.erase(cells_.begin());
  cells_.emplace_back(static_cast<size_t>(columns_));
}

// A sequence without the ESC [ in front.
void Terminal::Obey(const std::string& sequence) {
  const size_t digits = std::min(sequence.find_first_not_of("0123456789;"), sequence.size());
  const std::vector<int> n = Numbers(sequence.substr(0, digits));
  const std::string action = sequence.substr(digits);
  const auto place = [&n](size_t i, int limit) {
    return std::clamp(i < n.size() ? n[i] : 1, 1, limit) - 1;
  };
  bool known = true;
  if (action == "H") {
    row_ = place(0, Rows());
    column_ = place(1, columns_);
    full_ = false;
  } else if (action == "m") {
    for (int number : n) known &= Apply(number, &look_);
  } else if (action == " q") {
    shape_ = n[0];
  } else if (sequence == "?25h" || sequence == "?25l") {
    visible_ = sequence.back() == 'h';
  } else if (sequence == "?7h" || sequence == "?7l") {
    wraps_ = sequence.back() == 'h';
    full_ = full_ && wraps_;
  } else if (sequence == "6n") {
    std::string answer = questions_++ == 0 ? options_.beforeAnswer : "";
    if (!options_.mute) {
      answer += "\x1b[" + std::to_string(row_ + 1) + ";" + std::to_string(column_ + 1) + "R";
    }
    Require(write(master_, answer.data(), answer.size()) >= 0, "write");
  } else if (action == "$r" && n.size() > 4) {
    // From a first cell to a last one, as text runs.
    const int first = place(0, Rows()) * columns_ + place(1, columns_);
    const int last = place(2, Rows()) * columns_ + place(3, columns_);
    for (int at = first; at <= last; ++at) {
      Look& look = cells_[at / columns_][at % columns_].look;
      for (size_t i = 4; i < n.size(); ++i) known &= Apply(n[i], &look);
    }
  } else {
    known = false;
  }
  EXPECT_TRUE(known) << "The terminal does not know ESC [" << sequence;
}

std::string Terminal::Row(int row) const {
  std::string text;
  for (const Cell& cell : cells_[row]) text += cell.text;
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string Terminal::Text() const {
  std::string text;
  for (int row = 0; row < Rows(); ++row) text += Row(row) + "\n";
  return text.substr(0, text.find_last_not_of('\n') + 1);
}

}  // namespace tavrix_test

#endif

// The console calls, on terminals that the test plays.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "tests/support/call.h"
#include "tests/support/terminal.h"

namespace {

using namespace std::chrono_literals;
using tavrix_test::CallFault;
using tavrix_test::Look;
using tavrix_test::Terminal;
using Clock = std::chrono::steady_clock;
using Attributes = std::vector<WORD>;

HANDLE Output() { return GetStdHandle(STD_OUTPUT_HANDLE); }

// The cursor's place as the call tells it, "column,row".
std::string Place() {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  EXPECT_TRUE(GetConsoleScreenBufferInfo(Output(), &info));
  return std::to_string(info.dwCursorPosition.X) + "," + std::to_string(info.dwCursorPosition.Y);
}

bool SetPlace(int16_t column, int16_t row) {
  return SetConsoleCursorPosition(Output(), {column, row});
}

bool SetCursor(DWORD size, BOOL visible) {
  const CONSOLE_CURSOR_INFO info = {size, visible};
  return SetConsoleCursorInfo(Output(), &info);
}

Attributes Cells(COORD from, DWORD count) {
  Attributes cells(count);
  DWORD read = 99;
  EXPECT_TRUE(ReadConsoleOutputAttribute(Output(), cells.data(), count, from, &read));
  cells.resize(read);
  return cells;
}

DWORD WriteCells(COORD from, const Attributes& cells) {
  DWORD written = 99, count = static_cast<DWORD>(cells.size());
  WriteConsoleOutputAttribute(Output(), cells.data(), count, from, &written);
  return written;
}

// Changes everything that has to be put back. Asking leaves nothing behind.
void ChangeAll() {
  Place();
  EXPECT_TRUE(SetCursor(100, FALSE));
  EXPECT_TRUE(SetConsoleMode(Output(), ENABLE_PROCESSED_OUTPUT));
  EXPECT_TRUE(SetConsoleTextAttribute(Output(), 0x1E));
}

bool IsPutBack(const Terminal& terminal) {
  return terminal.CursorVisible() && terminal.CursorShape() == 0 && terminal.Wraps();
}

TEST(PosixConsole, TellsAndSetsTheCursorsPlace) {
  for (bool readable : {true, false}) {
    Terminal terminal(20, 5);
    terminal.Run([readable] {
      if (!readable) dup2(open("/dev/tty", O_WRONLY), STDOUT_FILENO);
      SetLastError(77);
      printf("one\ntwo");  // not all of it is out yet
      EXPECT_EQ(Place(), "3,1");
      EXPECT_TRUE(SetPlace(19, 4));
      EXPECT_EQ(Place(), "19,4");
      EXPECT_EQ(GetLastError(), 77u);
      EXPECT_FALSE(SetPlace(20, 0) || SetPlace(0, 5) || SetPlace(-1, 0) || SetPlace(0, -1));
      EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    });
    EXPECT_EQ(terminal.Bytes(), "one\r\ntwo\x1b[6n\x1b[5;20H\x1b[6n");
    EXPECT_EQ(terminal.CursorColumn(), 19);
  }
}

TEST(PosixConsole, FollowsTheSizeOfTheWindow) {
  Terminal terminal(1, 1);
  terminal.Run([&terminal] {
    const auto seen = [] {
      CONSOLE_SCREEN_BUFFER_INFO info = {};
      info.dwCursorPosition.X = 99;
      EXPECT_TRUE(GetConsoleGeometry(Output(), &info));
      EXPECT_EQ(info.dwCursorPosition.X, 99) << "not its to tell";
      EXPECT_EQ(info.srWindow.Right, info.dwSize.X - 1);
      EXPECT_EQ(info.srWindow.Bottom, info.dwSize.Y - 1);
      return std::to_string(info.dwSize.X) + "x" + std::to_string(info.dwSize.Y);
    };
    EXPECT_EQ(seen(), "1x1");
    EXPECT_EQ(Place(), "0,0");
    EXPECT_EQ(WriteCells({0, 0}, {1, 2}), 1u);
    terminal.Resize(3, 2);
    EXPECT_EQ(seen(), "3x2");
    EXPECT_EQ(Cells({0, 0}, 9), (Attributes{1, 7, 7, 7, 7, 7}));
    EXPECT_EQ(WriteCells({2, 0}, {3, 4, 5}), 3u);
    terminal.Resize(2, 3);
    EXPECT_EQ(WriteCells({1, 1}, {6, 8}), 2u);
    EXPECT_EQ(Cells({0, 0}, 9), (Attributes{1, 7, 4, 6, 8, 7}));
    terminal.Resize(3, 3);
    EXPECT_EQ(Cells({0, 0}, 9), (Attributes{1, 7, 3, 4, 6, 7, 8, 7, 7}));
    const winsize none = {};
    ioctl(STDOUT_FILENO, TIOCSWINSZ, &none);
    EXPECT_EQ(seen(), "80x24");
  });
}

TEST(PosixConsole, AsksNoTerminalThatIsMuteTwice) {
  Terminal terminal(20, 5, {.mute = true});
  terminal.Run([&terminal] {
    EXPECT_TRUE(SetPlace(4, 2));
    auto begun = Clock::now();
    EXPECT_EQ(Place(), "4,2") << "where it was put last";
    EXPECT_GE(Clock::now() - begun, 400ms);
    EXPECT_LT(Clock::now() - begun, 2s);
    terminal.Resize(3, 2);
    begun = Clock::now();
    EXPECT_EQ(Place(), "2,1") << "never outside";
    EXPECT_LT(Clock::now() - begun, 400ms);
  });
  EXPECT_EQ(terminal.Questions(), 1);
}

// What one read of the input gives: in the terminal's usual mode a line.
std::string Line() {
  char line[64] = "";
  const ssize_t count = read(STDIN_FILENO, line, sizeof line);
  return std::string(line, count > 0 ? static_cast<size_t>(count) : 0);
}

TEST(PosixConsole, LosesNoInput) {
  struct Waiting {
    const char *ahead, *more;
    std::vector<std::string> lines;
  };
  const Waiting kWaiting[] = {{"one\ntwo\n", "", {"one\n", "two\n"}},
                              {"\x04", "", {""}},
                              {"\x1b[9;9R\n", "", {"\x1b[9;9R\n"}},
                              // Part of a line becomes readable without the rest.
                              {"ab", "c\n", {"ab", "c\n"}}};
  for (const Waiting& row : kWaiting) {
    Terminal terminal(20, 5, {.typedAhead = row.ahead});
    terminal.Run([&] {
      EXPECT_EQ(Place(), "0,0");
      terminal.Type(row.more);
      for (const std::string& line : row.lines) EXPECT_EQ(Line(), line);
    });
    EXPECT_EQ(terminal.Questions(), 0) << row.ahead;
  }
  // Typed before the answer, or on both sides of it; or there is none. What is like an answer is
  // none, and bytes may come one by one.
  const std::string odd = "x\x1b\x1b[;9R\x1b[3R\x1b[3;R\x1b[3;4x\x1b[123456R";
  struct Meanwhile {
    bool mute;
    const char *behind, *place;
    size_t most;
  };
  const Meanwhile kMeanwhile[] = {{false, "\ny", "2,0", 4096},
                                  {false, "\ny", "2,0", 1},
                                  {true, "\x1b[1;3R\ny", "2,0", 4096},
                                  {true, "\ny", "0,0", 4096}};
  for (const Meanwhile& row : kMeanwhile) {
    Terminal terminal(60, 5, {.mute = row.mute, .beforeAnswer = odd + row.behind});
    terminal.Run([&] {
      printf("> ");
      {
        tavrix_test::StandIn<ssize_t(int, void*, size_t)> reads(
            "read", [&row](int file, void* bytes, size_t size) {
              return read(file, bytes, std::min(size, row.most));
            });
        EXPECT_EQ(Place(), row.place);
      }
      terminal.Type("\x7fz\n");  // takes the y back
      EXPECT_EQ(Line(), odd + "\n");
      EXPECT_EQ(Line(), "z\n");
    });
    EXPECT_EQ(terminal.Row(0), "> x^[^[[;9R^[[3R^[[3;R^[[3;4x^[[123456R")
        << "the answer itself is not echoed";
  }
}

TEST(PosixConsole, AsksNothingInTheBackground) {
  Terminal terminal(20, 5);
  terminal.Run([] {
    for (bool stranger : {false, true}) {
      const pid_t child = fork();
      if (child == 0) {
        stranger ? setsid() : setpgid(0, 0);
        EXPECT_TRUE(SetPlace(4, 2));
        EXPECT_EQ(Place(), "4,2");
        _exit(0);
      }
      int status = 1;
      EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
      EXPECT_EQ(status, 0) << "neither stopped nor ended otherwise";
    }
  });
  EXPECT_EQ(terminal.Questions(), 0);
}

TEST(PosixConsole, ColoursTextAsTheAttributeSays) {
  struct Row {
    WORD attribute;
    const char* bytes;
    Look look;
  };
  const Row kRows[] = {
      {0x0C, "\x1b[0;91;40m", {.foreground = 9, .background = 0}},
      {0xA1, "\x1b[0;34;102m", {.foreground = 4, .background = 10}},
      {0xC074,
       "\x1b[0;31;47;4;7m",
       {.foreground = 1, .background = 7, .underline = true, .reverse = true}},
      {0x8007, "\x1b[0;4m", {.underline = true}},
      {0x07, "\x1b[0m", {}},
  };
  for (const Row& row : kRows) {
    Terminal terminal(20, 5);
    terminal.Run([&row] {
      printf("old");
      EXPECT_TRUE(SetConsoleTextAttribute(Output(), row.attribute));
      printf("new");
      CONSOLE_SCREEN_BUFFER_INFO info = {};
      EXPECT_TRUE(GetConsoleGeometry(Output(), &info));
      EXPECT_EQ(info.wAttributes, row.attribute);
    });
    EXPECT_EQ(terminal.Bytes(), std::string("old") + row.bytes + "new");
    EXPECT_EQ(terminal.At(2, 0).look, Look{});
    EXPECT_EQ(terminal.At(3, 0).look, row.look);
  }
}

TEST(PosixConsole, RecoloursCellsWhereTheTerminalCan) {
  for (const std::string term : {"xterm-kitty", "xterm", "tmux-256color", "dumb"}) {
    Terminal terminal(4, 2, {.term = term.c_str()});
    terminal.Run([] {
      printf("abcdefgh");
      EXPECT_EQ(WriteCells({2, 0}, {0x1E, 0x1E, 0x1E, 7, 0x0C, 0x0C, 0x0C, 0x0C}), 6u);
      EXPECT_EQ(Cells({1, 0}, 9), (Attributes{7, 0x1E, 0x1E, 0x1E, 7, 0x0C, 0x0C}));
      EXPECT_EQ(WriteCells({3, 1}, {}), 0u);
      EXPECT_EQ(WriteCells({4, 1}, {1}), 0u);
      EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
      DWORD read = 99;
      EXPECT_FALSE(ReadConsoleOutputAttribute(Output(), nullptr, 1, {0, -1}, &read));
      EXPECT_EQ(read, 0u);
    });
    EXPECT_EQ(terminal.Text(), "abcd\nefgh");
    EXPECT_EQ(terminal.Bytes() != "abcdefgh", term == "xterm-kitty");
    if (term != "xterm-kitty") continue;
    const Look yellow = {.foreground = 11, .background = 4}, red = {9, 0};
    const Look expected[] = {{}, {}, yellow, yellow, yellow, {}, red, red};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(terminal.At(i % 4, i / 4).look, expected[i]) << i;
  }
}

// What fails changes nothing, neither on the terminal nor in what is told of it.
TEST(PosixConsole, EverySystemCallMayFail) {
  struct Change {
    const char* name;
    bool (*make)();
  };
  constexpr Change kChanges[] = {
      {"position", [] { return SetPlace(4, 2); }},
      {"attribute", [] { return SetConsoleTextAttribute(Output(), 0x1E) != FALSE; }},
      {"hidden", [] { return SetCursor(25, FALSE); }},
      {"shape", [] { return SetCursor(100, TRUE); }},
      {"cells",
       [] {
         return WriteCells({0, 0}, {1, 1, 2}) == 3;
       }},
      {"mode", [] { return SetConsoleMode(Output(), ENABLE_PROCESSED_OUTPUT) != FALSE; }}};
  for (const Change& change : kChanges) {
    Terminal terminal(20, 5, {.term = "xterm-kitty"});
    const int code = terminal.Run([&change] {
      const auto state = [] {
        CONSOLE_SCREEN_BUFFER_INFO info = {};
        CONSOLE_CURSOR_INFO cursor = {};
        DWORD mode = 0;
        EXPECT_TRUE(GetConsoleGeometry(Output(), &info) &&
                    GetConsoleCursorInfo(Output(), &cursor) && GetConsoleMode(Output(), &mode));
        return Attributes{info.wAttributes, static_cast<WORD>(cursor.dwSize),
                          static_cast<WORD>(cursor.bVisible), static_cast<WORD>(mode),
                          Cells({0, 0}, 1)[0]};
      };
      const Attributes before = state();
      for (int64_t number = 1; number < 20; ++number) {
        SetLastError(0);
        {
          CallFault fault(number);
          if (change.make()) exit(fault.Hit() ? 1 : 2);
        }
        EXPECT_NE(GetLastError(), 0u) << change.name;
        EXPECT_EQ(state(), before) << change.name << number;
      }
    });
    EXPECT_EQ(code, 2) << change.name;
  }
}

// Nobody is asked then, or nobody answers; and the terminal's mode is as it was.
TEST(PosixConsole, EveryCallOfAQuestionMayFail) {
  for (const char* call : {"open", "tcgetattr", "tcsetattr", "write", "read", "poll", "statx"}) {
    for (int number : {EIO, EINTR}) {
      Terminal terminal(20, 5);
      terminal.Run([call, number] {
        if (strcmp(call, "open") == 0) dup2(open("/dev/tty", O_WRONLY), STDOUT_FILENO);
        EXPECT_TRUE(SetPlace(4, 2));
        termios before, after;
        tcgetattr(STDIN_FILENO, &before);
        {
          CallFault fault(call, number, number == EINTR ? 3 : 1);
          EXPECT_EQ(Place(), "4,2") << call;
        }
        tcgetattr(STDIN_FILENO, &after);
        EXPECT_EQ(after.c_lflag, before.c_lflag) << call;
      });
    }
  }
}

TEST(PosixConsole, SetsModesAndTheCursorsShape) {
  Terminal terminal(20, 5);
  terminal.Run([] {
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    EXPECT_TRUE(GetConsoleMode(input, &mode));
    EXPECT_EQ(mode, 7u);
    termios modes;
    tcgetattr(STDIN_FILENO, &modes);
    modes.c_lflag &= ~tcflag_t{ECHO | ISIG};
    tcsetattr(STDIN_FILENO, TCSANOW, &modes);
    EXPECT_TRUE(GetConsoleMode(input, &mode));
    EXPECT_EQ(mode, ENABLE_LINE_INPUT);
    EXPECT_FALSE(SetConsoleMode(input, 7) || SetConsoleMode(Output(), 2));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(SetConsoleMode(Output(), 1));
    EXPECT_TRUE(GetConsoleMode(Output(), &mode));
    EXPECT_EQ(mode, 1u);
    EXPECT_TRUE(SetConsoleMode(Output(), 3));
    for (DWORD size : {10, 49, 50, 25}) EXPECT_TRUE(SetCursor(size, 2));
    EXPECT_FALSE(SetCursor(0, FALSE) || SetCursor(101, FALSE));
    CONSOLE_CURSOR_INFO info = {};
    EXPECT_TRUE(GetConsoleCursorInfo(Output(), &info));
    EXPECT_EQ(info.dwSize, 25u);
    EXPECT_TRUE(SetCursor(25, FALSE) && SetCursor(25, TRUE));
  });
  EXPECT_EQ(terminal.Bytes(), "\x1b[?7l\x1b[?7h\x1b[4 q\x1b[2 q\x1b[0 q\x1b[?25l\x1b[?25h")
      << "once each, and nothing at the end";
}

TEST(PosixConsole, PutsTheTerminalBackAtEveryEnd) {
  Terminal terminal(20, 5);
  int code = terminal.Run([] {
    ChangeAll();
    printf("buffered");
  });
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(IsPutBack(terminal));
  EXPECT_EQ(terminal.Bytes().find("buffered") + 8, terminal.Bytes().find("\x1b[?7h"));
  EXPECT_EQ(terminal.CurrentLook(), (Look{.foreground = 11, .background = 4}));
  code = terminal.Run([] {
    ChangeAll();
    ExitProcess(300);
  });
  EXPECT_EQ(code, 300 - 256);
  EXPECT_TRUE(IsPutBack(terminal) && terminal.CurrentLook() == Look{});
  for (int number : {SIGTERM, SIGSEGV, SIGINT, SIGABRT}) {
    code = terminal.Run([number] {
      signal(number, SIG_DFL);  // whatever a sanitizer has made of it
      ChangeAll();
      if (number == SIGABRT) abort();
      raise(number);
    });
    EXPECT_EQ(code, -number);
    EXPECT_TRUE(IsPutBack(terminal) && terminal.CurrentLook() == Look{}) << number;
  }
  code = terminal.Run([] {
    ChangeAll();
    tcflow(STDOUT_FILENO, TCOOFF);
    EXPECT_EQ(Place(), "0,0");
    raise(SIGTERM);
  });
  EXPECT_EQ(code, -SIGTERM) << "output that was stopped holds nothing up";
}

TEST(PosixConsole, LeavesTheHostsSignalsAndFilesAlone) {
  Terminal terminal(20, 5);
  const int code = terminal.Run([] {
    signal(SIGTERM, [](int) { _exit(9); });
    signal(SIGINT, SIG_IGN);
    EXPECT_TRUE(SetCursor(25, FALSE));
    raise(SIGINT);
    raise(SIGTERM);
  });
  EXPECT_EQ(code, 9);
  EXPECT_FALSE(terminal.CursorVisible()) << "the host's handler is the only one";
  // A file that has taken the terminal's place gets nothing; the terminal is reached all the same.
  terminal.Run([] {
    FILE* file = tmpfile();
    EXPECT_TRUE(SetCursor(25, FALSE));
    dup2(fileno(file), STDOUT_FILENO);
    const pid_t child = fork();
    if (child == 0) ExitProcess(0);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(lseek(fileno(file), 0, SEEK_END), 0);
  });
  EXPECT_TRUE(terminal.CursorVisible());
}

// Standard streams lead elsewhere when the end comes, and the host has handlers by then.
TEST(PosixConsole, FindsTheTerminalAtTheEnd) {
  for (int kept : {STDOUT_FILENO, STDERR_FILENO, STDIN_FILENO, -1}) {
    Terminal terminal(20, 5);
    const int code = terminal.Run([kept] {
      atexit([] { raise(SIGTERM); });
      EXPECT_TRUE(SetCursor(25, FALSE));
      signal(SIGTERM, [](int) { _exit(9); });
      int master, other;
      ASSERT_EQ(openpty(&master, &other, nullptr, nullptr, nullptr), 0);
      for (int stream : {STDOUT_FILENO, STDERR_FILENO, STDIN_FILENO}) {
        if (stream == kept) continue;
        stream == STDERR_FILENO ? dup2(other, stream) : close(stream);
      }
    });
    EXPECT_EQ(code, 9) << "the handler stays";
    EXPECT_EQ(terminal.CursorVisible(), kept >= 0) << kept;
  }
  // Where one stream takes nothing the next one is tried.
  Terminal terminal(20, 5);
  terminal.Run([] {
    EXPECT_TRUE(SetCursor(25, FALSE));
    dup2(open(ttyname(STDOUT_FILENO), O_RDONLY), STDOUT_FILENO);
    EXPECT_FALSE(SetPlace(1, 1));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  });
  EXPECT_TRUE(terminal.CursorVisible());
}

TEST(PosixConsole, WritesNoSequenceToADumbTerminal) {
  for (const char* term : {static_cast<const char*>(nullptr), "", "dumb"}) {
    Terminal terminal(20, 5, {.term = term});
    terminal.Run([] {
      ChangeAll();
      EXPECT_EQ(WriteCells({0, 0}, {1}), 1u);
      EXPECT_TRUE(SetPlace(4, 2));
      EXPECT_EQ(Place(), "4,2");
      CONSOLE_CURSOR_INFO info = {};
      EXPECT_TRUE(GetConsoleCursorInfo(Output(), &info));
      EXPECT_EQ(info.dwSize, 100u);
      EXPECT_FALSE(info.bVisible);
      ExitProcess(0);
    });
    EXPECT_EQ(terminal.Bytes(), "");
  }
}

TEST(PosixConsole, RefusesEverythingButATerminalForOutput) {
  Terminal terminal(20, 5, {.errorsApart = true});
  terminal.Run([] {
    const auto refused = [](BOOL result) {
      const bool right = !result && GetLastError() == ERROR_INVALID_HANDLE;
      SetLastError(0);
      return right;
    };
    for (HANDLE bad : {GetStdHandle(STD_ERROR_HANDLE), GetStdHandle(STD_INPUT_HANDLE),
                       HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
      CONSOLE_SCREEN_BUFFER_INFO info;
      CONSOLE_CURSOR_INFO cursor = {25, FALSE};
      WORD cell = 1;
      DWORD count;
      EXPECT_TRUE(refused(GetConsoleScreenBufferInfo(bad, &info)));
      EXPECT_TRUE(refused(GetConsoleGeometry(bad, &info)));
      EXPECT_TRUE(refused(GetConsoleCursorInfo(bad, &cursor)));
      EXPECT_TRUE(refused(SetConsoleCursorInfo(bad, &cursor)));
      EXPECT_TRUE(refused(SetConsoleCursorPosition(bad, {0, 0})));
      EXPECT_TRUE(refused(SetConsoleTextAttribute(bad, 4)));
      EXPECT_TRUE(refused(ReadConsoleOutputAttribute(bad, &cell, 1, {0, 0}, &count)));
      EXPECT_TRUE(refused(WriteConsoleOutputAttribute(bad, &cell, 1, {0, 0}, &count)));
      if (bad == GetStdHandle(STD_INPUT_HANDLE)) continue;
      EXPECT_TRUE(refused(GetConsoleMode(bad, &count)));
      EXPECT_TRUE(refused(SetConsoleMode(bad, 1)));
    }
  });
  EXPECT_EQ(terminal.Errors() + terminal.Bytes(), "");
}

}  // namespace

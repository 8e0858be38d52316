// The console calls, on terminals that the test plays.
#include "tests/support/test.h"

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

}  // namespace

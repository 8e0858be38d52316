// The console calls, on terminals that the test plays.
#include "tests/support/test.h"

namespace {

using namespace std::chrono_literals;
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

DWORD WriteCells(COORD from, const Attributes& cells) {
  DWORD written = 99, count = static_cast<DWORD>(cells.size());
  WriteConsoleOutputAttribute(Output(), cells.data(), count, from, &written);
  return written;
}

// Changes everything that has to be put back. Asking leaves nothing behind.
void ChangeAll() {
  const CONSOLE_CURSOR_INFO cursor = {100, FALSE};
  Place();
  EXPECT_TRUE(SetConsoleCursorInfo(Output(), &cursor));
  EXPECT_TRUE(SetConsoleMode(Output(), ENABLE_PROCESSED_OUTPUT));
  EXPECT_TRUE(SetConsoleTextAttribute(Output(), 0x1E));
}

TEST(PosixConsole, MuteTerminalIsAskedOnce) {
  Terminal terminal(20, 5, {.mute = true});
  terminal.Run([] {
    EXPECT_TRUE(SetConsoleCursorPosition(Output(), {4, 2}));
    EXPECT_FALSE(SetConsoleCursorPosition(Output(), {4, 5}));
    auto begun = Clock::now();
    EXPECT_EQ(Place() + " " + Place(), "4,2 4,2") << "where it was put last";
    EXPECT_GE(Clock::now() - begun, 400ms);
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
  // Typed before the question.
  for (const char* line : {"one\n", "\x1b[9;9R\n"}) {
    Terminal terminal(20, 5, {.typedAhead = line});
    terminal.Run([&] {
      EXPECT_EQ(Place(), "0,0");
      EXPECT_EQ(Line(), line);
    });
    EXPECT_EQ(terminal.Questions(), 0) << line;
  }
  // Typed before the answer, or on both sides of it; or there is none. What is like an answer is
  // none, and bytes may come one by one.
  const std::string odd = "x\x1b\x1b[;9R\x1b[3R\x1b[3;R\x1b[3;4x\x1b[123456R";
  struct {
    bool mute;
    const char *behind, *place;
    size_t most;
  } const kMeanwhile[] = {{false, "\ny", "2,0", 4096},
                          {false, "\ny", "2,0", 1},
                          {true, "\x1b[1;3R\ny", "2,0", 4096},
                          {true, "\ny", "0,0", 4096}};
  for (const auto& row : kMeanwhile) {
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
    EXPECT_EQ(terminal.Text(), "> x^[^[[;9R^[[3R^[[3;R^[[3;4x^[[123456R\ny\b \bz\n")
        << "the answer itself is not echoed";
  }
}

TEST(PosixConsole, ColoursTextAndCellsWhereTheTerminalCan) {
  const std::string term[] = {"xterm", "xterm-kitty"};
  for (bool cells : {false, true}) {
    Terminal terminal(4, 2, {.term = term[cells].c_str()});
    terminal.Run([] {
      printf("a");
      EXPECT_TRUE(SetConsoleTextAttribute(Output(), 0xA1));
      printf("b");
      EXPECT_TRUE(SetConsoleTextAttribute(Output(), 7));
      printf("cdefgh");
      EXPECT_EQ(WriteCells({2, 0}, {0x1E, 0x1E, 0x1E}), 3u);
      EXPECT_EQ(WriteCells({2, 1}, {0xC074, 0x8007, 0x0C, 0x0C}), 2u);
      Attributes read(9);
      DWORD count = 99;
      EXPECT_TRUE(ReadConsoleOutputAttribute(Output(), read.data(), 9, {1, 0}, &count));
      EXPECT_EQ(count, 7u);
      EXPECT_EQ(read, (Attributes{7, 0x1E, 0x1E, 0x1E, 7, 0xC074, 0x8007, 0, 0}));
      EXPECT_EQ(WriteCells({4, 1}, {1}), 0u);
    });
    const std::string text = "a\x1B[0;34;102mb\x1B[0mcdefgh";
    EXPECT_EQ(terminal.Bytes(), cells ? text +
                                            "\x1B[1;3;1;4;0;93;44$r\x1B[2;1;2;1;0;93;44$r"
                                            "\x1B[2;3;2;3;0;31;47;4;7$r\x1B[2;4;2;4;0;4$r"
                                      : text);
  }
}

TEST(PosixConsole, WritesNoSequenceToADumbTerminal) {
  Terminal terminal(20, 5, {.term = "dumb"});
  terminal.Run([] {
    ChangeAll();
    EXPECT_TRUE(SetConsoleCursorPosition(Output(), {4, 2}));
    EXPECT_EQ(Place(), "4,2");
  });
  EXPECT_EQ(terminal.Bytes(), "");
}

TEST(PosixConsole, PutsTheTerminalBackAtEveryEnd) {
  Terminal terminal(20, 5);
  // `back` is what is written in the end.
  auto expect = [&terminal](int code, const std::string& back, const std::function<void()>& end) {
    const int ended = terminal.Run([&] {
      if (code < 0) signal(-code, SIG_DFL);  // whatever a sanitizer has made of it
      ChangeAll();
      end();
    });
    EXPECT_EQ(ended, code);
    EXPECT_TRUE(terminal.Bytes().ends_with(back)) << code << terminal.Bytes().substr(1);
  };
  const std::string shown = "\x1b[?7h\x1b[?25h\x1b[0 q", all = "\x1b[0m" + shown;
  expect(0, "\x1b[0;93;44m" + shown, [] {});
  expect(0, "buffered" + shown, [] { SetConsoleTextAttribute(Output(), 7), printf("buffered"); });
  expect(300 - 256, all, [] { ExitProcess(300); });
  expect(-SIGABRT, all, abort);
  for (int number : {SIGTERM, SIGSEGV, SIGINT}) expect(-number, all, [number] { raise(number); });
  // Output that was stopped holds nothing up.
  const int code = terminal.Run([] { ChangeAll(), tcflow(STDOUT_FILENO, TCOOFF), raise(SIGTERM); });
  EXPECT_EQ(code, -SIGTERM);
}

}  // namespace

// The console by numbered commands, against the real console calls and on a terminal.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;

struct Pair {
  int32_t a, b;
  bool operator==(const Pair&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Pair& pair) {
  return out << pair.a << ", " << pair.b;
}

Pair Get(uint32_t command) {
  uintptr_t a = 77, b = 77;
  EXPECT_EQ(CslGet(command, &a, &b), 0) << command;
  return {static_cast<int32_t>(a), static_cast<int32_t>(b)};
}

void Do(uint32_t command, uintptr_t a = 0, uintptr_t b = 0) {
  EXPECT_EQ(CslSet(command, a, b), 0) << command;
}

// Where a command moves the cursor to from column 11, row 6; columns and rows count from 1.
Pair Moved(uint32_t command, int32_t a, int32_t b = 0) {
  Do(CSL_POSITION, 11, 6);
  Do(command, static_cast<uintptr_t>(a), static_cast<uintptr_t>(b));
  return Get(CSL_POSITION);
}

WORD AttributeAt(int16_t x, int16_t y) {
  WORD attribute = 0xFFFF;
  DWORD read;
  ReadConsoleOutputAttribute(GetStdHandle(STD_OUTPUT_HANDLE), &attribute, 1, {x, y}, &read);
  return attribute;
}

// Window and buffer of the console, as the system tells.
CONSOLE_SCREEN_BUFFER_INFO Screen() {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info);
  return info;
}

TEST(Console, CommandsMoveTheCursor) {
  ON_CONSOLE([] {
    CONSOLE_SCREEN_BUFFER_INFO info = Screen();
    int32_t width = info.srWindow.Right - info.srWindow.Left + 1;
    int32_t height = info.srWindow.Bottom - info.srWindow.Top + 1;
    EXPECT_EQ(Get(CSL_WINDOW_SIZE), (Pair{width, height}));
    EXPECT_EQ(Get(CSL_BUFFER_SIZE), (Pair{info.dwSize.X, info.dwSize.Y}));
    EXPECT_EQ(Get(CSL_WINDOW_WIDTH), (Pair{width, 77}));
    EXPECT_EQ(Get(CSL_WINDOW_HEIGHT), (Pair{height, 77}));
    EXPECT_EQ(Get(CSL_BUFFER_WIDTH), (Pair{info.dwSize.X, 77}));
    EXPECT_EQ(Get(CSL_BUFFER_HEIGHT), (Pair{info.dwSize.Y, 77}));
    EXPECT_EQ(ConsoleWidth(), static_cast<uint32_t>(width));
    uint32_t echo = 7;
    EXPECT_EQ(CslInMode(4, &echo), 0);
    EXPECT_EQ(echo, 1u);
    EXPECT_EQ(Moved(CSL_POSITION, 1, 1), (Pair{1, 1}));
    EXPECT_EQ(Moved(CSL_FORWARD, 5), (Pair{16, 6}));
    EXPECT_EQ(Moved(CSL_FORWARD, 2 * width - 10), (Pair{1, 8}));
    EXPECT_EQ(Moved(CSL_FORWARD, 0x10003), (Pair{14, 6}));  // 16 bits of it
    EXPECT_EQ(Moved(CSL_FORWARD, -11), (Pair{11, 6}));      // column 0: the console refuses
    EXPECT_EQ(Moved(CSL_DOWN, 2), (Pair{11, 8}));
    EXPECT_EQ(Moved(CSL_DOWN, -3), (Pair{11, 3}));
    EXPECT_EQ(Moved(CSL_FORWARD_DOWN, width + 2, 3), (Pair{13, 10}));
    EXPECT_EQ(Moved(CSL_FORWARD_DOWN, -12), (Pair{65534 % width + 1, 6}));  // -2, unsigned
    EXPECT_EQ(Moved(CSL_PACKED, 4 << 16 | 9), (Pair{9, 4}));
    EXPECT_EQ(Moved(CSL_COLUMN, 3), (Pair{3, 6}));
    EXPECT_EQ(Moved(CSL_ROW, 3), (Pair{11, 3}));
    EXPECT_EQ(Moved(CSL_PACKED_WINDOW, 2 << 16 | 3), (Pair{14, 8}));
    EXPECT_EQ(Moved(CSL_COLUMN_WINDOW, -4), (Pair{7, 6}));
    EXPECT_EQ(Moved(CSL_ROW_WINDOW, 1), (Pair{11, 7}));
    EXPECT_EQ(Moved(CSL_POSITION_WINDOW, 1, 0x50002), (Pair{12, 8}));
    CslSet(CSL_POSITION, 11, 6);
    EXPECT_EQ(Get(CSL_COLUMN), (Pair{11, 77}));
    EXPECT_EQ(Get(CSL_ROW), (Pair{6, 77}));
    EXPECT_EQ(Get(CSL_COLUMN_WINDOW), (Pair{11 - info.srWindow.Left, 77}));
    EXPECT_EQ(Get(CSL_ROW_WINDOW), (Pair{6 - info.srWindow.Top, 77}));
    EXPECT_EQ(Get(CSL_PACKED).a, 6 << 16 | 11);
    EXPECT_EQ(Get(CSL_PACKED_WINDOW).a, (6 - info.srWindow.Top) << 16 | (11 - info.srWindow.Left));
    EXPECT_EQ(Get(CSL_POSITION_WINDOW), (Pair{11 - info.srWindow.Left, 6 - info.srWindow.Top}));
    EXPECT_EQ(Get(CSL_COLUMN | kCslNoObject), (Pair{11, 77}));
    uintptr_t screen = 0;
    Do(CSL_POSITION, 3, 9);
    EXPECT_EQ(CslGet(CSL_SCREEN, &screen, nullptr), 0);
    EXPECT_EQ(reinterpret_cast<CONSOLE_SCREEN_BUFFER_INFO*>(screen)->dwCursorPosition.Y, 8);
    EXPECT_EQ(CslSet(110, 0, 0), -1);
    EXPECT_EQ(CslSet(501, 0, 0), -1);
    EXPECT_EQ(CslGet(110, &screen, nullptr), -3);
    EXPECT_EQ(CslGet(CSL_POSITION, nullptr, nullptr), 0);
  });
}

TEST(Console, CursorShapeIsSetAndPutBack) {
  ON_CONSOLE([] {
    Do(CSL_RESTORE_CURSOR);  // before the first use: nothing
    Do(CSL_RESTORE_COLOUR);
    EXPECT_EQ(CslCurrent->hOutput, nullptr);
    EXPECT_EQ(CslCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
    int32_t found = Get(CSL_SIZE).a;
    EXPECT_EQ(Get(CSL_HIDDEN).a, 0);
    CslSet(CSL_HIDDEN, 0, 0);
    EXPECT_EQ(CslSet(CSL_RESTORE_CURSOR, 0, 0), 0);
    EXPECT_EQ(Get(CSL_HIDDEN).a, 0);
    Do(CSL_HIDDEN);
    EXPECT_EQ(Get(CSL_HIDDEN).a, 1);
    EXPECT_EQ(Get(CSL_VISIBLE).a, 0);
    CslSet(CSL_SIZE, 90, 0);
    EXPECT_EQ(Get(CSL_SIZE).a, 90);
    CslSet(CSL_VISIBLE, 0, 0);
    EXPECT_EQ(Get(CSL_VISIBLE).a, 1);
    CslSet(CSL_HIDDEN, 0, 0);
    EXPECT_EQ(CslClass(0), 0u);
    EXPECT_EQ(CslCurrent, nullptr);
    EXPECT_EQ(Get(CSL_SIZE | kCslNoObject).a, found);
    EXPECT_EQ(Get(CSL_HIDDEN | kCslNoObject).a, 0);
    EXPECT_EQ(Get(CSL_COLOUR | kCslNoObject).a, 0);
    EXPECT_EQ(CslCurrent, nullptr);
  });
}

TEST(Console, AttributesWrittenAreReadBack) {
  ON_CONSOLE([] {
    Do(CSL_POSITION, 3, 2);
    int32_t saved = Get(CSL_COLOUR).a;
    EXPECT_EQ(Get(CSL_COLOURS), (Pair{saved & 15, saved & 0xF0}));
    EXPECT_EQ(Get(CSL_FOREGROUND), (Pair{saved & 15, 77}));
    EXPECT_EQ(Get(CSL_BACKGROUND), (Pair{saved & 0xF0, 77}));
    Do(CSL_COLOUR, 0x1E);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x1E);
    EXPECT_EQ(Get(CSL_TEXT_FOREGROUND).a, 0x0E);
    EXPECT_EQ(Get(CSL_TEXT_BACKGROUND).a, 0x10);
    EXPECT_EQ(Get(CSL_TEXT_COLOURS), (Pair{0x0E, 0x10}));
    Do(CSL_FOREGROUND, 0x3A);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x0A + (saved & 0xF0));
    Do(CSL_BACKGROUND, 0x3A);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, (saved & 0x0F) + 0x30);
    Do(CSL_COLOURS, 0x3A, 0x5B);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x5A);
    Do(CSL_TEXT_COLOUR, 0x1234);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x34);
    // The current colour is that of the cell at the cursor, not that of new text.
    EXPECT_EQ(CslPaint(0x65, 2, 1, 12, 1, 0, 0), 0);
    EXPECT_EQ(AttributeAt(2, 1), 0x65);
    EXPECT_EQ(AttributeAt(11, 1), 0x65);
    EXPECT_NE(AttributeAt(12, 1), 0x65);
    Do(CSL_TEXT_FOREGROUND, 0x09);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x69);
    Do(CSL_TEXT_BACKGROUND, 0x90);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x95);
    Do(CSL_TEXT_COLOURS, 0x09, 0x10);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x19);
    CslPaint(0, 4, 1, 6, 1, 0x80, 0x01);  // masks
    EXPECT_EQ(AttributeAt(3, 1), 0x65);
    EXPECT_EQ(AttributeAt(4, 1), 0xE4);
    Do(CSL_POSITION, 6, 2);
    EXPECT_EQ(CslMarkRun(0x2F, 3), 0);
    EXPECT_EQ(AttributeAt(5, 1), 0x2F);
    EXPECT_EQ(AttributeAt(7, 1), 0x2F);
    EXPECT_EQ(AttributeAt(8, 1), 0x65);
    Do(CSL_RESTORE_COLOUR, 0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, saved);
    Do(CSL_COLOUR, 0x4E);
    Do(CSL_KEEP, 0);
    CslClass(0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).a, 0x4E);
    Do(CSL_OPEN, 0);  // a console of its own again, for which 0x2F is what it found
    Do(CSL_COLOUR, 0x01);
    CslClass(0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).a, 0x2F);
  });
}

TEST(Console, ClearingPaintsToTheEndOfTheBuffer) {
  ON_CONSOLE([] {
    CONSOLE_SCREEN_BUFFER_INFO info = Screen();
    int16_t right = static_cast<int16_t>(info.dwSize.X - 1);
    int16_t bottom = static_cast<int16_t>(info.dwSize.Y - 1);
    Do(CSL_POSITION, 5, 3);
    EXPECT_EQ(CslSet(CSL_CLEAR, 0x25, 0), 0);
    EXPECT_EQ(AttributeAt(0, 0), 0x20);
    EXPECT_EQ(AttributeAt(right, bottom), 0x20);
    int32_t text = Get(CSL_TEXT_COLOUR).a;
    EXPECT_EQ(text & 0xF0, 0x20);
    Do(CSL_CLEAR_ON, 0x30);
    EXPECT_EQ(AttributeAt(3, 2), 0x20);
    EXPECT_EQ(AttributeAt(4, 2), 0x30);
    EXPECT_EQ(AttributeAt(right, bottom), 0x30);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x30);  // over what was at the cursor before, 0x20
    Do(CSL_CLEAR_ROWS, 0x40);
    EXPECT_EQ(AttributeAt(right, 1), 0x20);
    EXPECT_EQ(AttributeAt(0, 2), 0x40);
    Do(CSL_CLEAR_COLOURS, 0x5C, 0x6D);
    EXPECT_EQ(AttributeAt(0, 0), 0x6C);
    EXPECT_EQ(AttributeAt(right, bottom), 0x6C);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).a, 0x50);
    // Ends outside the buffer are its own; an end in front of the start is a failure.
    EXPECT_EQ(CslPaint(0x11, -5, -5, 2, 0, 0, 0), 0);
    EXPECT_EQ(AttributeAt(1, 0), 0x11);
    EXPECT_EQ(AttributeAt(2, 0), 0x6C);
    EXPECT_EQ(CslPaint(0x22, 0, bottom, 0, bottom + 2, 0, 0), 0);
    EXPECT_EQ(AttributeAt(right, bottom), 0x22);
    EXPECT_EQ(AttributeAt(right, static_cast<int16_t>(bottom - 1)), 0x6C);
    EXPECT_EQ(CslPaint(0x33, 3, 1, 2, 1, 0, 0), -2);
    EXPECT_EQ(ErrLine, 337);
    EXPECT_EQ(CslPaint(0x33, 3, 1, 3, 1, 0, 0), 0);
    EXPECT_EQ(CslPaint(0x33, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(AttributeAt(0, 0), 0x11);
    EXPECT_EQ(CslPaint(0x44, 0, bottom + 3, 1, bottom + 3, 0, 0), 0);  // both behind the end
    EXPECT_EQ(AttributeAt(0, 0), 0x44);
    EXPECT_EQ(AttributeAt(right, bottom), 0x44);
    EXPECT_EQ(CslPaint(0x55, 0, bottom + 2, -1, -1, 0, 0), 0);  // a row behind the end is none
    EXPECT_EQ(AttributeAt(0, 0), 0x44);
    tavrix_test::AllocationFault fault(1);
    EXPECT_EQ(CslPaint(0x33, 3, 1, 4, 1, 0, 0), -2);
  });
}

TEST(Console, NoMemoryAndNoHandle) {
  ErrRaise("test", 1, 1);
  ErrClear();
  {
    tavrix_test::AllocationFault fault(1);
    EXPECT_EQ(CslSet(CSL_OPEN, 0, 0), -1000);
  }
  EXPECT_EQ(ErrLine, 71);
  EXPECT_EQ(ClearedTrail(), "1000.1000.02");
#ifndef _WIN32
  unsetenv("prompt");
  EXPECT_EQ(CslSet(CSL_PROMPT, 0, 0), -2);  // there is none to take away
  EXPECT_EQ(ErrLine, 107);
  EXPECT_EQ(ClearedTrail(), "02");
  CslClass(0);
  fclose(stdout);
  EXPECT_EQ(CslGet(CSL_POSITION | kCslNoObject, nullptr, nullptr), -1);
  EXPECT_EQ(ErrLine, 173);
  EXPECT_EQ(CslSet(CSL_POSITION, 1, 1), -1);
  EXPECT_EQ(CslCurrent, nullptr);
  EXPECT_EQ(CslMarkRun(0x1E, 1), 0);
  EXPECT_EQ(CslGet(CSL_POSITION, nullptr, nullptr), -1);
  EXPECT_EQ(ErrLine, 177);
  EXPECT_EQ(ClearedTrail(), "01.01.01.01.01.01");
#endif
}

TEST(Console, ColourPairsAndEscapeTexts) {
  EXPECT_EQ(CslColorPair(0x1F, 0, kColorPair), 0x11);
  EXPECT_EQ(CslColorPair(0x1F, 17, kColorPair), 0x22);
  EXPECT_EQ(CslColorPair(0x1F, 17 + 256, kColorPair), 0x22);
  EXPECT_EQ(CslColorPair(0xF0, 1, kColorPair), 0xFC);  // row 16 is row 0
  EXPECT_EQ(CslColorPair(0xF0, 255, kColorPair), 0xEE);
  EXPECT_EQ(CslColorPair(0x10, 240, kColorPair), CslColorPair(0x00, 1, kColorPair));  // column 16
  EXPECT_EQ(CslColorPair(0x20, -1, kColorPair), 0x23);
  EXPECT_EQ(CslColorPair(0x00, -1, kColorPair), 0);      // in front of the table
  EXPECT_EQ(CslColorPair(0x10, -32, kColorPair), 0xFC);  // row 1, column -1
  EXPECT_EQ(CslColorPair(0x1F, 0, 417), -1);
  uint32_t sum = 0;  // of the whole table, column by column
  for (int32_t shift = 0; shift < 256; ++shift)
    sum = sum * 31 + static_cast<uint32_t>(CslColorPair(0, shift, kColorPair));
  EXPECT_EQ(sum, 0x1B9EE420u);
  EXPECT_STREQ(CslAnsi(0x1E, 0), "\x1B[0;1;33;44m");
  EXPECT_STREQ(CslAnsi(0x04, 0), "\x1B[0;31;40m");
  EXPECT_STREQ(CslAnsi(0xF9, 0xD0), "\x1B[0;1;5;4;7;8;34;47m");
  EXPECT_STREQ(CslAnsi(0x1E, ANSI_NO_FOREGROUND), "\x1B[0;1;44m");
  EXPECT_STREQ(CslAnsi(0x16, ANSI_NO_FOREGROUND | ANSI_NO_BACKGROUND), "\x1B[0m");
}

TEST(Console, ProgressDrawsWhatIsMissing) {
  struct Step {
    uint32_t command, value, low, high, width, drawn;
  };
  const Step steps[] = {
      {PROGRESS_FULL, 0, 0, 100, 0, 0},
      {9, 1, 0, 100, 20, 0},
      {PROGRESS_UP, 0, 10, 110, 20, 0},
      {PROGRESS_UP, 1, 0, 100, 20, 1},
      {PROGRESS_START, 4, 0, 100, 200, 1},
      {PROGRESS_START, 0, 0, 100, 20, 1},
      {PROGRESS_ADD_PER_CENT, 2000, 0, 400, 40, 3},  // 1 + 2
      {PROGRESS_UP, 50, 0, 100, 20, 10},
      {PROGRESS_UP, 60, 0, 100, 20, 12},
      {PROGRESS_UP, 10, 0, 100, 20, 12},
      {PROGRESS_ADD, 10, 0, 100, 20, 14},  // 12 + 2
      {PROGRESS_ADD, 14, 0, 100, 20, 14},
      {PROGRESS_ADD_PER_CENT, 2000, 0, 100, 20, 16},
      {PROGRESS_UP, 85, 0, 100, 20, 17},
      {PROGRESS_ADD_PART, 100, 0, 100, 200, 19},
      {PROGRESS_DOWN, 30, 10, 110, 25, 20},
      {PROGRESS_DOWN, 5, 10, 110, 20, 21},
      {PROGRESS_UP, 5, 10, 110, 20, 21},  // below the range: no number of characters, so 1
      {PROGRESS_UP, 24, 7, 7, 20, 21},
      {PROGRESS_UP, 31, 7, 7, 20, 24},
      {PROGRESS_UP, 5, 110, 10, 20, 24},
      {PROGRESS_UP, 0xFFFFFFFF, 0, 1, 0xFFFFFFFF, 24},
      {PROGRESS_FULL, 0, 0, 100, 26, 26},
      {PROGRESS_FULL, 0, 0, 100, 26, 26},
      {PROGRESS_START, 4, 0, 100, 100, 26},
      {PROGRESS_ADD, 20, 0, 100, 100, 31},  // 26 + 20 / 4
  };
  testing::internal::CaptureStdout();
  for (const Step& step : steps)
    EXPECT_EQ(CslProgress(step.command, step.value, step.low, step.high, step.width, '*'),
              step.drawn)
        << &step - steps;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(31, '*'));
}

std::string Prompt() {
  char text[1024] = "";
  GetEnvironmentVariableA("prompt", text, sizeof text);
  return text;
}

TEST(Console, PromptCarriesAnEscapeText) {
  SetEnvironmentVariableA("prompt", nullptr);
  EXPECT_EQ(CslSetPrompt("\x1B[0m"), nullptr);
  EXPECT_EQ(Prompt(), "");
  auto set = [](const char* prompt, const char* escape) {
    EXPECT_EQ(CslSet(CSL_PROMPT, reinterpret_cast<uintptr_t>(prompt), 0), 0);
    const char* result = CslSetPrompt(escape);
    EXPECT_STREQ(result, Prompt().c_str());
    return Prompt();
  };
  EXPECT_EQ(set("plain", "\x1B[0m"), "plain");
  EXPECT_EQ(set("$p$g", CslAnsi(0x1E, 0)), "$p$g$e[0;1;33;44m");
  EXPECT_EQ(set("$e[0m$p$g", "\x1B[1m"), "$e[1m");  // all that followed is gone
  EXPECT_EQ(set("$p$e[0m", "\x1B[1m"), "$p$e[0m$e[1m");
  EXPECT_EQ(set("$", ""), "$$e");
  std::string longText(300, ';');
  EXPECT_EQ(set("x$e", longText.c_str()), "x$e" + longText.substr(1));
  SetEnvironmentVariableA("TVX_ESCAPE", "\x1B[0;31m");
  CslSet(CSL_PROMPT, reinterpret_cast<uintptr_t>(("$p" + longText).c_str()), 0);
  const char* carried = CslSetPrompt(CslExpand("%TVX_ESCAPE%"));
  EXPECT_EQ(carried, Prompt());
  EXPECT_TRUE(Prompt().ends_with(";$e[0;31m")) << Prompt();
  CslSet(CSL_PROMPT, reinterpret_cast<uintptr_t>("$p%PATH%"), 0);
  uintptr_t text = 0;
  EXPECT_EQ(CslGet(CSL_PROMPT, &text, nullptr), 0);
  EXPECT_STREQ(reinterpret_cast<char*>(text), "$p%PATH%");  // a value of a bare name stays
}

using ConsoleDeathTest = testing::Test;

TEST(ConsoleDeathTest, ExitFunctionsRunBeforeTheCleanUp) {
  auto end = [] {
    static void (*enrolled)() = [] {
      fputs(CslCurrent && CslCurrent->hOutput ? "alive" : "gone", stderr);
    };
    for (int i = 0; i < 2; ++i)
      if (CslAtExit(enrolled, 0) != 0) fputs("refused", stderr);
    if (CslAtExit(enrolled, 1) != 0 || CslAtExit(nullptr, 1) != -1) fputs("wrong", stderr);
    CslSet(CSL_OPEN, 0, 0);
    exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(0), "^alive$");
}

#ifndef _WIN32

using tavrix_test::Look;
using tavrix_test::Terminal;

TEST(Console, ColoursArriveAtTheTerminal) {
  Terminal terminal(40, 5);
  EXPECT_EQ(terminal.Run([] {
    CslSet(CSL_TEXT_COLOUR, 0x1E, 0);
    printf("a");
    Do(CSL_ANSI_MODE, 1);
    CslSet(CSL_TEXT_COLOUR, 0x24, 0);
    printf("b");
    CslSet(CSL_COLOUR, 0x31, 0);  // not as a text in either mode
    printf("c");
    CslSet(CSL_ANSI_MODE, 0, 0);
    printf("d");
    CslSet(CSL_COLOUR, 0xB9, 0);
    printf("e");
  }),
            0);
  EXPECT_EQ(terminal.Text(), "abcde");
  EXPECT_EQ(terminal.At(0, 0).look, (Look{11, 4}));
  EXPECT_EQ(terminal.At(1, 0).look, (Look{1, 2}));
  EXPECT_EQ(terminal.At(2, 0).look, (Look{4, 6}));
  EXPECT_EQ(terminal.At(3, 0).look, Look());
  EXPECT_EQ(terminal.At(4, 0).look, (Look{12, 14}));
  EXPECT_EQ(terminal.CurrentLook(), Look());
  EXPECT_NE(terminal.Bytes().find("\x1B[0;31;42m"), std::string::npos);
}

#endif

}  // namespace
}  // namespace quern

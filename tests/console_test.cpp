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

// A command, and what another one tells then; 77 is not set.
struct Step {
  uint32_t command;
  int32_t a, b;
  Pair told;
};

WORD AttributeAt(int16_t x, int16_t y) {
  WORD attribute = 0xFFFF;
  DWORD read;
  ReadConsoleOutputAttribute(GetStdHandle(STD_OUTPUT_HANDLE), &attribute, 1, {x, y}, &read);
  return attribute;
}

TEST(Console, CommandsMoveTheCursor) {
  auto body = [] {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info);
    const int32_t left = info.srWindow.Left, width = info.srWindow.Right - left + 1;
    const int32_t top = info.srWindow.Top, height = info.srWindow.Bottom - top + 1;
    const int32_t columns = info.dwSize.X, rows = info.dwSize.Y;
    uint32_t echo = 7;
    EXPECT_EQ(CslInMode(4, &echo), 0);
    EXPECT_EQ(echo, 1u);
    // From column 11, row 6; columns and rows count from 1. A column and a row have 16 bits, and
    // the console refuses column 0.
    const Step kMoves[] = {{CSL_POSITION, 1, 1, {1, 1}},
                           {CSL_FORWARD, 5, 0, {16, 6}},
                           {CSL_FORWARD, 2 * width - 10, 0, {1, 8}},
                           {CSL_FORWARD, 0x10003, 0, {14, 6}},
                           {CSL_FORWARD, -11, 0, {11, 6}},
                           {CSL_DOWN, 2, 0, {11, 8}},
                           {CSL_DOWN, -3, 0, {11, 3}},
                           {CSL_FORWARD_DOWN, width + 2, 3, {13, 10}},
                           {CSL_FORWARD_DOWN, -12, 0, {65534 % width + 1, 6}},
                           {CSL_PACKED, 4 << 16 | 9, 0, {9, 4}},
                           {CSL_COLUMN, 3, 0, {3, 6}},
                           {CSL_ROW, 3, 0, {11, 3}},
                           {CSL_PACKED_WINDOW, 2 << 16 | 3, 0, {14, 8}},
                           {CSL_COLUMN_WINDOW, -4, 0, {7, 6}},
                           {CSL_ROW_WINDOW, 1, 0, {11, 7}},
                           {CSL_POSITION_WINDOW, 1, 0x50002, {12, 8}}};
    for (const Step& move : kMoves) {
      Do(CSL_POSITION, 11, 6);
      Do(move.command, static_cast<uintptr_t>(move.a), static_cast<uintptr_t>(move.b));
      EXPECT_EQ(Get(CSL_POSITION), move.told) << &move - kMoves;
    }
    Do(CSL_POSITION, 11, 6);
    const std::pair<uint32_t, Pair> kTold[] = {
        {CSL_COLUMN, {11, 77}},
        {CSL_COLUMN | kCslNoObject, {11, 77}},
        {CSL_ROW, {6, 77}},
        {CSL_COLUMN_WINDOW, {11 - left, 77}},
        {CSL_ROW_WINDOW, {6 - top, 77}},
        {CSL_PACKED, {6 << 16 | 11, 77}},
        {CSL_PACKED_WINDOW, {(6 - top) << 16 | (11 - left), 77}},
        {CSL_POSITION_WINDOW, {11 - left, 6 - top}},
        {CSL_WINDOW_SIZE, {width, height}},
        {CSL_BUFFER_SIZE, {columns, rows}},
        {CSL_WINDOW_WIDTH, {width, 77}},
        {CSL_WINDOW_HEIGHT, {height, 77}},
        {CSL_BUFFER_WIDTH, {columns, 77}},
        {CSL_BUFFER_HEIGHT, {rows, 77}}};
    for (auto [command, told] : kTold) EXPECT_EQ(Get(command), told) << command;
    uintptr_t screen = 0;
    EXPECT_EQ(CslGet(CSL_SCREEN, &screen, nullptr), 0);
    EXPECT_EQ(reinterpret_cast<CONSOLE_SCREEN_BUFFER_INFO*>(screen)->dwCursorPosition.Y, 5);
    EXPECT_EQ(CslGet(CSL_POSITION, nullptr, nullptr), 0);
    EXPECT_EQ(CslSet(110, 0, 0) + CslSet(501, 0, 0), -2);
    EXPECT_EQ(CslGet(110, &screen, nullptr), -3);
  };
  ON_CONSOLE(body);
}

TEST(Console, CursorShapeIsSetAndPutBack) {
  auto body = [] {
    Do(CSL_RESTORE_CURSOR);  // before the first use: nothing
    Do(CSL_RESTORE_COLOUR);
    EXPECT_EQ(CslCurrent->hOutput, nullptr);
    EXPECT_EQ(CslCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
    const Pair found = Get(CSL_SIZE);
    EXPECT_EQ(Get(CSL_HIDDEN).a, 0);
    const std::tuple<uint32_t, uintptr_t, uint32_t, int32_t> kShapes[] = {
        {CSL_HIDDEN, 0, CSL_HIDDEN, 1},
        {CSL_RESTORE_CURSOR, 0, CSL_HIDDEN, 0},
        {CSL_HIDDEN, 0, CSL_VISIBLE, 0},
        {CSL_SIZE, 90, CSL_SIZE, 90},
        {CSL_VISIBLE, 0, CSL_VISIBLE, 1}};
    for (auto [command, a, asked, told] : kShapes) {
      Do(command, a);
      EXPECT_EQ(Get(asked).a, told) << command;
    }
    Do(CSL_HIDDEN);
    EXPECT_EQ(CslClass(0), 0u);
    EXPECT_EQ(Get(CSL_SIZE | kCslNoObject), found);
    EXPECT_EQ(Get(CSL_HIDDEN | kCslNoObject).a, 0);
    EXPECT_EQ(Get(CSL_COLOUR | kCslNoObject).a, 0);
    EXPECT_EQ(CslCurrent, nullptr);
  };
  ON_CONSOLE(body);
}

TEST(Console, AttributesWrittenAreReadBack) {
  auto body = [] {
    Do(CSL_POSITION, 3, 2);
    const int32_t saved = Get(CSL_COLOUR).a, own = saved & 15, back = saved & 0xF0;
    // The current colour is that of the cell at the cursor, not that of new text.
    EXPECT_EQ(CslPaint(0x65, 2, 1, 12, 1, 0, 0), 0);
    Do(CSL_COLOUR, 0x1E);
    const std::pair<uint32_t, Pair> kTold[] = {
        {CSL_TEXT_COLOUR, {0x1E, 77}},     {CSL_TEXT_FOREGROUND, {0x0E, 77}},
        {CSL_TEXT_BACKGROUND, {0x10, 77}}, {CSL_TEXT_COLOURS, {0x0E, 0x10}},
        {CSL_COLOURS, {own, back}},       {CSL_FOREGROUND, {own, 77}},
        {CSL_BACKGROUND, {back, 77}}};
    for (auto [command, told] : kTold) EXPECT_EQ(Get(command), told) << command;
    const Step kSteps[] = {
        {CSL_FOREGROUND, 0x3A, 0, {0x0A + back, 77}}, {CSL_BACKGROUND, 0x3A, 0, {own + 0x30, 77}},
        {CSL_COLOURS, 0x3A, 0x5B, {0x5A, 77}},        {CSL_TEXT_COLOUR, 0x1234, 0, {0x34, 77}},
        {CSL_TEXT_FOREGROUND, 0x09, 0, {0x69, 77}},   {CSL_TEXT_BACKGROUND, 0x90, 0, {0x95, 77}},
        {CSL_TEXT_COLOURS, 0x09, 0x10, {0x19, 77}},   {CSL_RESTORE_COLOUR, 0, 0, {saved, 77}}};
    for (const Step& step : kSteps) {
      Do(step.command, static_cast<uintptr_t>(step.a), static_cast<uintptr_t>(step.b));
      EXPECT_EQ(Get(CSL_TEXT_COLOUR), step.told) << &step - kSteps;
    }
    CslPaint(0, 4, 1, 6, 1, 0x80, 0x01);  // masks
    Do(CSL_POSITION, 7, 2);
    EXPECT_EQ(CslMarkRun(0x2F, 2), 0);
    const WORD kCells[] = {0x65, 0x65, 0xE4, 0xE4, 0x2F, 0x2F, 0x65, 0x65, 0x65, 0x65};
    for (int16_t i = 0; i < 10; ++i)
      EXPECT_EQ(AttributeAt(static_cast<int16_t>(i + 2), 1), kCells[i]) << i;
    EXPECT_NE(AttributeAt(12, 1), 0x65);
    Do(CSL_COLOUR, 0x4E);
    Do(CSL_KEEP);
    CslClass(0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).a, 0x4E);
    Do(CSL_OPEN);  // a console of its own again, for which 0x2F is what it found
    Do(CSL_COLOUR, 0x01);
    CslClass(0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).a, 0x2F);
  };
  ON_CONSOLE(body);
}

TEST(Console, ClearingPaintsToTheEndOfTheBuffer) {
  auto body = [] {
    const auto right = static_cast<int16_t>(Get(CSL_BUFFER_WIDTH).a - 1);
    const auto bottom = static_cast<int16_t>(Get(CSL_BUFFER_HEIGHT).a - 1);
    // The attributes of the first cell, of those before and at the cursor, and of the last.
    auto cells = [&] {
      return tavrix_test::Line("%02X %02X %02X %02X %02X", AttributeAt(0, 0), AttributeAt(right, 1),
                               AttributeAt(3, 2), AttributeAt(4, 2), AttributeAt(right, bottom));
    };
    const struct {
      uint32_t command;
      uintptr_t a, b;
      const char* cells;
      int32_t text;  // over what was at the cursor before
    } kClears[] = {{CSL_CLEAR, 0x25, 0, "20 20 20 20 20", 0x20},
                   {CSL_CLEAR_ON, 0x30, 0, "20 20 20 30 30", 0x30},
                   {CSL_CLEAR_ROWS, 0x40, 0, "20 20 40 40 40", 0x40},
                   {CSL_CLEAR_COLOURS, 0x5C, 0x6D, "6C 6C 6C 6C 6C", 0x50}};
    Do(CSL_POSITION, 5, 3);
    for (const auto& row : kClears) {
      Do(row.command, row.a, row.b);
      EXPECT_EQ(cells(), row.cells);
      EXPECT_EQ(Get(CSL_TEXT_COLOUR).a & 0xF0, row.text);
    }
    // Ends outside the buffer are its own; an end in front of the start is a failure.
    const struct {
      uint32_t colour;
      int32_t x1, y1, x2, y2, result;
      const char* cells;
    } kPaints[] = {
        {0x11, -5, -5, 2, 0, 0, "11 6C 6C 6C 6C"},
        {0x22, 0, bottom, 0, bottom + 2, 0, "11 6C 6C 6C 22"},
        {0x33, 4, 2, 3, 2, -2, "11 6C 6C 6C 22"},
        {0x33, 3, 2, 3, 2, 0, "11 6C 6C 6C 22"},
        {0x33, 0, 0, 0, 0, 0, "11 6C 6C 6C 22"},
        {0x44, 0, bottom + 3, 1, bottom + 3, 0, "44 44 44 44 44"},  // both behind the end
        {0x55, 0, bottom + 2, -1, -1, 0, "44 44 44 44 44"}};        // a row there is none
    for (const auto& row : kPaints) {
      EXPECT_EQ(CslPaint(row.colour, row.x1, row.y1, row.x2, row.y2, 0, 0), row.result);
      EXPECT_EQ(cells(), row.cells) << &row - kPaints;
    }
  };
  ON_CONSOLE(body);
}

#ifndef _WIN32
TEST(Console, NoHandle) {
  unsetenv("prompt");
  EXPECT_EQ(CslSet(CSL_PROMPT, 0, 0), -2);  // there is none to take away
  CslClass(0);
  fclose(stdout);
  EXPECT_EQ(CslGet(CSL_POSITION | kCslNoObject, nullptr, nullptr), -1);
  EXPECT_EQ(ErrLine, 173);
  EXPECT_EQ(CslSet(CSL_POSITION, 1, 1), -1);
  EXPECT_EQ(CslCurrent, nullptr);
  EXPECT_EQ(CslMarkRun(0x1E, 1), 0);
  EXPECT_EQ(CslGet(CSL_POSITION, nullptr, nullptr), -1);
  EXPECT_EQ(ErrLine, 177);
  EXPECT_EQ(ClearedTrail(), "01.01.01.01.01.01.02");
}
#endif

TEST(Console, ColourPairsAndEscapeTexts) {
  const int kPairs[][3] = {{0x1F, 0, 0x11},  {0x1F, 17, 0x22},  {0x1F, 273, 0x22},
                           {0x20, -1, 0x23}, {0xF0, 255, 0xEE}, {0xF0, 1, 0xFC},  // row 16 is row 0
                           {0x00, -1, 0},       // in front of the table
                           {0x10, -32, 0xFC}};  // row 1, column -1
  for (auto [colour, shift, pair] : kPairs)
    EXPECT_EQ(CslColorPair(static_cast<uint8_t>(colour), shift, kColorPair), pair) << shift;
  EXPECT_EQ(CslColorPair(0x10, 240, kColorPair), CslColorPair(0x00, 1, kColorPair));  // column 16
  EXPECT_EQ(CslColorPair(0x1F, 0, 417), -1);
  uint32_t sum = 0;  // of the whole table, column by column
  for (int32_t shift = 0; shift < 256; ++shift)
    sum = sum * 31 + static_cast<uint32_t>(CslColorPair(0, shift, kColorPair));
  EXPECT_EQ(sum, 0x1B9EE420u);
  const std::tuple<uint32_t, uint32_t, const char*> kEscapes[] = {
      {0x1E, 0, "\x1B[0;1;33;44m"},
      {0x04, 0, "\x1B[0;31;40m"},
      {0xF9, 0xD0, "\x1B[0;1;5;4;7;8;34;47m"},
      {0x1E, ANSI_NO_FOREGROUND, "\x1B[0;1;44m"},
      {0x16, ANSI_NO_FOREGROUND | ANSI_NO_BACKGROUND, "\x1B[0m"}};
  for (auto [colour, flags, text] : kEscapes) EXPECT_STREQ(CslAnsi(colour, flags), text);
}

TEST(Console, ProgressDrawsWhatIsMissing) {
  const struct {
    uint32_t command, value, low, high, width, drawn;
  } steps[] = {
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
  for (const auto& step : steps)
    EXPECT_EQ(CslProgress(step.command, step.value, step.low, step.high, step.width, '*'),
              step.drawn)
        << &step - steps;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(31, '*'));
}

TEST(Console, PromptCarriesAnEscapeText) {
  SetEnvironmentVariableA("prompt", nullptr);
  EXPECT_EQ(CslSetPrompt("\x1B[0m"), nullptr);
  const std::string longText(300, ';');
  const std::tuple<std::string, std::string, std::string> kRows[] = {
      {"plain", "\x1B[0m", "plain"},
      {"$p$g", "\x1B[1;44m", "$p$g$e[1;44m"},
      {"$e[0m$p$g", "\x1B[1m", "$e[1m"},  // all that followed is gone
      {"$p$e[0m", "\x1B[1m", "$p$e[0m$e[1m"},
      {"$", "", "$$e"},
      {"x$e", longText, "x$e" + longText.substr(1)},
      {"$p" + longText, "\x1B[0;31m", "$p" + longText + "$e[0;31m"},
      {"$p%PATH%", "\x1B[1m", "$p%PATH%$e[1m"},  // the value of a bare name stays
  };
  for (const auto& [prompt, escape, wanted] : kRows) {
    EXPECT_EQ(CslSet(CSL_PROMPT, reinterpret_cast<uintptr_t>(prompt.c_str()), 0), 0);
    uintptr_t told = 0;
    EXPECT_EQ(CslGet(CSL_PROMPT, &told, nullptr), 0);
    EXPECT_EQ(reinterpret_cast<char*>(told), prompt);
    char text[1024] = "";
    EXPECT_EQ(CslSetPrompt(escape.c_str()), wanted);
    GetEnvironmentVariableA("prompt", text, sizeof text);
    EXPECT_EQ(text, wanted);
  }
}

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

// A question costs a round trip to the terminal, and 400 ms with one that is mute.
TEST(Console, AsksForTheCursorOnlyWhereItCounts) {
  auto questions = [](const std::function<void()>& body) {
    Terminal terminal(20, 5);
    EXPECT_EQ(terminal.Run(body), 0);
    return terminal.Questions();
  };
  const int first = questions([] { CslSet(CSL_OPEN, 0, 0); });
  struct {
    bool set;
    int asked;
    std::vector<uint32_t> commands;
  } const kRows[] = {
      {true, 0, {CSL_KEEP, 100, CSL_COLOUR, CSL_FOREGROUND, CSL_BACKGROUND, CSL_COLOURS}},
      {true, 0, {CSL_TEXT_COLOUR, CSL_TEXT_COLOURS, CSL_ANSI_MODE, 501}},
      {true, 1, {101, CSL_DOWN, CSL_POSITION, CSL_TEXT_FOREGROUND, 500}},
      {false, 0, {100, CSL_WINDOW_WIDTH, CSL_BUFFER_SIZE, CSL_TEXT_COLOUR, 501}},
      {false, 1, {101, CSL_POSITION, CSL_POSITION_WINDOW, CSL_SCREEN}},
  };
  for (const auto& row : kRows)
    for (uint32_t command : row.commands)
      EXPECT_EQ(questions([&] {
                  CslSet(CSL_OPEN, 0, 0);
                  row.set ? CslSet(command, 1, 1) : CslGet(command, nullptr, nullptr);
                }),
                first + row.asked)
          << command;
}

#endif

}  // namespace
}  // namespace quern

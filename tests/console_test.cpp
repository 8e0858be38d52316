// The console by numbered commands, on a terminal.

#include "tests/support/test.h"

namespace quern {
namespace {

// Of six numbers each, with "," between the rows.
std::vector<std::array<int64_t, 6>> Rows(std::string text) {
  std::replace(text.begin(), text.end(), ',', ' ');
  std::istringstream numbers(text);
  numbers.unsetf(std::ios::basefield);
  std::vector<std::array<int64_t, 6>> rows;
  for (std::array<int64_t, 6> row; numbers >> row[0];) {
    for (int i = 1; i < 6; ++i) numbers >> row[static_cast<size_t>(i)];
    rows.push_back(row);
  }
  return rows;
}

#ifndef _WIN32

using Pair = std::pair<int32_t, int32_t>;

Pair Get(uint32_t command) {
  uintptr_t a = 77, b = 77;
  EXPECT_EQ(CslGet(command, &a, &b), 0) << command;
  return {static_cast<int32_t>(a), static_cast<int32_t>(b)};
}

void Do(uint32_t command, uintptr_t a = 0, uintptr_t b = 0) {
  EXPECT_EQ(CslSet(command, a, b), 0) << command;
}

// Each row: a command with two values, and one that is asked for then with what it tells; 77 is not
// set. From column 11, row 6.
void ExpectSteps(const char* rows) {
  for (auto [command, a, b, asked, first, second] : Rows(rows)) {
    Do(CSL_POSITION, 11, 6);
    Do(static_cast<uint32_t>(command), static_cast<uintptr_t>(a), static_cast<uintptr_t>(b));
    EXPECT_EQ(Get(static_cast<uint32_t>(asked)),
              (Pair{static_cast<int32_t>(first), static_cast<int32_t>(second)}))
        << command << ' ' << a << ' ' << asked;
  }
}

WORD AttributeAt(int16_t x, int16_t y) {
  WORD attribute = 0xFFFF;
  DWORD read;
  ReadConsoleOutputAttribute(GetStdHandle(STD_OUTPUT_HANDLE), &attribute, 1, {x, y}, &read);
  return attribute;
}

using tavrix_test::Terminal;

TEST(Console, CommandsMoveTheCursor) {
  EXPECT_EQ(Terminal(80, 25).Run([] {
    uint32_t echo = 7;
    EXPECT_EQ(CslInMode(4, &echo), 0);
    EXPECT_EQ(echo, 1u);
    // A column and a row have 16 bits, and the console refuses column 0.
    ExpectSteps(R"(
        108 1 1 108 1 1,    102 5 0 108 16 6,   102 150 0 108 1 8,       102 0x10003 0 108 14 6,
        102 -11 0 108 11 6, 103 2 0 108 11 8,   103 -3 0 108 11 3,       104 82 3 108 13 10,
        104 -12 0 108 15 6, 106 3 0 108 3 6,    105 0x40009 0 108 9 4,   109 0x20003 0 108 14 8,
        200 -4 0 108 7 6,   107 3 0 108 11 3,   202 1 0x50002 108 12 8,  201 1 0 108 11 7,
        103 0 0 105 0x6000B 77, 103 0 0 106 11 77,  103 0 0 107 6 77,    103 0 0 109 0x6000B 77,
        103 0 0 200 11 77,  103 0 0 201 6 77,   103 0 0 202 11 6,        103 0 0 204 80 77,
        103 0 0 205 25 77,  103 0 0 206 80 25)");
    EXPECT_EQ(Get(CSL_BUFFER_SIZE),
              (Pair{Get(CSL_BUFFER_WIDTH).first, Get(CSL_BUFFER_HEIGHT).first}));
    uintptr_t screen = 0;
    EXPECT_EQ(CslGet(CSL_SCREEN, &screen, nullptr), 0);
    EXPECT_EQ(reinterpret_cast<CONSOLE_SCREEN_BUFFER_INFO*>(screen)->dwCursorPosition.Y, 5);
    EXPECT_EQ(CslGet(CSL_POSITION, nullptr, nullptr), 0);
    EXPECT_EQ(CslSet(110, 0, 0) + CslSet(501, 0, 0), -2);
    EXPECT_EQ(CslGet(110, &screen, nullptr), -3);
  }),
            0);
}

TEST(Console, CursorShapeIsSetAndPutBack) {
  EXPECT_EQ(Terminal(80, 25).Run([] {
    Do(CSL_RESTORE_CURSOR);  // before the first use: nothing
    Do(CSL_RESTORE_COLOUR);
    EXPECT_EQ(CslCurrent->hOutput, nullptr);
    EXPECT_EQ(CslCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
    const Pair found = Get(CSL_SIZE);
    EXPECT_EQ(Get(CSL_HIDDEN).first, 0);
    ExpectSteps("90 0 0 90 1 77, 1 0 0 90 0 77, 90 0 0 91 0 77, 92 90 0 92 90 77, 91 0 0 91 1 77");
    Do(CSL_HIDDEN);
    EXPECT_EQ(CslClass(0), 0u);
    EXPECT_EQ(Get(CSL_SIZE | kCslNoObject), found);
    EXPECT_EQ(Get(CSL_HIDDEN | kCslNoObject).first, 0);
    EXPECT_EQ(Get(CSL_COLOUR | kCslNoObject).first, 0);
    EXPECT_EQ(CslCurrent, nullptr);
  }),
            0);
}

TEST(Console, AttributesWrittenAreReadBack) {
  EXPECT_EQ(Terminal(80, 25).Run([] {
    Do(CSL_POSITION, 3, 2);
    Do(CSL_TEXT_COLOUR, 0x07);
    CslClass(0);
    ExpectSteps(R"(
        405 0x1E 0 409 0x1E 77,  405 0x1E 0 410 14 77,  405 0x1E 0 411 16 77,  405 0x1E 0 412 14 16,
        405 0x1E 0 408 7 0,      405 0x1E 0 406 7 77,   405 0x1E 0 407 0 77,   405 0x1E 0 405 7 77,
        406 0x3A 0 409 10 77,    407 0x3A 0 409 55 77,  408 58 91 409 90 77,
        409 0x1234 0 409 52 77,  412 9 16 409 0x19 77,    2 0 0 409 7 77)");
    // The current colour is that of the cell at the cursor, not that of new text.
    EXPECT_EQ(CslPaint(0x65, 2, 1, 12, 1, 0, 0), 0);
    Do(CSL_POSITION, 3, 2);
    Do(CSL_TEXT_FOREGROUND, 9);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).first, 0x69);
    Do(CSL_POSITION, 3, 2);
    Do(CSL_TEXT_BACKGROUND, 0x90);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR).first, 0x95);
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
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).first, 0x4E);
    Do(CSL_OPEN);  // a console of its own again, for which 0x2F is what it found
    Do(CSL_COLOUR, 0x01);
    CslClass(0);
    EXPECT_EQ(Get(CSL_TEXT_COLOUR | kCslNoObject).first, 0x2F);
  }),
            0);
}

TEST(Console, ClearingPaintsToTheEndOfTheBuffer) {
  EXPECT_EQ(Terminal(80, 25).Run([] {
    const auto right = static_cast<int16_t>(Get(CSL_BUFFER_WIDTH).first - 1);
    const auto bottom = static_cast<int16_t>(Get(CSL_BUFFER_HEIGHT).first - 1);
    // The attributes of the first cell, of those before and at the cursor, and of the last.
    auto cells = [&] {
      return tavrix_test::Line("%02X %02X %02X %02X %02X", AttributeAt(0, 0), AttributeAt(right, 1),
                               AttributeAt(3, 2), AttributeAt(4, 2), AttributeAt(right, bottom));
    };
    // The background of new text is laid over what was at the cursor before.
    std::string cleared;
    for (auto [command, a, b, x, y, text] : Rows("413 37 0 0 0 32, 403 48 0 0 0 48, "
                                                 "417 64 0 0 0 64, 414 0x5C 0x6D 0 0 80")) {
      Do(CSL_POSITION, 5, 3);
      Do(static_cast<uint32_t>(command), static_cast<uintptr_t>(a), static_cast<uintptr_t>(b));
      EXPECT_EQ(Get(CSL_TEXT_COLOUR).first & 0xF0, text) << command;
      cleared += cells() + ", ";
    }
    EXPECT_EQ(cleared, "20 20 20 20 20, 20 20 20 30 30, 20 20 40 40 40, 6C 6C 6C 6C 6C, ");
    // Ends outside the buffer are its own; an end in front of the start is a failure.
    EXPECT_EQ(CslPaint(0x22, 0, bottom, 0, bottom + 2, 0, 0), 0);
    EXPECT_EQ(CslPaint(0x33, 1, bottom, 0, bottom, 0, 0), -2);
    EXPECT_EQ(cells(), "6C 6C 6C 6C 22");
    EXPECT_EQ(CslPaint(0x44, 0, bottom + 3, 1, bottom + 3, 0, 0), 0);
    EXPECT_EQ(CslPaint(0x55, 0, bottom + 2, -1, -1, 0, 0), 0);
    EXPECT_EQ(cells(), "44 44 44 44 44");
    EXPECT_EQ(CslPaint(0x11, -5, -5, 2, 0, 0, 0), 0);
    EXPECT_TRUE(AttributeAt(1, 0) == 0x11 && AttributeAt(2, 0) == 0x44);
  }),
            0);
}

#endif

TEST(Console, ColourPairsAndEscapeTexts) {
  const int kPairs[][3] = {{0x1F, 17, 0x22}, {0x1F, 273, 0x22}, {0x20, -1, 0x23}, {0xF0, 1, 0xFC},
                           {0x00, -1, 0},    {0x10, -32, 0xFC}, {0x10, 240, 0x0C}};
  for (auto [colour, shift, pair] : kPairs)
    EXPECT_EQ(CslColorPair(static_cast<uint8_t>(colour), shift, kColorPair), pair) << shift;
  EXPECT_EQ(CslColorPair(0x1F, 0, 417), -1);
  uint32_t sum = 0;  // of the whole table, column by column
  for (int32_t shift = 0; shift < 256; ++shift)
    sum = sum * 31 + static_cast<uint32_t>(CslColorPair(0, shift, kColorPair));
  EXPECT_EQ(sum, 0x1B9EE420u);
  const std::tuple<uint32_t, uint32_t, const char*> kEscapes[] = {
      {0x1E, 0, "\x1B[0;1;33;44m"},
      {0xF9, 0xD0, "\x1B[0;1;5;4;7;8;34;47m"},
      {0x1E, ANSI_NO_FOREGROUND, "\x1B[0;1;44m"},
      {0x16, ANSI_NO_FOREGROUND | ANSI_NO_BACKGROUND, "\x1B[0m"}};
  for (auto [colour, flags, text] : kEscapes) EXPECT_STREQ(CslAnsi(colour, flags), text);
}

TEST(Console, ProgressDrawsWhatIsMissing) {
  constexpr char kSteps[] = R"(
      6 0 0 100 0 0, 9 1 0 100 20 0, 0x80000001 0 10 110 20 0, 0x80000001 1 0 100 20 1,
      0x80000007 4 0 100 200 1, 0x80000007 0 0 100 20 1, 4 2000 0 400 40 3,
      0x80000001 50 0 100 20 10, 0x80000001 60 0 100 20 12, 0x80000001 10 0 100 20 12,
      3 10 0 100 20 14, 3 14 0 100 20 14, 4 2000 0 100 20 16, 0x80000001 85 0 100 20 17,
      5 100 0 100 200 19, 0x80000002 30 10 110 25 20, 0x80000002 5 10 110 20 21,
      0x80000001 5 10 110 20 21, 0x80000001 24 7 7 20 21, 0x80000001 31 7 7 20 24,
      0x80000001 5 110 10 20 24, 0x80000001 0xFFFFFFFF 0 1 0xFFFFFFFF 24, 6 0 0 100 26 26,
      6 0 0 100 26 26, 0x80000007 4 0 100 100 26, 3 20 0 100 100 31)";
  testing::internal::CaptureStdout();
  for (auto row : Rows(kSteps)) {
    uint32_t n[6];
    std::copy(row.begin(), row.end(), n);
    EXPECT_EQ(CslProgress(n[0], n[1], n[2], n[3], n[4], '*'), n[5]) << n[0] << ' ' << n[1];
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(31, '*'));
}

TEST(Console, PromptCarriesAnEscapeText) {
  EXPECT_EQ(CslFormat("%d-%c", 5, CslLower('Z')), std::string("5-z"));
  SetEnvironmentVariableA("prompt", nullptr);
  EXPECT_EQ(CslSetPrompt("\x1B[0m"), nullptr);
  const std::string longText(300, ';');
  const std::tuple<std::string, std::string, std::string> kRows[] = {
      {"plain", "\x1B[0m", "plain"},
      {"$p$g", "\x1B[1;44m", "$p$g$e[1;44m"},
      {"$e[0m$p$g", "\x1B[1m", "$e[1m"},  // all that followed is gone
      {"$", "", "$$e"},
      {"x$e", longText, "x$e" + longText.substr(1)},
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

}  // namespace
}  // namespace quern

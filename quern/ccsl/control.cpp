#include "quern/ccsl/control.h"

#include <cstdio>

#include "platform/win32.h"
#include "quern/ccsl/colour.h"
#include "quern/ccsl/console.h"
#include "quern/ccsl/expand.h"
#include "quern/ccsl/paint.h"
#include "quern/ccsl/width.h"
#include "quern/cerr.h"

namespace quern {
namespace {

constexpr char kModule[] = "ccsl";

// The console's state as CslSet and CslGet last saw it, each for itself.
struct Seen {
  CONSOLE_CURSOR_INFO cursor;
  CONSOLE_SCREEN_BUFFER_INFO screen;
};
Seen seenBySet;
Seen seenByGet;

constexpr uint32_t kForeground = 0x0F;
constexpr uint32_t kBackground = 0xF0;

uint32_t Mix(uintptr_t foreground, uintptr_t background) {
  return static_cast<uint32_t>((foreground & kForeground) + (background & kBackground));
}

int32_t Low(uintptr_t value) { return static_cast<int16_t>(value); }
int32_t High(uintptr_t value) { return static_cast<int16_t>(value >> 16); }

HANDLE StandardOutput() {
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  return output == INVALID_HANDLE_VALUE ? nullptr : output;
}

void ReadCellAtCursor(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* screen) {
  DWORD read;
  WORD attribute;
  if (ReadConsoleOutputAttribute(output, &attribute, 1, screen->dwCursorPosition, &read) && read)
    screen->wAttributes = attribute;
}

// Takes the handle of standard output and notes what is found there. 0, or minus ErrLast.
int32_t FirstUse(Console* console) {
  HANDLE output = StandardOutput();
  if (!output) {
    int32_t failure = ErrRaise(kModule, 79, 1);
    CslClass(0);
    return failure;
  }
  console->hOutput = output;
  GetConsoleCursorInfo(output, &console->savedCursor);
  GetConsoleScreenBufferInfo(output, &console->savedScreen);
  seenBySet.screen = console->savedScreen;
  ReadCellAtCursor(output, &console->savedScreen);
  return 0;
}

// Whether a command of CslSet looks at the cursor's position or the current colour.
bool SetLooksAtCursor(uint32_t command) {
  switch (command) {
    case CSL_COLOUR:
    case CSL_FOREGROUND:
    case CSL_BACKGROUND:
    case CSL_COLOURS:
    case CSL_TEXT_COLOUR:
    case CSL_TEXT_COLOURS:
    case CSL_ANSI_MODE:
      return false;
    default:
      return true;
  }
}

bool GetLooksAtCursor(uint32_t command) {
  return command <= CSL_POSITION_WINDOW || command == CSL_SCREEN;
}

void LookAtShape(HANDLE output, uint32_t command, Seen* seen) {
  if (command >= CSL_HIDDEN && command <= CSL_SIZE) GetConsoleCursorInfo(output, &seen->cursor);
}

// Commands from 101 to 500 are about the screen. False when this is another one.
bool LookAtScreen(HANDLE output, uint32_t command, bool atCursor, Seen* seen) {
  if (command < 101 || command > 500) return false;
  atCursor ? GetConsoleScreenBufferInfo(output, &seen->screen)
           : GetConsoleGeometry(output, &seen->screen);
  return true;
}

// Where a command moves the cursor to.
struct Place {
  int32_t x, y;
};

Place Moved(uint32_t command, uintptr_t argumentA, uintptr_t argumentB,
            const CONSOLE_SCREEN_BUFFER_INFO& screen) {
  int32_t a = static_cast<int32_t>(argumentA), b = static_cast<int32_t>(argumentB);
  int32_t width = screen.srWindow.Right - screen.srWindow.Left + 1;
  if (width <= 0) width = 1;
  int32_t x = screen.dwCursorPosition.X, y = screen.dwCursorPosition.Y;
  switch (command) {
    case CSL_FORWARD: {
      int32_t cells = static_cast<int16_t>(a + x);
      return {cells % width, y + cells / width};
    }
    case CSL_FORWARD_DOWN: {
      int32_t cells = a + x;
      return {static_cast<uint16_t>(cells) % width, y + b + cells / width};
    }
    case CSL_DOWN:
    case CSL_ROW_WINDOW:
      return {x, y + Low(argumentA)};
    case CSL_PACKED:
      return {Low(argumentA) - 1, High(argumentA) - 1};
    case CSL_COLUMN:
      return {a - 1, y};
    case CSL_ROW:
      return {x, a - 1};
    case CSL_POSITION:
      return {a - 1, b - 1};
    case CSL_PACKED_WINDOW:
      return {x + a, y + High(argumentA)};
    case CSL_COLUMN_WINDOW:
      return {x + a, y};
    default:  // CSL_POSITION_WINDOW
      return {x + a, y + Low(argumentB)};
  }
}

void Colour(const Console* console, uint32_t attribute) {
  SetConsoleTextAttribute(console->hOutput, static_cast<WORD>(attribute));
}

// The same, as an escape text in ANSI mode.
void TextColour(const Console* console, uint32_t attribute) {
  if (console->header.flags & kCslAnsi) {
    fputs(CslAnsi(attribute, 0), stdout);
  } else {
    Colour(console, attribute);
  }
}

// Paints from a cell to the end of the buffer and makes the background of `a` the colour's.
int32_t Clear(const Console* console, uint32_t attribute, int32_t x, int32_t y, uintptr_t a) {
  int32_t status = CslPaint(attribute, x, y, -1, -1, 0, 0);
  Colour(console, Mix(seenBySet.screen.wAttributes, a));
  return status;
}

void Store(uintptr_t* cell, uint32_t value) {
  if (cell) *cell = value;
}

void StorePair(uintptr_t* first, uintptr_t* second, int32_t a, int32_t b) {
  Store(first, static_cast<uint32_t>(a));
  Store(second, static_cast<uint32_t>(b));
}

uint32_t Pack(int32_t column, int32_t row) {
  return static_cast<uint32_t>(row) << 16 | (static_cast<uint32_t>(column) & 0xFFFF);
}

}  // namespace

int32_t CslSet(uint32_t command, uintptr_t a, uintptr_t b) {
  Console* console = CslOnDemand();
  if (!console) return ErrRaise(kModule, 71, 1000);
  if (!console->hOutput) {
    if (command == CSL_RESTORE_CURSOR || command == CSL_RESTORE_COLOUR) return 0;
    int32_t failure = FirstUse(console);
    if (failure) return failure;
  }
  HANDLE output = console->hOutput;
  CONSOLE_CURSOR_INFO& cursor = seenBySet.cursor;
  CONSOLE_SCREEN_BUFFER_INFO& screen = seenBySet.screen;
  LookAtShape(output, command, &seenBySet);
  bool atCursor = SetLooksAtCursor(command);
  if (LookAtScreen(output, command, atCursor, &seenBySet) && atCursor)
    ReadCellAtCursor(output, &screen);
  uint32_t current = screen.wAttributes, saved = console->savedScreen.wAttributes;
  switch (command) {
    case CSL_RESTORE_CURSOR:
      CslRestoreCursor(console);
      return 0;
    case CSL_RESTORE_COLOUR:
      CslRestoreColour(console);
      return 0;
    case CSL_KEEP:
      console->header.flags |= kCslKeepColours;
      return 0;
    case CSL_PROMPT:
      if (SetEnvironmentVariableA("prompt", reinterpret_cast<const char*>(a))) return 0;
      return ErrRaise(kModule, 107, 2);
    case CSL_OPEN:
      return 0;

    case CSL_HIDDEN:
    case CSL_VISIBLE:
    case CSL_SIZE:
      if (command == CSL_SIZE) {
        cursor.dwSize = static_cast<DWORD>(a);
      } else {
        cursor.bVisible = command == CSL_VISIBLE;
      }
      SetConsoleCursorInfo(output, &cursor);
      return 0;

    case CSL_FORWARD:
    case CSL_DOWN:
    case CSL_FORWARD_DOWN:
    case CSL_PACKED:
    case CSL_COLUMN:
    case CSL_ROW:
    case CSL_POSITION:
    case CSL_PACKED_WINDOW:
    case CSL_COLUMN_WINDOW:
    case CSL_ROW_WINDOW:
    case CSL_POSITION_WINDOW: {
      Place place = Moved(command, a, b, screen);
      SetConsoleCursorPosition(output,
                               {static_cast<int16_t>(place.x), static_cast<int16_t>(place.y)});
      return 0;
    }

    case CSL_COLOUR:
      Colour(console, static_cast<uint32_t>(a & 0xFFFF));
      return 0;
    case CSL_FOREGROUND:
      Colour(console, Mix(a, saved));
      return 0;
    case CSL_BACKGROUND:
      Colour(console, Mix(saved, a));
      return 0;
    case CSL_COLOURS:
      Colour(console, Mix(a, b));
      return 0;
    case CSL_TEXT_COLOUR:
      TextColour(console, Mix(a, a));
      return 0;
    case CSL_TEXT_FOREGROUND:
      TextColour(console, Mix(a, current));
      return 0;
    case CSL_TEXT_BACKGROUND:
      TextColour(console, Mix(current, a));
      return 0;
    case CSL_TEXT_COLOURS:
      TextColour(console, Mix(a, b));
      return 0;

    case CSL_CLEAR_ON:
      return Clear(console, Mix(0, a), screen.dwCursorPosition.X, screen.dwCursorPosition.Y, a);
    case CSL_CLEAR:
      return Clear(console, Mix(0, a), 0, 0, a);
    case CSL_CLEAR_COLOURS:
      return Clear(console, Mix(a, b), 0, 0, a);
    case CSL_CLEAR_ROWS:
      return Clear(console, Mix(0, a), 0, screen.dwCursorPosition.Y, a);

    case CSL_ANSI_MODE:
      console->header.flags &= ~kCslAnsi;
      if (a != 0) console->header.flags |= kCslAnsi;
      CslRestoreColour(console);
      return 0;
    default:
      return -1;
  }
}

int32_t CslGet(uint32_t command, uintptr_t* out1, uintptr_t* out2) {
  HANDLE output;
  if (command & kCslNoObject) {
    output = StandardOutput();
    if (!output) return ErrRaise(kModule, 173, 1);
  } else {
    if ((!CslCurrent || !CslCurrent->hOutput) && CslSet(CSL_OPEN, 0, 0) != 0)
      return ErrRaise(kModule, 177, 1);
    output = CslCurrent->hOutput;
  }
  command &= ~kCslNoObject;
  LookAtShape(output, command, &seenByGet);
  LookAtScreen(output, command, GetLooksAtCursor(command), &seenByGet);
  const CONSOLE_SCREEN_BUFFER_INFO& screen = seenByGet.screen;
  const SMALL_RECT& window = screen.srWindow;
  int32_t x = screen.dwCursorPosition.X + 1, y = screen.dwCursorPosition.Y + 1;
  int32_t left = x - window.Left, top = y - window.Top;
  int32_t width = WindowSpan(window.Left, window.Right);
  int32_t height = WindowSpan(window.Top, window.Bottom);
  uint32_t text = screen.wAttributes;
  uint32_t saved = CslCurrent ? CslCurrent->savedScreen.wAttributes : 0;
  switch (command) {
    case CSL_PROMPT:
      if (out1) *out1 = reinterpret_cast<uintptr_t>(CslExpand("prompt"));
      return 0;
    case CSL_HIDDEN:
      return Store(out1, !seenByGet.cursor.bVisible), 0;
    case CSL_VISIBLE:
      return Store(out1, static_cast<uint32_t>(seenByGet.cursor.bVisible)), 0;
    case CSL_SIZE:
      return Store(out1, seenByGet.cursor.dwSize), 0;
    case CSL_PACKED:
      return Store(out1, Pack(x, y)), 0;
    case CSL_COLUMN:
      return Store(out1, static_cast<uint32_t>(x)), 0;
    case CSL_ROW:
      return Store(out1, static_cast<uint32_t>(y)), 0;
    case CSL_POSITION:
      return StorePair(out1, out2, x, y), 0;
    case CSL_PACKED_WINDOW:
      return Store(out1, Pack(left, top)), 0;
    case CSL_COLUMN_WINDOW:
      return Store(out1, static_cast<uint32_t>(left)), 0;
    case CSL_ROW_WINDOW:
      return Store(out1, static_cast<uint32_t>(top)), 0;
    case CSL_POSITION_WINDOW:
      return StorePair(out1, out2, left, top), 0;
    case CSL_WINDOW_WIDTH:
      return Store(out1, static_cast<uint32_t>(width)), 0;
    case CSL_WINDOW_HEIGHT:
      return Store(out1, static_cast<uint32_t>(height)), 0;
    case CSL_WINDOW_SIZE:
      return StorePair(out1, out2, width, height), 0;
    case CSL_BUFFER_WIDTH:
      return Store(out1, static_cast<uint32_t>(screen.dwSize.X)), 0;
    case CSL_BUFFER_HEIGHT:
      return Store(out1, static_cast<uint32_t>(screen.dwSize.Y)), 0;
    case CSL_BUFFER_SIZE:
      return StorePair(out1, out2, screen.dwSize.X, screen.dwSize.Y), 0;
    case CSL_COLOUR:
      return Store(out1, saved), 0;
    case CSL_FOREGROUND:
      return Store(out1, saved & kForeground), 0;
    case CSL_BACKGROUND:
      return Store(out1, saved & kBackground), 0;
    case CSL_COLOURS:
      Store(out1, saved & kForeground);
      return Store(out2, saved & kBackground), 0;
    case CSL_TEXT_COLOUR:
      return Store(out1, text), 0;
    case CSL_TEXT_FOREGROUND:
      return Store(out1, text & kForeground), 0;
    case CSL_TEXT_BACKGROUND:
      return Store(out1, text & kBackground), 0;
    case CSL_TEXT_COLOURS:
      Store(out1, text & kForeground);
      return Store(out2, text & kBackground), 0;
    case CSL_SCREEN:
      if (out1) *out1 = reinterpret_cast<uintptr_t>(&screen);
      return 0;
    default:
      return -3;
  }
}

int32_t CslMarkRun(uint32_t attribute, int32_t count) {
  uintptr_t column = 0, row = 0;
  if (CslGet(CSL_POSITION, &column, &row) != 0) return 0;
  int32_t x = static_cast<int32_t>(column) - 1, y = static_cast<int32_t>(row) - 1;
  CslPaint(attribute, x, y, x + count, y, 0, 0);
  return 0;
}

int32_t CslOutMode(uint32_t command) {
  static const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  if (command != 2) return -1;
  DWORD mode;
  if (GetConsoleMode(output, &mode))
    SetConsoleMode(output, mode & ~DWORD{ENABLE_WRAP_AT_EOL_OUTPUT});
  return 0;
}

int32_t CslInMode(uint32_t command, uint32_t* out) {
  static const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  if (out) *out = 0;
  DWORD mode;
  switch (command) {
    case 3:
    case 5:
      return 0;
    case 4:
      if (out && GetConsoleMode(input, &mode)) *out = (mode & ENABLE_ECHO_INPUT) != 0;
      return 0;
    default:
      return -1;
  }
}

}  // namespace quern

// The console calls, and what they remember of the terminal because it does not tell.
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/posix/file.h"
#include "platform/posix/native.h"
#include "platform/posix/terminal.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

// Light grey on black stands for the terminal's own colours.
constexpr WORD kOwnColours = 0x07;
constexpr WORD kReverse = 0x4000;
constexpr WORD kUnderline = 0x8000;

constexpr DWORD kOwnCursorSize = 25;

COORD lastSet = {};                // where the cursor was put last
WORD textAttribute = kOwnColours;  // of text to come
CONSOLE_CURSOR_INFO cursor = {kOwnCursorSize, TRUE};
bool wraps = true;

// The attributes of the cells that were written, row by row. It grows to the largest window seen,
// so that a window that shrinks and grows again finds what it had.
struct Cells {
  WORD* attributes;
  int columns;
  int rows;

  // Cells that were never written have the terminal's own colours.
  WORD At(int column, int row) const {
    return column < columns && row < rows ? attributes[row * columns + column] : kOwnColours;
  }

  // Gets the memory for a window. False when there is no memory; everything is as it was then.
  bool Cover(COORD size) {
    if (size.X <= columns && size.Y <= rows) return true;
    const int width = std::max<int>(size.X, columns), height = std::max<int>(size.Y, rows);
    auto* grown = static_cast<WORD*>(malloc(sizeof(WORD) * width * height));
    if (!grown) return false;
    for (int row = 0; row < height; ++row) {
      for (int column = 0; column < width; ++column) grown[row * width + column] = At(column, row);
    }
    free(attributes);
    *this = {grown, width, height};
    return true;
  }
};
Cells cells = {};

// The descriptor of a console for output, or -1 after setting ERROR_INVALID_HANDLE.
int OutputTerminal(HANDLE output) {
  int terminal = Descriptor(output);
  if (terminal < 0 || (terminal != STDIN_FILENO && isatty(terminal))) return terminal;
  SetLastError(ERROR_INVALID_HANDLE);
  return -1;
}

bool IsInside(COORD position, COORD size) {
  return position.X >= 0 && position.X < size.X && position.Y >= 0 && position.Y < size.Y;
}

BOOL Describe(HANDLE output, bool ask, CONSOLE_SCREEN_BUFFER_INFO* info) {
  int terminal = OutputTerminal(output);
  if (terminal < 0) return FALSE;
  COORD asked = lastSet;
  if (ask) AskCursor(terminal, &asked);
  const COORD size = TerminalSize(terminal);
  const SMALL_RECT window = {0, 0, static_cast<int16_t>(size.X - 1),
                             static_cast<int16_t>(size.Y - 1)};
  const COORD at = {std::min(asked.X, window.Right), std::min(asked.Y, window.Bottom)};
  *info = {size, ask ? at : info->dwCursorPosition, textAttribute, window, size};
  return TRUE;
}

BOOL Done(DWORD error) { return error == ERROR_SUCCESS || Fail(error); }

// The parameters of the control sequence that sets an attribute.
struct Rendition {
  char text[24];

  explicit Rendition(WORD attribute) {
    int length = snprintf(text, sizeof text, "0");
    if ((attribute & 0xFF) != kOwnColours) {
      length += snprintf(text + length, sizeof text - length, ";%d;%d", 30 + Colour(attribute),
                         40 + Colour(attribute >> 4));
    }
    snprintf(text + length, sizeof text - length, "%s%s", attribute & kUnderline ? ";4" : "",
             attribute & kReverse ? ";7" : "");
  }

  // Four bits from an attribute as the terminal counts: red and blue change places, and bright
  // colours begin 60 behind the others.
  static int Colour(int bits) {
    return ((bits & 1) << 2 | (bits & 2) | (bits & 4) >> 2) + (bits & 8 ? 60 : 0);
  }
};

// Recolours cells of one row on the screen, all of them alike.
DWORD Recolour(int terminal, int row, int column, int count, WORD attribute) {
  char sequence[80];
  snprintf(sequence, sizeof sequence, "\x1b[%d;%d;%d;%d;%s$r", row + 1, column + 1, row + 1,
           column + count, Rendition(attribute).text);
  return WriteEscape(terminal, sequence);
}

// Recolours a run of cells from the cell with the number `first`, counted row by row.
DWORD RecolourRun(int terminal, int columns, int first, const WORD* attributes, int count) {
  for (int done = 0; done < count;) {
    const int row = (first + done) / columns, column = (first + done) % columns;
    const int most = std::min(count - done, columns - column);
    int alike = 1;
    while (alike < most && attributes[done + alike] == attributes[done]) ++alike;
    DWORD error = Recolour(terminal, row, column, alike, attributes[done]);
    if (error != ERROR_SUCCESS) return error;
    done += alike;
  }
  return ERROR_SUCCESS;
}

// How the terminal numbers the shape that comes nearest to a size.
int ShapeOf(DWORD size) {
  if (size == kOwnCursorSize) return 0;
  return size >= 50 ? 2 : 4;
}

// Cells of a console from a position on, as many as there are of `count`.
struct CellRun {
  int terminal;
  COORD size;  // of the window
  int first;   // counted row by row
  int count;
};

// False after an error was set.
bool FindCells(HANDLE output, COORD position, DWORD count, CellRun* run) {
  run->terminal = OutputTerminal(output);
  if (run->terminal < 0) return false;
  run->size = TerminalSize(run->terminal);
  if (!IsInside(position, run->size)) return Fail(ERROR_INVALID_PARAMETER);
  run->first = position.Y * run->size.X + position.X;
  const DWORD rest = static_cast<DWORD>(run->size.X * run->size.Y - run->first);
  run->count = static_cast<int>(std::min(count, rest));
  return true;
}

}  // namespace

void EndConsole() {
  free(cells.attributes);
  cells = {};
}

}  // namespace posix_layer

BOOL GetConsoleScreenBufferInfo(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* info) {
  return posix_layer::Describe(output, true, info);
}

BOOL GetConsoleGeometry(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* info) {
  return posix_layer::Describe(output, false, info);
}

BOOL GetConsoleCursorInfo(HANDLE output, CONSOLE_CURSOR_INFO* info) {
  using namespace posix_layer;
  int terminal = OutputTerminal(output);
  if (terminal < 0) return FALSE;
  *info = cursor;
  return TRUE;
}

BOOL SetConsoleCursorInfo(HANDLE output, const CONSOLE_CURSOR_INFO* info) {
  using namespace posix_layer;
  int terminal = OutputTerminal(output);
  if (terminal < 0) return FALSE;
  if (info->dwSize == 0 || info->dwSize > 100) return Fail(ERROR_INVALID_PARAMETER);
  const bool visible = info->bVisible;
  DWORD error = ERROR_SUCCESS;
  if (visible != (cursor.bVisible != FALSE)) {
    error = WriteEscape(terminal, visible ? "\x1b[?25h" : "\x1b[?25l", kVisibility, visible);
    if (error == ERROR_SUCCESS) cursor.bVisible = visible;
  }
  const int shape = ShapeOf(info->dwSize);
  if (error == ERROR_SUCCESS && shape != ShapeOf(cursor.dwSize)) {
    char sequence[] = "\x1b[0 q";
    sequence[2] = static_cast<char>('0' + shape);
    error = WriteEscape(terminal, sequence, kShape, shape == 0);
  }
  if (error == ERROR_SUCCESS) cursor.dwSize = info->dwSize;
  return Done(error);
}

BOOL SetConsoleCursorPosition(HANDLE output, COORD position) {
  using namespace posix_layer;
  int terminal = OutputTerminal(output);
  if (terminal < 0) return FALSE;
  if (!IsInside(position, TerminalSize(terminal))) return Fail(ERROR_INVALID_PARAMETER);
  char sequence[32];
  snprintf(sequence, sizeof sequence, "\x1b[%d;%dH", position.Y + 1, position.X + 1);
  DWORD error = WriteEscape(terminal, sequence);
  if (error == ERROR_SUCCESS) lastSet = position;
  return Done(error);
}

BOOL SetConsoleTextAttribute(HANDLE output, WORD attribute) {
  using namespace posix_layer;
  int terminal = OutputTerminal(output);
  if (terminal < 0) return FALSE;
  char sequence[40];
  snprintf(sequence, sizeof sequence, "\x1b[%sm", Rendition(attribute).text);
  DWORD error = WriteEscape(terminal, sequence, kColours, attribute == kOwnColours);
  if (error == ERROR_SUCCESS) textAttribute = attribute;
  return Done(error);
}

BOOL ReadConsoleOutputAttribute(HANDLE output, WORD* attributes, DWORD count, COORD position,
                                DWORD* read) {
  using namespace posix_layer;
  *read = 0;
  CellRun run;
  if (!FindCells(output, position, count, &run)) return FALSE;
  for (int i = 0; i < run.count; ++i) {
    attributes[i] = cells.At((run.first + i) % run.size.X, (run.first + i) / run.size.X);
  }
  *read = static_cast<DWORD>(run.count);
  return TRUE;
}

BOOL WriteConsoleOutputAttribute(HANDLE output, const WORD* attributes, DWORD count, COORD position,
                                 DWORD* written) {
  using namespace posix_layer;
  *written = 0;
  CellRun run;
  if (!FindCells(output, position, count, &run)) return FALSE;
  if (!cells.Cover(run.size)) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  if (RecoloursCells()) {
    DWORD error = RecolourRun(run.terminal, run.size.X, run.first, attributes, run.count);
    if (error != ERROR_SUCCESS) return Fail(error);
  }
  for (int i = 0; i < run.count; ++i) {
    const int row = (run.first + i) / run.size.X, column = (run.first + i) % run.size.X;
    cells.attributes[row * cells.columns + column] = attributes[i];
  }
  *written = static_cast<DWORD>(run.count);
  return TRUE;
}

BOOL GetConsoleMode(HANDLE console, DWORD* mode) {
  using namespace posix_layer;
  int terminal = Descriptor(console);
  if (terminal < 0) return FALSE;
  termios modes;
  if (tcgetattr(terminal, &modes) != 0) return Fail(ERROR_INVALID_HANDLE);
  if (terminal == STDIN_FILENO) {
    *mode = (modes.c_lflag & ISIG ? ENABLE_PROCESSED_INPUT : 0) |
            (modes.c_lflag & ICANON ? ENABLE_LINE_INPUT : 0) |
            (modes.c_lflag & ECHO ? ENABLE_ECHO_INPUT : 0);
  } else {
    *mode = ENABLE_PROCESSED_OUTPUT | (wraps ? ENABLE_WRAP_AT_EOL_OUTPUT : 0);
  }
  return TRUE;
}

BOOL SetConsoleMode(HANDLE console, DWORD mode) {
  using namespace posix_layer;
  DWORD before;
  if (!GetConsoleMode(console, &before)) return FALSE;
  int terminal = Descriptor(console);
  if (terminal == STDIN_FILENO ||
      (mode | ENABLE_WRAP_AT_EOL_OUTPUT) != (ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (mode == before) return TRUE;
  DWORD error = WriteEscape(terminal, wraps ? "\x1b[?7l" : "\x1b[?7h", kWrapping, !wraps);
  if (error == ERROR_SUCCESS) wraps = !wraps;
  return Done(error);
}

// The console by numbered commands. They act on the current console, which is made on demand; its
// first use takes the handle of standard output and notes the console's state as found.
//
// Calls to the console itself are not checked: on output that is no console they do nothing, and
// queries give what an empty console has.
#pragma once

#include <cstdint>

namespace quern {

// Commands of CslSet (S), of CslGet (G), or both. x and y are the cursor's column and row, from 0;
// w is the window's width. Columns and rows in arguments and results count from 1. "Low" and "high"
// are the 16-bit halves of an argument. The current colour is that of the cell at the cursor, the
// saved one was found there at first use.
enum CslCommand : uint32_t {
  CSL_RESTORE_CURSOR = 1,     // S: cursor shape as found
  CSL_RESTORE_COLOUR = 2,     // S: the saved colour
  CSL_KEEP = 3,               // S: do not restore the colour at the end
  CSL_PROMPT = 5,             // S: set the variable "prompt" to the text a; G: its expanded text
  CSL_OPEN = 7,               // S: nothing but the first use
  CSL_HIDDEN = 90,            // S: hide the cursor; G: 1 when it is hidden
  CSL_VISIBLE = 91,           // S: show it; G: 1 when it is shown
  CSL_SIZE = 92,              // S, G: its size in per cent
  CSL_FORWARD = 102,          // S: a cells on, wrapping at w
  CSL_DOWN = 103,             // S: y += low a
  CSL_FORWARD_DOWN = 104,     // S: a cells on, wrapping, and b rows down; see docs/oddities.md
  CSL_PACKED = 105,           // S, G: column low, row high
  CSL_COLUMN = 106,           // S, G
  CSL_ROW = 107,              // S, G
  CSL_POSITION = 108,         // S, G: column a, row b
  CSL_PACKED_WINDOW = 109,    // S: x += a, y += high a; G: as 105, from the window's corner
  CSL_COLUMN_WINDOW = 200,    // S: x += a; G: column from the window's left side
  CSL_ROW_WINDOW = 201,       // S: as 103; G: row from the window's top
  CSL_POSITION_WINDOW = 202,  // S: x += a, y += low b; G: both of the above
  CSL_WINDOW_WIDTH = 204,     // G: 0 for a window of one column
  CSL_WINDOW_HEIGHT = 205,    // G: likewise
  CSL_WINDOW_SIZE = 206,      // G: both
  CSL_BUFFER_WIDTH = 208,     // G
  CSL_BUFFER_HEIGHT = 209,    // G
  CSL_BUFFER_SIZE = 210,      // G: both
  CSL_CLEAR_ON = 403,         // S: paint from the cursor on with background a, and use it
  CSL_COLOUR = 405,           // S: low a; G: the saved colour
  CSL_FOREGROUND = 406,       // S: a over the saved background; G: saved
  CSL_BACKGROUND = 407,       // S: the saved foreground over a; G: saved
  CSL_COLOURS = 408,          // S: a over b; G: both saved
  CSL_TEXT_COLOUR = 409,      // S: a, as an escape text in ANSI mode; G: of new text
  CSL_TEXT_FOREGROUND = 410,  // S: a over the current background; G: of new text
  CSL_TEXT_BACKGROUND = 411,  // S: the current foreground over a; G: of new text
  CSL_TEXT_COLOURS = 412,     // S: a over b; G: both of new text
  CSL_CLEAR = 413,            // S: paint the whole buffer with background a, and use it
  CSL_CLEAR_COLOURS = 414,    // S: the same with a over b. Compat: it uses a's background
  CSL_CLEAR_ROWS = 417,       // S: as 403 from the start of the cursor's row
  CSL_ANSI_MODE = 423,        // S: on, or off when a is 0; then as 2
  CSL_SCREEN = 500,  // G: the address of the CONSOLE_SCREEN_BUFFER_INFO that every query refreshes
};

// Returns 0; -1 for an unknown command; minus ErrLast after raising 1000 (no console could be
// made), 1 (no standard output), 2 (the variable could not be set), or CslPaint's failure.
int32_t CslSet(uint32_t command, uintptr_t a, uintptr_t b);

// Stores results in the cells `out1` and `out2`, where they are not null. With kCslNoObject beside
// the command no console is made. Returns 0; -3 for an unknown command; minus ErrLast after raising
// 1 (no standard output).
int32_t CslGet(uint32_t command, uintptr_t* out1, uintptr_t* out2);
inline constexpr uint32_t kCslNoObject = 0x80000000;

// Paints `count` cells from the cursor on. Returns 0.
int32_t CslMarkRun(uint32_t attribute, int32_t count);

// Command 2 switches off the wrapping at the end of a line. 0, or -1 for another command.
int32_t CslOutMode(uint32_t command);

// Command 4 stores 1 in `out` when standard input echoes, else 0; 3 and 5 store 0. 0, or -1 for
// another command.
int32_t CslInMode(uint32_t command, uint32_t* out);

}  // namespace quern

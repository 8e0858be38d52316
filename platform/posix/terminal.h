// The terminal behind a console: its size, its cursor, changing it and putting it back.
#pragma once

#include <csignal>

#include "platform/win32.h"

namespace posix_layer {

// Columns and rows, each at least 1.
COORD TerminalSize(int terminal);

// Whether escape sequences may be written: the environment names a terminal that is not "dumb".
bool TakesEscapes();

// Whether cells can be recoloured without a change of their text (DECCARA). The control is old, but
// few terminals let it change colours; xterm takes reverse, underline and bold in it and passes
// over colours, multiplexers pass over it all. Variables other than TERM reach through
// multiplexers.
bool RecoloursCells();

// Asks for the cursor's position, counted from 0. False when there is no answer, or when asking
// would be wrong: the terminal is not the process's own, or the process is in its background; input
// waits unread; the terminal takes no escapes, or did not answer once.
//
// What is typed before the answer comes is put back for the next reader where the kernel permits
// it. Part of a line that waits is seen only by a change of the terminal's mode and back, and that
// makes it ready to be read without the rest of its line.
bool AskCursor(int terminal, COORD* position);

// What of a terminal was changed and has to be put back.
enum Change : sig_atomic_t {
  kNothing = 0,
  kColours = 1,
  kWrapping = 2,
  kVisibility = 4,
  kShape = 8,
};

// Flushes standard output's stream and writes an escape sequence, unless the terminal takes none.
// `change` says what it changes, and `own` whether to the terminal's own state, so that nothing has
// to be put back any more. Returns 0 or the error.
DWORD WriteEscape(int terminal, const char* sequence, Change change = kNothing, bool own = false);

}  // namespace posix_layer

// Starting programs: what CreateProcessA and the file-open dialog share.
#pragma once

#include <sys/types.h>

#include "platform/win32.h"

namespace posix_layer {

// A command line in words. One heap block; free(words) releases it.
struct CommandWords {
  char** words;  // ends with a null
  uint32_t count;
};

// Splits as the Windows runtime does. The first word is the program: quotes switch blanks on and
// off and are left out, nothing else is special. In the words behind it 2n backslashes in front of
// a quote are n of them and the quote counts, 2n + 1 are n and a quote of the text; two quotes
// inside quotes are one of the text. Blanks in front of the program are passed over. False when
// there is no memory (the last error is set).
bool SplitCommandLine(const char* line, CommandWords* result);

// Finds a program without a separator in its name along PATH, directories and files that may not be
// executed passed over. Returns 0 with its path in `path` (`size` bytes), or the errno.
int FindProgram(const char* name, char* path, size_t size);

// Starts a program with the caller's environment and standard streams, no other descriptor, no
// signal blocked. `output`, unless it is -1, becomes its standard output. Returns 0 or the errno.
int Spawn(const char* path, char* const* words, int output, pid_t* child);

// Waits for a child and gives its exit code, or 128 plus the signal that ended it; 0 when nobody
// can tell any more, since the host program ignores its children or has waited itself. With `block`
// false it returns false when the child still runs.
bool WaitForChild(pid_t child, bool block, DWORD* code);

}  // namespace posix_layer

// Small routines on words of a command line or a list. Nothing here fails.
#pragma once

#include <cstdint>

namespace quern {

// Bytes up to the end of the first word, counted from the start of `text`: white space in front of
// it and, for a word in double quotes, both quotes included. A quote that is never closed takes the
// rest of the text.
uint32_t StrWordLen(const char* text);

// Puts double quotes around a text that holds a blank, a tab or a double quote, after removing the
// quotes within it; a text that begins and ends with one already, or needs none, stays as it is.
// Writes a terminator behind what it changed: `text` can hold `length` + 3 bytes. Returns the
// new length.
uint32_t StrQuote(char* text, uint32_t length);

// Copies bytes up to `count` or a terminator, and writes none. Returns their number.
uint32_t StrCopyN(char* destination, const char* source, uint32_t count);

// Where a token of `list` occurs first in `text`: the first token in the list that occurs there at
// all (MemSplitFind, with its flags), or null. `separator` splits the list; without one, or with an
// empty one, the whole list is one token. Null when `list` is.
const char* StrFindToken(const char* text, const char* list, const char* separator, uint32_t flags);

}  // namespace quern

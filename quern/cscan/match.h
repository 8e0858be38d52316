// Whether a symbol stands at a place.
#pragma once

#include <cstdint>

#include "quern/cscan/scanner.h"

namespace quern {

// Whether the symbol stands at the current scanner's position: its token, which becomes the pending
// one, or null. Nothing is stepped over.
//
// The records are tried in their order. An unmasked string and a word end the token, so that the
// first one wins, not the longest. A masked string is a piece of it: the records behind are tried
// where it ends. A byte of a set or of ranges is a piece, too, and all records are tried again
// behind it. A string that does not match sends the search back to the token's beginning: a string
// in front of a set or ranges in one symbol can go on for ever.
//
// A word character is a letter 'a' to 'z', a digit, '_', and everything from 'Z' to 0x7F. Compat:
// the other capitals are not.
//
// Ids above the scanner's nHighest stand for its status (kScanEnd). An id without records raises 1
// (a negative one does not); a record whose kind does not exist ends the process.
ScanToken* ScanSymbol(int32_t id);

// --- for the files of this module ----------------------------------------------------------------

// The token of the first symbol of the table, in its order, that the match function of the current
// scanner finds; null when it finds none. Nothing must be pending.
ScanToken* ScanFirstSymbol();

// How many bytes from the position on cannot begin a symbol of the current scanner, as far as
// ScanSymbol is concerned; 0 when nothing is known.
uint32_t ScanHopeless(int32_t id);

extern ScanToken ScanRecord;  // the record of the process, for tokens

}  // namespace quern

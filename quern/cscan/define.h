// The table that describes the symbols of a language, and its check.
#pragma once

#include <cstdint>

namespace quern {

// A record of a table. A symbol is made of one record or of several that stand next to each other;
// the table ends with a record whose id is 0.
struct ScanDef {
  const char* pText;  // the pattern; must be terminated where its kind is folded
  int32_t nId;        // of the symbol, 1 and up
  uint32_t fFlags;    // a kind, and the context mask in the top byte
  uint32_t nLength;   // bytes of the pattern; 0: up to its terminator (ScanDefine fills it in)
  uintptr_t nValue;   // the caller's, copied into the tokens that the record makes
};
static_assert(sizeof(void*) != 4 || sizeof(ScanDef) == 20);

// Kinds, the low byte of the flags. ScanDefine turns 1 to 4 into the ones here.
inline constexpr uint32_t SCAN_AS_BEFORE = 0;  // that of the last string or word in front of it;
                                               // the record loses its mask
inline constexpr uint32_t SCAN_STRING = 17;    // the bytes of the pattern
inline constexpr uint32_t SCAN_WORD = 18;      // the same, not followed by a word character
inline constexpr uint32_t SCAN_SET = 19;       // one or more bytes that occur in the pattern
inline constexpr uint32_t SCAN_RANGES = 20;    // one or more within its pairs (low, high), signed
inline constexpr uint32_t SCAN_STRING_FOLD = 33;  // the same without regard to case, as the locale
inline constexpr uint32_t SCAN_WORD_FOLD = 34;    // in force at ScanDefine has it
inline constexpr uint32_t SCAN_SET_FOLD = 35;     // the first byte of the pattern, or its upper
                                                  // case; the others are never looked at
inline constexpr uint32_t SCAN_RANGES_FOLD = 36;  // within a pair or its upper-case form; the byte
                                                  // of the text is taken as it stands
inline constexpr uint32_t SCAN_FOLDED = 32;       // in all folded kinds
inline constexpr uint32_t SCAN_KIND = 0xFF;

inline constexpr uint32_t SCAN_MASKED = 0x10000;  // in the first record of a symbol with masks; set
                                                  // by ScanDefine

// Context masks: a record with one takes part only while one of its bits is set in the mode.
inline constexpr uint32_t SCAN_FIRST = 0x80000000;  // the first piece of a token
inline constexpr uint32_t SCAN_MORE = 0x40000000;   // the pieces behind it
inline constexpr uint32_t SCAN_LATER = 0x10000000;  // these, and everything behind the first token
                                                    // that had a piece
inline constexpr uint32_t SCAN_LINE = 0x08000000;   // tokens at the beginning of a line, or behind
                                                    // blanks (symbol 2) that stand there
inline constexpr uint32_t SCAN_LINE_FIRST = 0x04000000;  // the first piece of a token there
inline constexpr uint32_t SCAN_MASK = 0xFF000000;

// Symbols with a role of their own.
inline constexpr int32_t kScanLineEnd = 1;  // counts a line when it is stepped over
inline constexpr int32_t kScanBlank = 2;    // keeps SCAN_LINE

// Checks a table and makes it that of the current scanner (one is made when there is none). The
// table stays the caller's and must outlive the scanner; kinds and lengths are filled in, folded
// patterns get upper case in place. What is changed in it later counts after the next call.
//
// `slots` is one more than the highest id that may be asked for; 0: the table's own.
//
// Returns 0, or minus ErrLast after raising 1 (no table), 5 (no record), 6 (no memory) or 7 (an id
// beyond the slots; the symbols in front of it can be used). Records that are raised with 2 (no
// pattern, ranges without pairs), 3 (nothing in front of it gives its kind) or 4 (no such kind)
// stay in the table; scanning a kind that does not exist ends the process. A folded pattern that
// cannot be written (a constant in lower case) is raised with 4 and stays as it is, with ErrLast 0.
int32_t ScanDefine(ScanDef* table, uint32_t slots);

// The first record of a symbol of the current scanner; null without a table. Compat: for an id
// that the table does not hold it is null within the slots, else the end record.
ScanDef* ScanDefFind(int32_t id);

}  // namespace quern

// Going through the text of the current scanner, token by token. Without a current scanner all of
// this gives null.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quern/cscan/scanner.h"

namespace quern {

// Codes that ScanGet takes in place of an id.
inline constexpr int32_t kScanBegin = 9001;    // null; also the status in front of the text
inline constexpr int32_t kScanEnd = 9002;      // a token at the end of the text
inline constexpr int32_t kScanAny = 9003;      // the first symbol of the table that matches
inline constexpr int32_t kScanSkip = 9004;     // steps over the pending token, or a byte
inline constexpr int32_t kScanBack = 9005;     // steps back by a byte
inline constexpr int32_t kScanTake = 9006;     // steps over the pending token
inline constexpr int32_t kScanRefresh = 9007;  // looks where the position is in a changed text

// Steps over the pending token; its line end (symbol 1) counts a line. Then the token of the symbol
// there, or null. Where the step comes to the end of the text it is null for every id but kScanEnd,
// also for kScanAny, which gives the token of the end only when nothing was pending.
ScanToken* ScanGet(int32_t id);

// The token of a symbol at the position, without a step; null at the end of the text.
ScanToken* ScanMatch(int32_t id);

// A run of tokens of one symbol, whose text goes into the value. When the pending token is of that
// symbol the run begins with it. Compat: the last token of the run is pending then, with the
// position behind it already. Otherwise it is a run of one token, which stays pending.
ScanToken* ScanRun(int32_t id);

// Skips bytes up to the next token of a symbol. Null at the end of the text. The column is that of
// a line end. With kScanBack it goes back and forth for ever.
ScanToken* ScanSkipTo(int32_t id);

// Flags in the last word of a list of ids, which has bit 31 set then.
inline constexpr uint32_t SCAN_BACKWARD = 0x01000000;  // back; goes on for ever without a hit
inline constexpr uint32_t SCAN_WHILE = 0x02000000;  // skips the symbols of the list; returns null

// Skips bytes up to the next token of any of the listed symbols. The list ends with 0 or flags
// (SCAN_LIST_END with flags). The column is that of a line end.
inline constexpr uint32_t SCAN_LIST_END = 0x80000000;
ScanToken* ScanFirstOf(int32_t id, ...);

// The same for an array, whose last word it overwrites with 0.
ScanToken* ScanFirstOfList(int32_t* ids);

// Where the next token of a symbol begins, behind the pending one; null when there is none.
// Position and pending token stay; the status is that of the search.
const char* ScanFind(int32_t id);

// Sets the value to `length` bytes, or appends to it. Null when there is no memory. Compat: setting
// makes nValue the length of the text up to its terminator, which it must have (0 when `length`
// is), and not the length of the value.
char* ScanSetValue(const char* text, uint32_t length);
char* ScanAddValue(const char* text, uint32_t length);

// Moves the position, within the text, and sets the status; at the end of a streamed text it reads
// more. For the files of this module.
void ScanAdvance(ptrdiff_t delta);

}  // namespace quern

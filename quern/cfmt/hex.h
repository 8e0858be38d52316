// Memory as text: hex digits, characters, the classic dump; and hex digits back into bytes.
#pragma once

#include <cstdint>

#include "quern/cmem/buffer.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kFmtTag = ClassTag("FMT");

// An instance of class 'FMT'. The buffer holds the text of the last FmtHex without an output area.
struct Formatter {
  InstanceHeader header;
  MemBuf mbText;
};
static_assert(sizeof(void*) != 4 || sizeof(Formatter) == 44);

extern Formatter* CurrentFormatter;  // null until first use

// Makes `object` (a formatter, zeroed memory for one, or null: allocated) the current formatter and
// returns it. Null after raising 1000.
Formatter* FmtSelect(void* object);

// Class procedure of 'FMT'.
uint32_t FmtClass(uintptr_t argument);

// '0' to '9', 'A' to 'F'; '?' for anything above 15.
char FmtHexDigit(uint32_t value);

// Flags of FmtHex; the low four bits are the digits of a group, 0 meaning 2. An odd number never
// ends a group.
inline constexpr uint32_t FMT_GROUP = 0xF;
inline constexpr uint32_t FMT_CHARS = 0x10000000;  // characters; '.' for control characters
inline constexpr uint32_t FMT_TEXT = 0x20000000;   // per group as many characters as it has digits,
                                                   // and the digits (or the character) in brackets

// Formats `length` bytes (0xFFFFFFFF: a terminated text) as hex digits in groups with a blank
// between them, or as the flags say, with a terminator. Writes to `output`, which must have the
// capacity (it may be `data` itself), or without one, or one in it, into the formatter's buffer,
// where the text stays until the next call. Returns the text, or null after raising 1 (no data),
// 1000 (no formatter) or the codes of a buffer without memory.
char* FmtHex(const void* data, uint32_t length, char* output, uint32_t flags);

// How FmtUnhex stores a number, least significant byte first.
inline constexpr uint32_t UNHEX_BYTES = 15;  // two digits are a byte, a single one its high half
inline constexpr uint32_t UNHEX_FIT = 2;     // as many bytes as its digits take
inline constexpr uint32_t UNHEX_WORDS = 4;   // the same in pairs
inline constexpr uint32_t UNHEX_LONG = 8;    // four bytes

// Reads hex numbers that blanks separate, of up to eight digits; "0x", 'h', '.' and '-' are passed
// over. Blanks and periods in front of a number do not count as part of `length`: the text must be
// terminated. Writes a terminator behind the bytes, if there are any. Returns
// how many bytes; 0 for a text with anything else in it.
uint32_t FmtUnhex(const char* text, uint32_t length, void* output, uint32_t mode);

// Flags of FmtDump: what begins a line, the first of them that is set; without any it is a blank.
inline constexpr uint32_t DUMP_OFFSET = 0x01000000;      // the offset from `data` plus the base
inline constexpr uint32_t DUMP_FILEOFFSET = 0x00400000;  // the same, with another heading
inline constexpr uint32_t DUMP_ADDRESS = 0x00800000;     // the address plus the base
inline constexpr uint32_t DUMP_HEADER = 0x02000000;      // a heading
inline constexpr uint32_t DUMP_RULER = 0x00000002;       // with column numbers, and a line end

extern int32_t FmtLineBytes;  // of a dump line; 16 unless the application sets it, 1 to 256

// Prints bytes to standard output, with their characters behind them. A length of 2^31 and more
// prints none. Returns 0, also after raising 1 (no data).
int32_t FmtDump(const void* data, uint32_t length, uint32_t base, uint32_t flags);

}  // namespace quern

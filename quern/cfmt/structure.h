// Memory as a structure: its fields by name, with the names of their values and bits.
#pragma once

#include <cstdint>

namespace quern {

// A row of a table: the structure's name first, then its fields as they lie in memory, each with
// its constants and bits behind it. A row without a name ends the table.
struct FieldDesc {
  uint32_t nKey;           // for FmtStructFind
  uint32_t fFlags;         // FIELD_ flags, and in the low four bits the size: 1, 2, 3, 4 or 8 bytes
  const char* pszName;     // 3 bytes show no value, other sizes count as 0
  uint32_t nValue;         // of a constant, or the bits that are named
  uint32_t nMask;          // of a constant: what it is compared with; 0: all
  const char* pszComment;  // may be null
};
static_assert(sizeof(void*) != 4 || sizeof(FieldDesc) == 24);

inline constexpr uint32_t FIELD_SIZE = 0xF;
inline constexpr uint32_t FIELD_CONSTANT = 0x00100000;  // a value of the field above
inline constexpr uint32_t FIELD_BIT = 0x00400000;       // bits of the field above
inline constexpr uint32_t FIELD_MEMBER = 0x01000000;    // of a group, behind the member before it
inline constexpr uint32_t FIELD_OVERLAY = 0x02000000;   // of a group, in the member's place
inline constexpr uint32_t FIELD_STRUCT = 0x04000000;    // the structure's name, and nothing else

// Words of a field's type, in the order in which they are shown. A row needs one to be shown.
inline constexpr uint32_t FIELD_UNSIGNED = 0x80000000;
inline constexpr uint32_t FIELD_INT = 0x40000000;
inline constexpr uint32_t FIELD_LONG = 0x20000000;
inline constexpr uint32_t FIELD_CHAR = 0x08000000;
inline constexpr uint32_t FIELD_SHORT = 0x10000000;
inline constexpr uint32_t FIELD_POINTER = 0x00800000;

// Prints the structure at `data` to standard output. Names of values and bits stand behind their
// field and go on in lines of their own where the console is not wide enough. Bits without a name
// follow as " [%x]". Only the low half of eight bytes has names.
//
// Compat: members of a group show the value at the group's beginning; values of eight bytes show
// their low half first; the first name that does not fit is left out.
//
// Returns the columns of the last line with a field; 0 after setting ErrLast to 1 (null argument).
uint32_t FmtStruct(const FieldDesc* table, const void* data);

// The same for `width` columns instead of the console's; 0: no limit.
uint32_t FmtStructWithin(const FieldDesc* table, const void* data, uint32_t width);

// The first row with the key (unless that is 0), or with exactly the flags (unless they are 0);
// else the row that ends the table. Null without a table.
const FieldDesc* FmtStructFind(const FieldDesc* table, uint32_t key, uint32_t flags);

}  // namespace quern

// Replacing bytes of a block: at once, or noted first and applied in one pass. The notes, and what
// a replacement reports, live in the memory object.
#pragma once

#include <cstdint>

#include "quern/cmem/buffer.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kMemTag = ClassTag("MEM");

// One per process, an instance of class 'MEM'.
struct MemObject {
  InstanceHeader header;
  void* pBlock;        // the caller's block that noted edits refer to; null when none are noted
  uint32_t nBlock;     // its length in bytes
  int32_t nDelta;      // growth by the noted edits; also the growth by the last MemBufReplace
  uint32_t nReplaced;  // replacements of the last MemBufReplace
  MemBuf mbEdits;      // the noted edits
};
static_assert(sizeof(void*) != 4 || sizeof(MemObject) == 60);

extern MemObject* MemCurrent;  // the process's memory object, or null

// Makes `object` (a memory object, zeroed memory for one, or null: allocated) the process's memory
// object and returns it. Null after raising 1000.
MemObject* MemAttach(void* object);

// Class procedure of 'MEM'. The block of the noted edits is the caller's and stays.
uint32_t MemClass(uintptr_t argument);

// A noted edit. Notes apply in the order in which they were made, which has to be ascending and
// without overlaps; of others the bytes that were passed already are left out.
struct MemEdit {
  char* pOld;  // within the noted block
  uint32_t nOld;
  uint32_t unusedOld;
  const char* pNew;  // read when the edits are applied; null leaves a gap of nNew bytes
  uint32_t nNew;
  uint32_t unusedNew;
};
static_assert(sizeof(void*) != 4 || sizeof(MemEdit) == 24);

// Flags of MemReplace; without any the edit is made at once.
inline constexpr uint32_t MEM_RECORD = 0x00800000;  // note it
inline constexpr uint32_t MEM_APPLY = 0x00400000;   // apply the noted edits to `block`

// Replaces `oldLength` bytes at `pos` of a block of `length` bytes by `newLength` bytes of the
// caller's (null: whatever comes to stand there) and returns by how much the contents grew. The
// caller provides the memory to grow into.
//
// With MEM_RECORD the edit is noted, for positions as they are before any noted edit, and nothing
// is changed. With MEM_APPLY all noted edits are made in one pass over the block that they were
// noted for, into `block`, which may be that block itself or another one, of `length` bytes; then
// nothing is noted any more, and the total growth is returned. Every byte moves once. The other
// arguments of an apply are not used.
//
// Returns 0 after raising 1 (no block), 2 (outside the block), 4 (no memory for a note), 7 (none
// for a copy of the block) or 9 (other flags); minus ErrLast after raising 1000; 0 with ErrLast set
// without a raise to 2 (noted outside the block), 3 (another block or length than the one noted), 5
// (nothing noted) or 6 (the block is too short for the result). Notes survive a failure.
uint32_t MemReplace(void* block, uint32_t length, void* pos, uint32_t oldLength,
                    const void* newBytes, uint32_t newLength, uint32_t flags);

// Never ends when the buffer holds the pattern: the search is repeated with unchanged arguments, on
// purpose. Without a hit it inserts nothing and, with a replacement given, raises 3 and returns
// null (an empty record takes the replacement as its contents); without one it notes one
// replacement in the memory object, if there is one, and returns the contents. Null after raising 1
// (no record); null with ErrLast 2, unraised, without a pattern.
char* MemBufReplace(MemBuf* buf, const void* pattern, uint32_t patternLength,
                    const void* replacement, uint32_t replacementLength, uint32_t flags);

}  // namespace quern

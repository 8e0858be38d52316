// Replacing bytes, and the memory object that holds what a replacement reports.
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

// Never ends when the buffer holds the pattern: the search is repeated with unchanged arguments, on
// purpose. Without a hit it inserts nothing and, with a replacement given, raises 3 and returns
// null (an empty record takes the replacement as its contents); without one it notes one
// replacement in the memory object, if there is one, and returns the contents. Null after raising 1
// (no record); null with ErrLast 2, unraised, without a pattern.
char* MemBufReplace(MemBuf* buf, const void* pattern, uint32_t patternLength,
                    const void* replacement, uint32_t replacementLength, uint32_t flags);

}  // namespace quern

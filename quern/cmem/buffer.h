// The growable byte block that every module embeds, and the raw blocks that it rests on.
//
// A MemBuf allocates in whole granules, never shrinks while it holds a block, and keeps four zero
// bytes behind its contents, so that they can be handed out as a terminated text at any time. All
// memory is malloc's; sizes beyond 0x7FFFFFFF bytes fail as an allocation that is refused does.
#pragma once

#include <cstdint>
#include <cstring>

namespace quern {

struct MemBuf {
  uint32_t nAlign;  // granule of allocation in bytes; 0 counts as 1; set by the creator
  uint32_t nAlloc;  // bytes allocated; a multiple of the granule once a block exists
  uint32_t nSize;   // bytes in use; nAlloc >= nSize + 4 whenever pData is set
  char* pData;      // the block, owned; null while empty
};
static_assert(sizeof(void*) != 4 || sizeof(MemBuf) == 16);

// `n` rounded up to a whole multiple of `granule`; zeros count as 1. Computed in signed 32-bit
// arithmetic: values beyond its range come out as that arithmetic has them.
uint32_t MemAlign(uint32_t n, uint32_t granule);

// Makes a raw block of `oldSize` bytes one of `newSize`, in whole granules. A
// new block is zeroed; bytes that a growth adds are not. Returns the block to use from now on, or
// null after raising 1 (no memory for a new block) or 2 (none to grow; the old block stays valid).
void* MemResize(void* block, uint32_t newSize, uint32_t oldSize, uint32_t granule);

// Adds `count` bytes behind the `used` bytes of a raw block and returns their address, or null
// after raising 2. They are zero in a new block. Compat: in an existing one they are a copy of the
// block's first `count` bytes.
void* MemExtend(void* block, uint32_t count, uint32_t used, uint32_t granule);

// Sets the granule of a record and returns it. Null makes a zeroed record on the heap, which its
// owner frees after MemBufFree; no memory for it raises 1.
MemBuf* MemBufNew(MemBuf* buf, uint32_t align);

// Makes the contents `len` bytes long and, when `src` is not null, copies them from there. Returns
// the block, or null after raising 1 (no record, or no memory for a first block) or 2 (no memory to
// grow; the record is unchanged). Without `src` the old contents stay, and the bytes between the
// old and the new size are zero only on a first allocation.
//
// The four zero bytes are written first. A `src` within the block is read after that: where it
// reaches over them, zeros are copied.
char* MemBufSet(MemBuf* buf, const void* src, uint32_t len);

// Appends `count` bytes, from `src` or to be filled by the caller. Returns the address of the
// first, or null after raising 1 (no record) or 2 (no memory; the record is unchanged).
char* MemBufAdd(MemBuf* buf, const void* src, uint32_t count);

// Deletes up to `del` bytes at `pos`, then inserts `ins` bytes from `src` there. Returns the
// address of the edit in the (possibly moved) block. Null without a raise when `pos` lies outside
// the contents; null after raising 1 (no record) or 2 (no memory; the deletion has been done).
char* MemBufSplice(MemBuf* buf, const char* pos, uint32_t del, const void* src, uint32_t ins);

// Replaces the contents by a formatted text and returns it. The text may have up to 10 granules of
// bytes; a longer one raises 1 and gives null. A text as long as the capacity has no terminator
// within nAlloc, and the four zero bytes do not follow formatted contents. When `format` is
// kMemArgList, the arguments are a format and a va_list: MemBufPrintf(buf, kMemArgList, format,
// list). No argument may lie in the record's own block.
char* MemBufPrintf(MemBuf* buf, const char* format, ...);
inline const char* const kMemArgList = reinterpret_cast<const char*>(~uintptr_t{0});

// Hands the block over to the caller, who frees it; the record is empty, its nAlloc stale. Null
// when there was none.
char* MemBufTake(MemBuf* buf);

// Frees the block. The record can be used again at once.
void MemBufFree(MemBuf* buf);

// --- what MemBufAdd is made of -------------------------------------------------------------------

inline constexpr uint32_t kMemTerminator = 4;  // zero bytes behind the contents

// Whether an address lies in the record's block.
inline bool MemBufHolds(const MemBuf* buf, const void* at) {
  return buf->pData &&
         reinterpret_cast<uintptr_t>(at) - reinterpret_cast<uintptr_t>(buf->pData) < buf->nAlloc;
}

// Whether the block of a record that has one must move to hold `size` bytes, in whole granules.
bool MemBufMoves(const MemBuf* buf, uint64_t size);

// MemBufAdd for any record and source.
char* MemBufAppend(MemBuf* buf, const void* src, uint32_t count);

// Small pieces are appended in the caller's own code while the block certainly can hold them:
// with granule and capacity powers of two and multiples of them, a few instructions tell.
inline char* MemBufAdd(MemBuf* buf, const void* src, uint32_t count) {
  if (!buf || !src || !buf->pData) return MemBufAppend(buf, src, count);
  uint32_t old = buf->nSize;
  uint32_t mask = buf->nAlign - 1;
  if (((buf->nAlign | buf->nAlloc) & mask) != 0 ||
      uint64_t{old} + count + kMemTerminator > buf->nAlloc || MemBufHolds(buf, src))
    return MemBufAppend(buf, src, count);
  char* added = buf->pData + old;
  memset(added + count, 0, kMemTerminator);
  memcpy(added, src, count);
  buf->nSize = old + count;
  return added;
}

}  // namespace quern

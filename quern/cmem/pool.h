// Small pieces of memory from large chunks. Pieces are not freed one by one; chunks go whole.
//
// The pool is a MemBuf whose block is the current chunk and whose granule is the least size of
// one. Compat: some lengths are counted in headers where bytes are meant.
#pragma once

#include <cstdint>

#include "quern/cmem/buffer.h"
#include "quern/cmem/chain.h"

namespace quern {

// How each chunk begins.
struct PoolChunk {
  ChainLink link;   // the chunks before and behind it
  uint32_t nAlloc;  // bytes when it was made
  uint32_t nUsed;   // bytes; the header is counted unless MemPoolNew made the chunk
};
static_assert(sizeof(void*) != 4 || sizeof(PoolChunk) == 16);

struct MemPoolInfo {
  uint32_t nAlign;  // granule of the pool
  uint32_t nAlloc;  // of the chunk
  uint32_t nUsed;
  PoolChunk* pChunk;
};
static_assert(sizeof(void*) != 4 || sizeof(MemPoolInfo) == 16);

// Begins a pool with a piece of `n` bytes, copied from `src` unless that is null, and returns it.
// Chunks that the buffer had are forgotten. Null after raising 1.
char* MemPoolNew(MemBuf* buf, const void* src, uint32_t n);

// Another piece. Where it takes a new chunk, it begins behind the header, but `src` is copied to a
// place 15 headers further on, as far as the chunk reaches. One that leaves fewer than four bytes
// of the current chunk may move that chunk, so that its pieces are elsewhere then. Null after
// raising 1, or 2 (the chunk could not grow).
char* MemPoolAdd(MemBuf* buf, const void* src, uint32_t n);

// The current chunk (null) or the one with the address, if that is the current chunk or behind it;
// null when it is not. The record is overwritten by every call.
MemPoolInfo* MemPoolFind(const MemBuf* buf, const void* address);

// Takes that chunk out, for the caller to free. When it was the last one, the one before it becomes
// the current one, and pieces are added behind its nUsed bytes. Compat: the nUsed of a chunk that
// MemPoolNew made lacks the header, so that the next piece goes over the last sizeof(PoolChunk)
// bytes of the pieces there.
MemPoolInfo* MemPoolDel(MemBuf* buf, const void* address);

// Frees all chunks, from the current one back to one that has nothing used. Returns the address of
// the last one; null when there was none.
void* MemPoolFree(MemBuf* buf);

}  // namespace quern

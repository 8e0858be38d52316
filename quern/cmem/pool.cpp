#include "quern/cmem/pool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"

namespace quern {
namespace {

constexpr char kModule[] = "cmem";

constexpr uint32_t kHeader = sizeof(PoolChunk);

PoolChunk* ChunkOf(const MemBuf* buf) {
  return reinterpret_cast<PoolChunk*>(buf->pData);  // NOLINT(*-unix.Malloc): Free has moved on
}

// Gives the buffer a block for a header and `n` bytes, and clears the header.
bool MakeChunk(MemBuf* buf, uint32_t n) {
  bool fits = n <= UINT32_MAX - kHeader;
  if (!MemBufSet(buf, nullptr, fits ? n + kHeader : UINT32_MAX) || !buf) return false;
  memset(buf->pData, 0, kHeader);
  ChunkOf(buf)->nAlloc = buf->nAlloc;
  return true;
}

char* AddChunk(MemBuf* buf, const void* src, uint32_t n) {
  const MemBuf former = *buf;
  buf->pData = nullptr;
  if (!MakeChunk(buf, n)) {
    *buf = former;
    return ErrRaise(kModule, 601, 1), nullptr;
  }
  PoolChunk* chunk = ChunkOf(buf);
  chunk->nUsed = buf->nSize;
  constexpr uint32_t kSource = 16 * kHeader;
  if (src && buf->nAlloc > kSource)
    memcpy(buf->pData + kSource, src, std::min(n, buf->nAlloc - kSource));
  PoolChunk* before = ChunkOf(&former);
  MemChainLinkAfter(nullptr, &chunk->link, before ? &before->link : nullptr);
  return buf->pData + kHeader;
}

// A piece behind the others, for which the block has to grow and may move.
char* Append(MemBuf* buf, const void* src, uint32_t n) {
  char* piece = MemBufAdd(buf, src, n);
  const ChainLink& link = ChunkOf(buf)->link;
  if (link.pWhere) link.pWhere->pNext = &ChunkOf(buf)->link;
  if (link.pNext) link.pNext->pWhere = &ChunkOf(buf)->link;
  return piece;
}

}  // namespace

char* MemPoolNew(MemBuf* buf, const void* src, uint32_t n) {
  MemBuf copy = {};  // of a piece of the buffer's own
  bool own = buf && src && MemBufHolds(buf, src);
  if (own) src = MemBufSet(&copy, src, n);
  bool made = (!own || src) && MakeChunk(buf, n);
  if (made && src) memcpy(buf->pData + kHeader, src, n);
  MemBufFree(&copy);
  if (!made) return ErrRaise(kModule, 582, 1), nullptr;
  ChunkOf(buf)->nUsed = n;
  return buf->pData + kHeader;
}

char* MemPoolAdd(MemBuf* buf, const void* src, uint32_t n) {
  if (!buf) return ErrRaise(kModule, 601, 1), nullptr;
  bool fits = buf->pData && buf->nAlloc >= uint64_t{buf->nSize} + n;
  if (!fits) return AddChunk(buf, src, n);
  char* piece;
  if (uint64_t{buf->nSize} + n + kMemTerminator <= buf->nAlloc) {
    piece = buf->pData + buf->nSize;
    buf->nSize += n;
    if (src) memmove(piece, src, n);
    memset(piece + n, 0, kMemTerminator);
  } else {
    piece = Append(buf, src, n);
    if (!piece) return nullptr;
  }
  // Zeros behind as many headers as there are bytes, if they are still in the chunk.
  uint64_t zeros = static_cast<uint64_t>(piece - buf->pData) + uint64_t{n} * kHeader;
  if (zeros < buf->nAlloc) {
    uint64_t left = buf->nAlloc - zeros;
    memset(buf->pData + zeros, 0, std::min<uint64_t>(left, kMemTerminator));
  }
  ChunkOf(buf)->nUsed += n;
  return piece;
}

MemPoolInfo* MemPoolFind(const MemBuf* buf, const void* address) {
  static MemPoolInfo info;
  if (!buf || !buf->pData) return nullptr;
  if (!address) address = buf->pData;
  PoolChunk* chunk = ChunkOf(buf);
  // Addresses are compared by their distance, which is large in front of the chunk.
  auto offset = [address](const PoolChunk* from) {
    return reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(from);
  };
  while (chunk && offset(chunk) >= chunk->nUsed)
    chunk = reinterpret_cast<PoolChunk*>(chunk->link.pNext);
  if (!chunk) return nullptr;
  info = {buf->nAlign, chunk->nAlloc, chunk->nUsed, chunk};
  return &info;
}

MemPoolInfo* MemPoolDel(MemBuf* buf, const void* address) {
  MemPoolInfo* info = MemPoolFind(buf, address);
  if (!info) return nullptr;
  ChainLink* link = &info->pChunk->link;
  if (!link->pNext) {
    auto* before = reinterpret_cast<PoolChunk*>(link->pWhere);
    buf->pData = reinterpret_cast<char*>(before);
    // A first chunk does not count its header, over which nothing must be written.
    buf->nSize = before ? std::max(before->nUsed, kHeader) : 0;
    buf->nAlloc = before ? before->nAlloc : 0;
  }
  MemChainUnlink(nullptr, link);
  return info;
}

void* MemPoolFree(MemBuf* buf) {
  void* last = nullptr;
  while (MemPoolInfo* info = MemPoolDel(buf, nullptr)) {
    last = info->pChunk;
    if (buf->pData == last)
      *buf = {buf->nAlign, 0, 0, nullptr};  // one was linked behind it by hand
    free(last);
  }
  return last;  // NOLINT(*-unix.Malloc): its address alone
}

}  // namespace quern

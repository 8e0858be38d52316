#include "quern/cmem/buffer.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cmem/format.h"

namespace quern {
namespace {

constexpr char kModule[] = "cmem";

constexpr uint64_t kLargestBlock = 0x7FFFFFFF;

// Bytes behind nAlloc that no field speaks of: a text that fills its capacity gets its terminator
// there, and edits may move a terminator that formatted contents do not have.
constexpr uint32_t kHidden = 4;

constexpr uint32_t kFirstMultiplier = 2;
constexpr uint32_t kLastMultiplier = 10;

// `n` in whole granules, without wrapping.
inline uint64_t WholeGranules(uint64_t n, uint32_t granule) {
  if (n == 0) n = 1;
  if (granule == 0) granule = 1;
  if ((granule & (granule - 1)) == 0) return (n + granule - 1) & ~uint64_t{granule - 1};
  uint64_t sum = n + granule - 1;
  if (sum <= UINT32_MAX) return static_cast<uint32_t>(sum) / granule * granule;
  return sum / granule * granule;
}

void* ResizeBlock(void* block, uint64_t newSize, uint32_t oldSize, uint32_t granule) {
  uint64_t capacity = WholeGranules(newSize, granule);
  if (!block) {
    void* fresh = capacity > kLargestBlock ? nullptr : calloc(1, capacity);
    if (!fresh) ErrRaise(kModule, 370, 1);
    return fresh;
  }
  if (newSize <= WholeGranules(oldSize, granule)) return block;
  void* moved = capacity > kLargestBlock ? nullptr : realloc(block, capacity);
  if (!moved) ErrRaise(kModule, 376, 2);
  return moved;
}

// Grows a block to at least `need` bytes. It asks the heap for half as much again, so that
// appending takes linear time in all. nAlloc counts whole granules, not slack.
bool Grow(MemBuf* buf, uint64_t need) {
  if (need > kLargestBlock) return ErrRaise(kModule, 439, 2), false;
  if (MemBufMoves(buf, need)) {
    void* moved = realloc(buf->pData, need + need / 2 + kHidden);
    if (!moved) moved = realloc(buf->pData, need + kHidden);
    if (!moved) return ErrRaise(kModule, 439, 2), false;
    buf->pData = static_cast<char*>(moved);
  }
  buf->nAlloc = static_cast<uint32_t>(need);
  return true;
}

// Gives an existing record a block for `len` bytes and their terminator; raises and returns false
// when there is no memory for it.
bool Reserve(MemBuf* buf, uint64_t len) {
  uint64_t need = WholeGranules(len + kMemTerminator, buf->nAlign);
  if (buf->pData) return buf->nAlloc >= need || Grow(buf, need);
  char* fresh = need > kLargestBlock ? nullptr : static_cast<char*>(malloc(need + kHidden));
  if (!fresh) return ErrRaise(kModule, 432, 1), false;
  memset(fresh, 0, len);
  buf->nAlloc = static_cast<uint32_t>(need);
  buf->pData = fresh;
  return true;
}

char* Terminate(MemBuf* buf, uint64_t len) {
  memset(buf->pData + len, 0, kMemTerminator);
  buf->nSize = static_cast<uint32_t>(len);
  return buf->pData;
}

// MemBufSet without a source.
char* Resize(MemBuf* buf, uint64_t len) {
  return Reserve(buf, len) ? Terminate(buf, len) : nullptr;
}

// A source of bytes that may lie inside the block that is about to move.
class Source {
 public:
  Source(const MemBuf* buf, const void* src)
      : bytes_(static_cast<const char*>(src)), inside_(MemBufHolds(buf, src)) {
    if (inside_) offset_ = static_cast<uint32_t>(bytes_ - buf->pData);
  }

  // Copies `count` bytes to `to`, which lies in the block as it is now.
  void CopyTo(const MemBuf* buf, char* to, uint32_t count) const {
    if (!inside_) {
      memcpy(to, bytes_, count);
      return;
    }
    uint32_t left = buf->nAlloc - offset_;
    memmove(to, buf->pData + offset_, count < left ? count : left);
  }

 private:
  const char* bytes_;
  uint32_t offset_ = 0;
  bool inside_;
};

// The runtime's bounded formatter by the rule of its first days: -1 when the text is longer than
// the capacity, no terminator (within nAlloc) when it is just as long.
int32_t FormatInto(MemBuf* buf, const char* format, va_list arguments) {
  if (!buf->pData) return -1;
  va_list copy;
  va_copy(copy, arguments);
  int length = FormatText(buf->pData, size_t{buf->nAlloc} + 1, format, copy);
  va_end(copy);
  return static_cast<uint32_t>(length) > buf->nAlloc ? -1 : length;
}

char* Format(MemBuf* buf, const char* format, va_list arguments) {
  if (!buf->pData) Resize(buf, buf->nAlign);
  for (uint32_t multiplier = kFirstMultiplier;; ++multiplier) {
    int32_t length = FormatInto(buf, format, arguments);
    if (length >= 0) {
      buf->nSize = static_cast<uint32_t>(length);
      return buf->pData;
    }
    if (multiplier == kLastMultiplier) return ErrRaise(kModule, 537, 1), nullptr;
    Resize(buf, uint64_t{buf->nAlign} * multiplier);
  }
}

}  // namespace

uint32_t MemAlign(uint32_t n, uint32_t granule) {
  if (granule == 0) granule = 1;
  if (n == 0) n = 1;
  int64_t sum = static_cast<int32_t>(n + granule - 1);
  int64_t step = static_cast<int32_t>(granule);
  return static_cast<uint32_t>(sum / step * step);
}

void* MemResize(void* block, uint32_t newSize, uint32_t oldSize, uint32_t granule) {
  return ResizeBlock(block, newSize, oldSize, granule);
}

void* MemExtend(void* block, uint32_t count, uint32_t used, uint32_t granule) {
  void* larger = ResizeBlock(block, uint64_t{used} + count, used, granule);
  if (!larger) return ErrRaise(kModule, 388, 2), nullptr;
  char* added = static_cast<char*>(larger) + used;
  if (block) memmove(added, larger, count);
  return added;
}

MemBuf* MemBufNew(MemBuf* buf, uint32_t align) {
  if (!buf) buf = static_cast<MemBuf*>(calloc(1, sizeof(MemBuf)));
  if (!buf) return ErrRaise(kModule, 407, 1), nullptr;
  buf->nAlign = align;
  return buf;
}

char* MemBufSet(MemBuf* buf, const void* src, uint32_t len) {
  if (!buf) return ErrRaise(kModule, 424, 1), nullptr;
  if (!src) return Resize(buf, len);
  Source source(buf, src);
  if (!Reserve(buf, len)) return nullptr;
  Terminate(buf, len);
  source.CopyTo(buf, buf->pData, len);
  return buf->pData;
}

bool MemBufMoves(const MemBuf* buf, uint64_t size) {
  return buf->nAlloc < size && HeapBlockSize(buf->pData) < size + kHidden;
}

char* MemBufAppend(MemBuf* buf, const void* src, uint32_t count) {
  if (!buf) return ErrRaise(kModule, 457, 1), nullptr;
  uint32_t old = buf->nSize;
  Source source(buf, src);
  if (!Resize(buf, uint64_t{old} + count)) return ErrRaise(kModule, 460, 2), nullptr;
  char* added = buf->pData + old;
  if (src) source.CopyTo(buf, added, count);
  return added;
}

char* MemBufSplice(MemBuf* buf, const char* pos, uint32_t del, const void* src, uint32_t ins) {
  if (!buf) return ErrRaise(kModule, 474, 1), nullptr;
  uintptr_t start = reinterpret_cast<uintptr_t>(buf->pData);
  uintptr_t at = reinterpret_cast<uintptr_t>(pos);
  if (at < start || at - start > buf->nSize) return nullptr;
  uint32_t offset = static_cast<uint32_t>(at - start);
  if (del > buf->nSize - offset) del = buf->nSize - offset;
  if (del != 0) {
    char* gap = buf->pData + offset;
    memmove(gap, gap + del, buf->nSize - offset - del + kMemTerminator);
    buf->nSize -= del;
  }
  if (!src || ins == 0) return buf->pData + offset;
  Source source(buf, src);
  uint32_t rest = buf->nSize - offset + kMemTerminator;
  if (!MemBufAdd(buf, nullptr, ins)) return ErrRaise(kModule, 486, 2), nullptr;
  char* edit = buf->pData + offset;
  memmove(edit + ins, edit, rest);
  source.CopyTo(buf, edit, ins);
  return edit;
}

char* MemBufPrintf(MemBuf* buf, const char* format, ...) {
  if (!buf) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  FormatCall call = ResolveFormat(format, arguments);
  char* text = Format(buf, call.format, call.arguments);
  va_end(arguments);
  return text;
}

char* MemBufTake(MemBuf* buf) {
  if (!buf) return nullptr;
  char* block = buf->pData;
  buf->pData = nullptr;
  buf->nSize = 0;
  return block;
}

void MemBufFree(MemBuf* buf) {
  if (!buf || !buf->pData) return;
  free(buf->pData);
  buf->pData = nullptr;
  buf->nAlloc = 0;
  buf->nSize = 0;
}

}  // namespace quern

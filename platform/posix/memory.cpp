// Whether memory can be read and written, asked of the system and never found out by touching it.
//
// A protection holds for whole pages, so a range is asked about page by page.
#include <fcntl.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/posix/native.h"

namespace posix_layer {
namespace {

constexpr uintptr_t kPage = 4096;

// Ranges are given by their first and their last byte, so that they may end at the end of memory.
struct Range {
  uintptr_t first, last;
};

// The system reads the eight bytes before it refuses the request, so its reason tells whether it
// could. `address` is a multiple of 8.
bool IsReadableWord(uintptr_t address) {
  constexpr long kNoSuchRequest = -1;
  if (address == 0) address = 8;  // no address at all would be no request to read
  return syscall(SYS_rt_sigprocmask, kNoSuchRequest, address, 0L, 8L) == 0 || errno != EFAULT;
}

bool IsReadable(Range range) {
  for (uintptr_t page = range.first & ~(kPage - 1);; page += kPage) {
    if (!IsReadableWord(std::max(page, range.first & ~uintptr_t{7}))) return false;
    if (range.last - page < kPage) return true;
  }
}

enum class Answer { kNo, kYes, kUnknown };

// The request PROCMAP_QUERY of /proc/self/maps, which tells of one mapping (Linux 6.11).
struct MapQuery {
  uint64_t size;
  uint64_t flags;
  uint64_t address;
  uint64_t start, end;  // out: the mapping that holds the address
  uint64_t unused[8];   // further facts, which are not asked for
};
static_assert(sizeof(MapQuery) == 104);
constexpr unsigned long kMapQuery = _IOWR('f', 17, MapQuery);
constexpr uint64_t kMapWritable = 2;

Answer AskMappings(int maps, Range range) {
  for (uintptr_t at = range.first;;) {
    MapQuery query = {};
    query.size = sizeof query;
    query.flags = kMapWritable;
    query.address = at;
    if (ioctl(maps, kMapQuery, &query) != 0) {
      return errno == ENOENT ? Answer::kNo : Answer::kUnknown;
    }
    if (query.end > range.last) return Answer::kYes;
    at = static_cast<uintptr_t>(query.end);
  }
}

// Reads the lines of the open map, which are in the order of their addresses:
// "7f0000000000-7f0000001000 rw-p ...".
class MapReader {
 public:
  explicit MapReader(int maps) : maps_(maps) {}

  // The next mapping; false at the end, and where no more can be read.
  bool Next(uint64_t* start, uint64_t* end, bool* writable) {
    char separator;
    if (!Number(start, &separator) || !Number(end, &separator)) return false;
    char byte = 0;
    if (!Byte(&byte) || !Byte(&byte)) return false;
    *writable = byte == 'w';
    while (byte != '\n') {
      if (!Byte(&byte)) return false;
    }
    return true;
  }

  bool Failed() const { return failed_; }

 private:
  bool Byte(char* byte) {
    if (position_ == length_) {
      length_ = read(maps_, buffer_, sizeof buffer_);
      position_ = 0;
      failed_ = length_ < 0;
      if (length_ <= 0) return length_ = 0, false;
    }
    *byte = buffer_[position_++];
    return true;
  }

  bool Number(uint64_t* number, char* separator) {
    *number = 0;
    for (char byte;;) {
      if (!Byte(&byte)) return false;
      if (byte >= '0' && byte <= '9') {
        *number = *number << 4 | static_cast<uint64_t>(byte - '0');
      } else if (byte >= 'a' && byte <= 'f') {
        *number = *number << 4 | static_cast<uint64_t>(byte - 'a' + 10);
      } else {
        *separator = byte;
        return true;
      }
    }
  }

  int maps_;
  ssize_t length_ = 0;
  ssize_t position_ = 0;
  bool failed_ = false;
  char buffer_[4096];
};

Answer ReadMappings(int maps, Range range) {
  MapReader reader(maps);
  uint64_t start, end;
  bool writable;
  bool any = false;
  uint64_t at = range.first;
  while (reader.Next(&start, &end, &writable)) {
    any = true;
    if (end <= at) continue;
    if (start > at || !writable) return Answer::kNo;
    if (end > range.last) return Answer::kYes;
    at = end;
  }
  return any && !reader.Failed() ? Answer::kNo : Answer::kUnknown;
}

bool PreparePages(uintptr_t first, uintptr_t last) {
  constexpr int kPopulateWrite = 23;  // Linux 5.14
  first &= ~(kPage - 1);
  return madvise(reinterpret_cast<void*>(first), last - first + 1, kPopulateWrite) == 0;
}

// Where no map can be opened (no descriptor is left, or there is no /proc): the system is asked to
// prepare the pages for writing, which leaves what they hold as it is. A refusal counts when the
// same is granted for the stack.
Answer TryPages(Range range) {
  if (PreparePages(range.first, range.last)) return Answer::kYes;
  uintptr_t stack = reinterpret_cast<uintptr_t>(&range);
  return PreparePages(stack, stack) ? Answer::kNo : Answer::kUnknown;
}

// Whether a readable range can be written as well. What nobody can tell counts as writable.
bool IsWritable(Range range) {
  int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  Answer answer = Answer::kUnknown;
  if (maps >= 0) {
    answer = AskMappings(maps, range);
    if (answer == Answer::kUnknown) answer = ReadMappings(maps, range);
    close(maps);
  }
  if (answer == Answer::kUnknown) answer = TryPages(range);
  return answer != Answer::kNo;
}

bool RangeOf(const void* block, uintptr_t size, Range* range) {
  range->first = reinterpret_cast<uintptr_t>(block);
  range->last = range->first + (size - 1);
  return range->last >= range->first;
}

// Copies up to `size` bytes of memory that may not be there. Returns false when nothing is.
bool CopyReadable(char* copy, const char* from, size_t size) {
  iovec local = {copy, size};
  iovec remote = {const_cast<char*>(from), size};
  ssize_t count = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
  if (count == static_cast<ssize_t>(size)) return true;
  if (count >= 0 || errno == EFAULT) return false;
  // Not allowed here: the page is asked about first.
  Range range;
  RangeOf(from, size, &range);  // within a page
  if (!IsReadable(range)) return false;
  memcpy(copy, from, size);
  return true;
}

}  // namespace
}  // namespace posix_layer

BOOL IsBadReadPtr(const void* block, UINT_PTR size) {
  using namespace posix_layer;
  Range range;
  if (size == 0) return FALSE;
  return !(RangeOf(block, size, &range) && IsReadable(range));
}

BOOL IsBadWritePtr(void* block, UINT_PTR size) {
  using namespace posix_layer;
  Range range;
  if (size == 0) return FALSE;
  return !(RangeOf(block, size, &range) && IsReadable(range) && IsWritable(range));
}

BOOL IsBadStringPtrA(const char* text, UINT_PTR limit) {
  using namespace posix_layer;
  char copy[512];
  while (limit > 0) {
    // Never over the end of a page, behind which there may be nothing.
    size_t size = kPage - (reinterpret_cast<uintptr_t>(text) & (kPage - 1));
    size = std::min({size, sizeof copy, static_cast<size_t>(limit)});
    if (!CopyReadable(copy, text, size)) return TRUE;
    if (memchr(copy, 0, size)) return FALSE;
    text += size;
    limit -= size;
  }
  return FALSE;
}

size_t HeapBlockSize(void* block) { return malloc_usable_size(block); }

void ExpectScatteredUse(void* block, size_t size) {
  constexpr uintptr_t kLargePage = 2u << 20;
  uintptr_t first = (reinterpret_cast<uintptr_t>(block) + kLargePage - 1) & ~(kLargePage - 1);
  uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(kLargePage - 1);
  if (first < end) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

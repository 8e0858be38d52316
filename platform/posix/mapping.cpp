// Files and ranges of addresses in memory.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "platform/posix/file.h"
#include "platform/posix/handle.h"
#include "platform/posix/native.h"
#include "platform/posix/sharing.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

constexpr size_t kGranularity = 65536;
constexpr uint64_t kMostBytes = SIZE_MAX - 2 * kGranularity;

// What a view, or a mapping that waits for its views, holds of a file.
struct Extent {
  FileIdentity file;
  size_t size;   // bytes from the start of the file
  char* base;    // of a view; null for a mapping
  Extent* next;  // in the list of them all
};
Extent* extents = nullptr;

void Enter(Extent* extent) {
  extent->next = extents;
  extents = extent;
}

void Leave(const Extent* extent) {
  Extent** link = &extents;
  while (*link != extent) link = &(*link)->next;
  *link = extent->next;
}

struct Mapping {
  Extent extent;
  File* file;  // a reference; null for a range of addresses that nobody may touch
  DWORD protection;
  size_t grownFrom;  // bytes that the file had before the mapping extended it
};

// A growth of at least so much is made to be written soon: its pages are fetched in one call, up to
// that many bytes of them, instead of by a fault each.
constexpr size_t kLargeGrowth = 512 << 10;
constexpr size_t kFetched = 2 << 20;
#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23  // where the kernel does not know it, faults it is
#endif

void FetchGrowth(const Mapping& mapping, char* view) {
  size_t size = mapping.extent.size;
  if (mapping.protection != PAGE_READWRITE || size < kLargeGrowth ||
      mapping.grownFrom > size - kLargeGrowth)
    return;
  size_t from = mapping.grownFrom & ~(static_cast<size_t>(getpagesize()) - 1);
  madvise(view + from, std::min(size - from, kFetched), MADV_POPULATE_WRITE);
}

void CloseMapping(void* object) {
  Mapping* mapping = static_cast<Mapping*>(object);
  Leave(&mapping->extent);
  if (mapping->file) ReleaseFile(mapping->file);
  free(mapping);
}

constexpr HandleKind kMapping = {CloseMapping};

constexpr size_t RoundUp(size_t size, size_t unit) { return (size + unit - 1) / unit * unit; }

// Reserves disk space for a part of a file in steps, so that a signal costs one of them at most.
// Returns 0 or the errno.
int Allocate(int descriptor, uint64_t from, uint64_t to) {
  constexpr uint64_t kStep = 16 << 20;
  while (from < to) {
    uint64_t step = std::min(kStep, to - from);
    int result = fallocate64(descriptor, 0, static_cast<off64_t>(from), static_cast<off64_t>(step));
    if (result == 0) {
      from += step;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

// The same behind the end of a file on a file system that reserves nothing: by zero bytes.
int AppendZeroes(int descriptor, uint64_t from, uint64_t to) {
  static char zeroes[kGranularity];
  size_t written = 0;
  if (lseek64(descriptor, static_cast<off64_t>(from), SEEK_SET) < 0) return errno;
  int number = 0;
  while (number == 0 && from + written < to) {
    number = WriteAll(descriptor, zeroes,
                      static_cast<size_t>(std::min<uint64_t>(sizeof zeroes, to - from - written)),
                      &written);
  }
  return number;
}

// Makes sure that the first `size` bytes of a file are there and have their place on the disk: a
// page without one would end the process when it is written to. Only what is missing is touched;
// on a failure the file gets its old size back. ERROR_SUCCESS or the error.
DWORD Provide(int descriptor, uint64_t size, const struct statx& facts) {
  const uint64_t before = facts.stx_size;
  // With fewer blocks than it has bytes the file has holes, or it is compressed.
  const uint64_t placed = facts.stx_blocks * 512 < std::min(before, size) ? 0 : before;
  if (placed >= size) return ERROR_SUCCESS;
  NoWriteSignals guard;
  int number = Allocate(descriptor, placed, size);
  if (number == EOPNOTSUPP || number == ENOSYS) {
    number = AppendZeroes(descriptor, before, size);
  }
  if (number == 0 || size <= before) return ErrorFromErrno(number);
  // What another process has mapped of it meanwhile stays.
  DWORD error = Resize(descriptor, before);
  bool told = error == ERROR_SUCCESS || error == ERROR_USER_MAPPED_FILE;
  return told ? ErrorFromErrno(number) : error;
}

// Finds the size of a mapping of `size` bytes (0: all) of a file, and extends the file where that
// is allowed; `before` is what the file had. ERROR_SUCCESS or the error.
DWORD SizeFor(const File& file, DWORD protection, DWORD size, uint64_t* before, uint64_t* result) {
  struct statx facts;
  if (protection == PAGE_READWRITE) {
    int number = Look(file.descriptor, &facts);
    if (number != 0) return ErrorFromErrno(number);
  } else {
    off64_t end = lseek64(file.descriptor, 0, SEEK_END);
    if (end < 0) return ErrorFromErrno(errno);
    facts.stx_size = static_cast<uint64_t>(end);
  }
  *before = facts.stx_size;
  *result = size ? size : facts.stx_size;
  if (*result == 0) return ERROR_FILE_INVALID;
  if (*result > kMostBytes) return ERROR_NOT_ENOUGH_MEMORY;
  if (protection == PAGE_READWRITE) {
    return Provide(file.descriptor, *result, facts);
  }
  return *result > facts.stx_size ? ERROR_NOT_ENOUGH_MEMORY : ERROR_SUCCESS;
}

// Memory of `size` bytes as a file without a name. Null with the last error set.
File* MemoryFile(size_t size) {
  File* file = static_cast<File*>(malloc(sizeof(File)));
  if (!file) return Fail(ERROR_NOT_ENOUGH_MEMORY), nullptr;
  *file = {};
  file->references = 1;
  file->descriptor = memfd_create("mapping", MFD_CLOEXEC);
  int number = errno;
  if (file->descriptor >= 0) {
    NoWriteSignals guard;
    if (ftruncate64(file->descriptor, static_cast<off64_t>(size)) == 0) return file;
    number = errno;
    close(file->descriptor);
  }
  free(file);
  return Fail(ErrorFromErrno(number)), nullptr;
}

// Fills a mapping of memory; false with the last error set.
bool BindMemory(DWORD protection, bool reserve, DWORD size, Mapping* mapping) {
  if (size == 0) return Fail(ERROR_INVALID_PARAMETER);
  if (uint64_t{size} > kMostBytes) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  File* file = nullptr;
  if (!reserve && !(file = MemoryFile(size))) return false;
  *mapping = {{{}, size, nullptr, nullptr}, file, protection, size};
  return true;
}

// Fills a mapping of a file; false with the last error set.
bool BindFile(HANDLE handle, DWORD protection, DWORD size, Mapping* mapping) {
  File* file = FileOf(handle);
  if (!file) return false;
  DWORD needed = GENERIC_READ | (protection == PAGE_READWRITE ? GENERIC_WRITE : 0);
  if ((file->access & needed) != needed) return Fail(ERROR_ACCESS_DENIED);
  // What is there is only looked at once nobody cuts it any more.
  uint64_t before, total = size, claimed;
  do {
    if (total > 0 && !ClaimMapped(file->descriptor, total)) return Fail(ERROR_SHARING_VIOLATION);
    file->claimsMapped = true;
    claimed = total;
    DWORD error = SizeFor(*file, protection, size, &before, &total);
    if (error != ERROR_SUCCESS) return Fail(error);
  } while (total > claimed);
  ++file->references;
  *mapping = {{file->identity, static_cast<size_t>(total), nullptr, nullptr},
              file,
              protection,
              static_cast<size_t>(before)};
  return true;
}

// How a view is mapped: arguments of mmap.
struct Way {
  int protection;
  int flags;
  int descriptor;
};

// False when the mapping does not allow such a view, with the last error set.
bool WayOf(const Mapping& mapping, DWORD access, Way* way) {
  if (!(access & (FILE_MAP_COPY | FILE_MAP_WRITE | FILE_MAP_READ))) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  bool write = access & FILE_MAP_WRITE;
  if (write && mapping.protection != PAGE_READWRITE) return Fail(ERROR_ACCESS_DENIED);
  if (!mapping.file) {
    *way = {PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1};
  } else if (write) {
    *way = {PROT_READ | PROT_WRITE, MAP_SHARED, mapping.file->descriptor};
  } else if (access & FILE_MAP_COPY) {
    *way = {PROT_READ | PROT_WRITE, MAP_PRIVATE, mapping.file->descriptor};
  } else {
    *way = {PROT_READ, MAP_SHARED, mapping.file->descriptor};
  }
  return true;
}

// Maps at `base`, where nothing may be. Returns it, or null with errno set.
char* MapAt(char* base, size_t size, const Way& way) {
  void* view = mmap(base, size, way.protection, way.flags | MAP_FIXED_NOREPLACE, way.descriptor, 0);
  if (view == base) return base;
  if (view == MAP_FAILED) return nullptr;
  munmap(view, size);  // a kernel that takes the address as a wish
  return errno = EEXIST, nullptr;
}

// Where the last view began that was placed, or ended that was given back: the gap below is often
// free, and trying it is one system call where a search takes four.
uintptr_t gapEnd = 0;

// Maps at any multiple of the granularity. Returns the address, or null with errno set.
char* MapAnywhere(size_t size, const Way& way) {
  const size_t extent = RoundUp(size, kGranularity);
  if (gapEnd > extent + kGranularity) {
    if (char* view = MapAt(reinterpret_cast<char*>(gapEnd - extent), size, way)) return view;
  }
  // More than is needed, of which an aligned part is used and the rest is given back.
  void* block = mmap(nullptr, extent + kGranularity, PROT_NONE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (block == MAP_FAILED) return nullptr;
  char* start = static_cast<char*>(block);
  char* end = start + extent + kGranularity;
  char* base = start + (-reinterpret_cast<uintptr_t>(start) & (kGranularity - 1));
  if (mmap(base, size, way.protection, way.flags | MAP_FIXED, way.descriptor, 0) == MAP_FAILED) {
    int number = errno;
    munmap(start, extent + kGranularity);
    return errno = number, nullptr;
  }
  char* behind = base + RoundUp(size, static_cast<size_t>(getpagesize()));
  if (base > start) munmap(start, static_cast<size_t>(base - start));
  munmap(behind, static_cast<size_t>(end - behind));
  return base;
}

// Maps a view at `base`, or anywhere when that is null. Null with the last error set.
char* Place(char* base, size_t size, const Way& way) {
  uintptr_t address = reinterpret_cast<uintptr_t>(base);
  if (address % kGranularity || address > UINTPTR_MAX - size) {
    return Fail(ERROR_INVALID_ADDRESS), nullptr;
  }
  char* view = base ? MapAt(base, size, way) : MapAnywhere(size, way);
  if (!view) {
    int number = errno;
    bool taken = base && (number == EEXIST || number == EPERM || number == EINVAL);
    return Fail(taken ? ERROR_INVALID_ADDRESS : ErrorFromErrno(number)), nullptr;
  }
  if (!base) gapEnd = reinterpret_cast<uintptr_t>(view);
  return view;
}

}  // namespace

void EndViews() {
  while (extents) UnmapViewOfFile(extents->base);
}

bool IsMappedBeyond(const FileIdentity& identity, uint64_t size) {
  for (const Extent* extent = extents; extent; extent = extent->next) {
    if (extent->file == identity && extent->size > size) return true;
  }
  return false;
}

}  // namespace posix_layer

HANDLE CreateFileMappingA(HANDLE file, SECURITY_ATTRIBUTES*, DWORD protection, DWORD sizeHigh,
                          DWORD sizeLow, const char*) {
  using namespace posix_layer;
  bool reserve = protection & SEC_RESERVE;
  protection &= ~SEC_RESERVE;
  if ((protection != PAGE_READONLY && protection != PAGE_READWRITE &&
       protection != PAGE_WRITECOPY) ||
      sizeHigh != 0) {
    return Fail(ERROR_INVALID_PARAMETER), nullptr;
  }
  // Everything that can fail comes before the file is extended.
  if (!ReserveHandles(1)) return nullptr;
  Mapping* mapping = static_cast<Mapping*>(malloc(sizeof(Mapping)));
  if (!mapping) return Fail(ERROR_NOT_ENOUGH_MEMORY), nullptr;
  bool bound = file == INVALID_HANDLE_VALUE ? BindMemory(protection, reserve, sizeLow, mapping)
                                            : BindFile(file, protection, sizeLow, mapping);
  if (!bound) {
    free(mapping);
    return nullptr;
  }
  Enter(&mapping->extent);
  return OpenHandle(kMapping, mapping);
}

void* MapViewOfFileEx(HANDLE handle, DWORD access, DWORD offsetHigh, DWORD offsetLow, size_t size,
                      void* base) {
  using namespace posix_layer;
  if (offsetHigh || offsetLow || size) return Fail(ERROR_INVALID_PARAMETER), nullptr;
  Mapping* mapping = static_cast<Mapping*>(HandleObject(handle, kMapping));
  Way way;
  if (!mapping || !WayOf(*mapping, access, &way)) return nullptr;
  Extent* view = static_cast<Extent*>(malloc(sizeof(Extent)));
  if (!view) return Fail(ERROR_NOT_ENOUGH_MEMORY), nullptr;
  *view = mapping->extent;
  view->base = Place(static_cast<char*>(base), view->size, way);
  if (!view->base) {
    free(view);
    return nullptr;
  }
  Enter(view);
  FetchGrowth(*mapping, view->base);
  return view->base;
}

BOOL UnmapViewOfFile(const void* view) {
  using namespace posix_layer;
  Extent* extent = extents;
  while (extent && (!extent->base || extent->base != view)) extent = extent->next;
  if (!extent) return Fail(ERROR_INVALID_ADDRESS);
  // munmap fails where memory for cutting a joined mapping is missing. The pages are replaced then,
  // so that the file is let go of. Where that fails too, the view stays as it is.
  if (munmap(extent->base, extent->size) != 0 &&
      mmap(extent->base, extent->size, PROT_NONE,
           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0) == MAP_FAILED) {
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
  }
  gapEnd = reinterpret_cast<uintptr_t>(extent->base) + RoundUp(extent->size, kGranularity);
  Leave(extent);
  free(extent);
  return TRUE;
}

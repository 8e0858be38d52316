#include "quern/cfile/map.h"

#include <algorithm>

#include "quern/cerr.h"
#include "quern/cfile/object.h"
#include "quern/csys.h"

namespace quern {

void (*FileMappedHook)(FileObject* file);

namespace {

constexpr char kModule[] = "cfile";

constexpr uint32_t kNotLoaded = 25;  // messages
constexpr uint32_t kNotRemapped = 26;
constexpr uint32_t kNotAtPlace = 27;
constexpr uint32_t kNotRemoved = 28;
constexpr uint32_t kTooLarge = 30;

// Rounded up to the allocation granularity.
uint64_t Rounded(uint64_t size) {
  return (size + SysAllocGranularity - 1) / SysAllocGranularity * SysAllocGranularity;
}

// A mapping of addresses without storage. Null on failure; a size of 0 is one.
HANDLE ReserveMapping(uint32_t size) {
  return CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY | SEC_RESERVE, 0, size,
                            nullptr);
}

// A mapping of a file. Without one some systems would take memory in its place.
HANDLE FileMapping(HANDLE file, DWORD protection, uint32_t size) {
  if (file) return CreateFileMappingA(file, nullptr, protection, 0, size, nullptr);
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

char* View(HANDLE mapping, DWORD access, char* base) {
  return static_cast<char*>(MapViewOfFileEx(mapping, access, 0, 0, 0, base));
}

// A view counts as mapped while its mapping is open: an address that is only remembered is not
// released.
bool Unmap(const char* view, HANDLE mapping) { return mapping && UnmapViewOfFile(view); }
bool Close(HANDLE mapping) { return mapping && CloseHandle(mapping); }

// What keeps other threads of the process away while the range is unguarded.
class Urgent {
 public:
  Urgent() : thread_(GetThreadPriority(GetCurrentThread())) {
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    if (SysPlatformId == VER_PLATFORM_WIN32_NT) return;
    process_ = GetPriorityClass(GetCurrentProcess());
    SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS);
  }
  void Restore() {
    if (SysPlatformId != VER_PLATFORM_WIN32_NT) SetPriorityClass(GetCurrentProcess(), process_);
    SetThreadPriority(GetCurrentThread(), thread_);
  }

 private:
  int thread_;
  DWORD process_ = 0;
};

// How the file is mapped, by its flags.
struct Access {
  DWORD protection;
  DWORD view;
  int32_t failure;
};

Access AccessOf(uint32_t flags) {
  if (flags & FO_READ) return {PAGE_READONLY, FILE_MAP_READ, 10};
  if (flags & FO_WRITE) return {PAGE_READWRITE, FILE_MAP_WRITE, 11};
  if (flags & FO_ZERO_END) return {PAGE_WRITECOPY, FILE_MAP_COPY, 12};
  return {0, 0, 13};
}

int32_t UnmapAll(FileObject* file) {
  int32_t result = 0;
  if (file->hExtMap) {
    Unmap(file->pExtView, file->hExtMap);
    file->pExtView = nullptr;
    bool closed = Close(file->hExtMap);
    file->hExtMap = nullptr;
    if (!closed) {
      ErrRaiseText(kModule, 441, ERR_LIBRARY | ERR_SYSTEM | 5, kNotRemoved);
      result = 5;
    }
  }
  if (file->hMap) {
    Unmap(file->pView, file->hMap);
    file->pView = nullptr;
    bool closed = Close(file->hMap);
    file->hMap = nullptr;
    if (!closed) {
      ErrRaiseText(kModule, 450, ERR_LIBRARY | ERR_SYSTEM | 6, kNotRemoved);
      result = 6;
    }
  }
  return result;
}

// Reserves a range for the largest size, whose first view is a stand-in for the file's. False after
// a raise.
bool ReserveRange(FileObject* file) {
  uint32_t size = static_cast<uint32_t>(Rounded(file->nMaxSize - SysPageSize));
  HANDLE mapping = ReserveMapping(size);
  if (!mapping) return ErrRaise(kModule, 471, 1), false;
  char* view = View(mapping, FILE_MAP_READ, nullptr);
  if (!view) {
    ErrRaise(kModule, 474, 2);
    CloseHandle(mapping);
    return false;
  }
  auto address = reinterpret_cast<uintptr_t>(view);
  char* aligned = view + (Rounded(address) - address);
  if (aligned != view) {
    Sleep(0);
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    mapping = ReserveMapping(file->nMaxSize);
    if (!mapping)
      return ErrRaiseText(kModule, 483, ERR_LIBRARY | ERR_SYSTEM | 3, kNotRemapped), false;
    view = View(mapping, FILE_MAP_READ, aligned);
    if (!view) {
      ErrRaiseText(kModule, 486, ERR_LIBRARY | ERR_SYSTEM | 4, kNotRemapped);
      CloseHandle(mapping);
      return false;
    }
  }
  file->pView = view;
  file->hMap = mapping;
  return true;
}

// Releases both views; their addresses stay as the base of what comes. 0 or the number of the first
// failure.
uint32_t ReleaseViews(FileObject* file) {
  uint32_t first = 0;
  auto note = [&first](bool done, uint32_t number) {
    if (!done && first == 0) first = number;
  };
  if (file->pExtView) {
    note(Unmap(file->pExtView, file->hExtMap), 10);
    note(Close(file->hExtMap), 11);
    file->hExtMap = nullptr;
  }
  if (file->pView) {
    note(Unmap(file->pView, file->hMap), 12);
    note(Close(file->hMap), 13);
    file->hMap = nullptr;
  }
  return first;
}

int32_t MapAnew(FileObject* file, uint32_t size) {
  ErrLast = 0;
  Urgent urgent;
  uint32_t mapped = size;
  if (file->fFlags & (FO_WRITE | FO_KEEP_NAME)) {
    uint64_t rounded = Rounded(uint64_t{size} + file->nGrow);
    mapped = static_cast<uint32_t>(std::min<uint64_t>(rounded, UINT32_MAX));
    FileReserve(mapped);
    if (ErrLast != 0) return ErrRaise(kModule, 382, 2);  // with the priority left as it is
    if (!(file->fFlags & FO_WRITE)) mapped = size;
  }
  char* base = file->pView;
  HANDLE former = file->hMap;  // of a view that is still at the base, where nothing else fits
  Access access = AccessOf(file->fFlags);
  int32_t failure = 0;
  if (access.protection != 0) {
    file->hMap = FileMapping(file->hFile, access.protection, mapped);
    if (!file->hMap) {
      failure = access.failure;
      ErrRaise(kModule, 401, ERR_SYSTEM | static_cast<uint32_t>(failure));
    }
    file->pView = file->hMap ? View(file->hMap, access.view, base) : nullptr;
    Unmap(base, former);
    Close(former);
  } else {
    failure = access.failure;
    ErrRaise(kModule, 406, static_cast<uint32_t>(failure));
  }
  if (!file->pView) {
    ErrRaiseText(kModule, 412, ERR_LIBRARY | 2, kNotLoaded);
    UnmapAll(file);
    failure = 2;
  } else if (base && file->pView != base) {
    ErrRaiseText(kModule, 418, ERR_LIBRARY | ERR_SYSTEM | 3, kNotAtPlace);
    UnmapAll(file);
    failure = 4;
  }
  urgent.Restore();
  file->nMapped = mapped;
  return failure;
}

}  // namespace

int32_t FileMap(uint32_t size) {
  FileObject* file = CurrentFile;
  if (!file) return 0;
  int32_t failure = size == 0 ? UnmapAll(file) : MapAnew(file, size);
  if (FileMappedHook) FileMappedHook(file);
  return failure;
}

int32_t FileReserve(uint32_t size) {
  FileObject* file = CurrentFile;
  if (!file) return 0;
  file->nMapped = 0;
  if (!file->pView && !ReserveRange(file)) return -ErrLast;
  Sleep(0);
  if (uint32_t first = ReleaseViews(file)) {
    ErrPush(first);
    return ErrRaise(kModule, 521, 5);
  }
  uint64_t extent = Rounded(size);
  if (extent > kLargestFile) return ErrRaiseText(kModule, 526, 14, kTooLarge, kLargestFile / 1000);
  if (extent >= file->nMaxSize) {  // nothing is left for a reserve
    file->pExtView = nullptr;
    return 0;
  }
  file->hExtMap = ReserveMapping(file->nMaxSize - static_cast<uint32_t>(extent));
  if (!file->hExtMap)
    return ErrRaiseText(kModule, 531, ERR_LIBRARY | ERR_SYSTEM | 15, kNotRemapped);
  file->pExtView = View(file->hExtMap, FILE_MAP_READ, file->pView + extent);
  if (!file->pExtView) {
    ErrRaiseText(kModule, 535, ERR_LIBRARY | ERR_SYSTEM | 16, kNotRemapped);
    CloseHandle(file->hExtMap);
    file->hExtMap = nullptr;
    return -ErrLast;
  }
  return 0;
}

LONG WINAPI FileFaultFilter(void* /*unused*/, EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception ? exception->ExceptionRecord : nullptr;
  if (!record || static_cast<DWORD>(record->ExceptionCode) != EXCEPTION_ACCESS_VIOLATION) return 0;
  const FileObject* file = CurrentFile;
  if (!file || !file->pView || file->nGrow == 0 || file->nMaxSize == 0) return 0;
  uintptr_t offset = record->ExceptionInformation[1] - reinterpret_cast<uintptr_t>(file->pView);
  if (offset > file->nMaxSize - 1) return 0;
  // Growing makes nothing writable: a write that the view forbids would fail for ever.
  constexpr UINT_PTR kWrite = 1;
  bool forbidden = (file->fFlags & FO_READ) && record->ExceptionInformation[0] == kWrite;
  if (forbidden && offset < file->nMapped) return 0;
  uint64_t wanted = (offset + uint64_t{file->nGrow}) / file->nGrow * file->nGrow;
  if (FileMap(static_cast<uint32_t>(std::min<uint64_t>(wanted, UINT32_MAX))) == 0) return -1;
  return ErrRaise(kModule, 561, 1);
}

}  // namespace quern

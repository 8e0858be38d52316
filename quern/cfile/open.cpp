#include "quern/cfile/open.h"

#include <cstdlib>

#include "quern/cerr.h"
#include "quern/cfile/backup.h"
#include "quern/cfile/map.h"
#include "quern/cfile/name.h"
#include "quern/cobj.h"
#include "quern/csys.h"

namespace quern {

FileObject* CurrentFile;

namespace {

constexpr char kModule[] = "cfile";

constexpr uint32_t kIllegalMode = 29;  // messages
constexpr uint32_t kOpenFailed = 31;

// What an access value means.
struct Mode {
  uint32_t access;
  uint32_t kind;  // of a mapped file: its part of the error code
  DWORD rights;   // GENERIC_
  DWORD sharing;  // FILE_SHARE_
  DWORD disposition;
  uint32_t streamKind;
  const char* stream;  // mode of the runtime; null: not for streams
};
constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
const Mode kModes[] = {
    {1, 1, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 1, "rb"},
    {2, 6, kBoth, FILE_SHARE_READ, OPEN_EXISTING, 2, "r+b"},
    {16, 4, kBoth, FILE_SHARE_READ, CREATE_NEW, 4, "wbx"},
    {18, 7, kBoth, FILE_SHARE_READ, OPEN_ALWAYS, 6, "a+b"},
    {32, 3, kBoth, FILE_SHARE_READ, CREATE_ALWAYS, 3, "wb"},
    {64, 5, kBoth, FILE_SHARE_READ, TRUNCATE_EXISTING, 5, "r+b"},
};

// Null when there is no such access value.
const Mode* ModeOf(uint32_t flags) {
  uint32_t access = flags & FO_ACCESS;
  if (access == FO_KEEP_NAME) access = FO_READ;
  if (access == (FO_KEEP_NAME | FO_READ)) access = FO_READ;
  if (access == (FO_KEEP_NAME | FO_WRITE)) access = FO_WRITE;
  for (const Mode& mode : kModes)
    if (mode.access == access) return &mode;
  return nullptr;
}

// Kinds 1 and 2 count as reading, also the stream that could write.
uint32_t AccessFlag(uint32_t kind) { return kind <= 2 ? FO_READ : FO_WRITE; }

// The size of a file that was opened. A file whose size cannot be told, or takes more than 32 bits,
// is closed again: closing it later would cut it.
bool SizeOf(HANDLE handle, uint32_t* size) {
  DWORD high = 0;
  SetLastError(ERROR_SUCCESS);
  *size = GetFileSize(handle, &high);
  if (high != 0) SetLastError(ERROR_FILE_TOO_LARGE);
  DWORD reason = GetLastError();
  if (high == 0 && reason == ERROR_SUCCESS) return true;
  CloseHandle(handle);
  SetLastError(reason);
  return false;
}

void LetGo(FileObject* file) {
  if (file->hFile) CloseHandle(file->hFile);
  file->hFile = nullptr;
}

// Whether an open that failed may be tried once more: a file that is opened again keeps its former
// handle until the new one is there, unless that handle is what is in the way.
bool MayRetry(FileObject* file, bool again) {
  if (!again || !file->hFile || GetLastError() != ERROR_SHARING_VIOLATION) return false;
  LetGo(file);
  return true;
}

bool OpenMapped(FileObject* file, const char* name, uint32_t flags, bool again) {
  const Mode* mode = ModeOf(flags);
  if (!mode) return ErrRaiseText(kModule, 187, ERR_LIBRARY | 0x13, kIllegalMode), false;
  HANDLE handle;
  do {
    handle = CreateFileA(name, mode->rights, mode->sharing, nullptr, mode->disposition,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  } while (handle == INVALID_HANDLE_VALUE && MayRetry(file, again));
  uint32_t size = 0;
  if (handle == INVALID_HANDLE_VALUE || !SizeOf(handle, &size)) {
    ErrRaiseText(kModule, 193, ERR_SYSTEM | (mode->kind + 10), kOpenFailed, name);
    return false;
  }
  LetGo(file);
  file->hFile = handle;
  file->nSize = size;
  file->nOpenSize = size;
  file->fFlags = flags | AccessFlag(mode->kind);
  return true;
}

bool OpenStreamed(FileObject* file, const char* name, uint32_t flags, bool again) {
  const Mode* mode = ModeOf(flags);
  if (!mode) return ErrRaiseText(kModule, 203, ERR_LIBRARY | 0x1D, kIllegalMode), false;
  FILE* stream;
  do {
    stream = OpenStream(name, mode->stream);
  } while (!stream && MayRetry(file, again));
  if (!stream) {
    if (mode->access == FO_CREATE_NEW && GetLastError() == ERROR_FILE_EXISTS)
      return ErrRaise(kModule, 208, 24), false;
    ErrRaiseText(kModule, 214, mode->streamKind + 20, kOpenFailed, name);
    return false;
  }
  long end = fseek(stream, 0, SEEK_END) == 0 ? ftell(stream) : -1;
  if (end < 0) {
    ErrRaise(kModule, 218, 20);
    CloseStream(stream);
    return false;
  }
  if (again) LetGo(file);
  if (file->pStream) CloseStream(file->pStream);
  file->pStream = stream;
  file->nStreamAux = 0;
  file->nSize = static_cast<uint32_t>(end);
  file->nOpenSize = file->nSize;
  file->fFlags = flags | AccessFlag(mode->streamKind);
  return true;
}

FileNameRec* NameRecord(FileObject* file) {
  if (!file->pName) file->pName = static_cast<FileNameRec*>(calloc(1, sizeof(FileNameRec)));
  return file->pName;
}

uint32_t GrowthOf(uint32_t flags, uint32_t size) {
  switch (flags & FO_GROW_MASK) {
    case FO_GROW_NONE:
      return 0;
    case FO_GROW_10K:
      return 10'000;
    case FO_GROW_100K:
      return 100'000;
    case FO_GROW_1M:
      return 1'000'000;
    case FO_GROW_5M:
      return 5'000'000;
    case FO_GROW_10M:
      return 10'000'000;
    case FO_GROW_TENTH:
      return static_cast<uint32_t>(size * 0.1);
    case FO_GROW_THIRD:
      return static_cast<uint32_t>(size * 0.3);
    case FO_GROW_HALF:
      return static_cast<uint32_t>(size * 0.5);
    case FO_GROW_TWICE:
      return size;
    default:
      return SysPageSize;
  }
}

void CloseHandles(FileObject* file) {
  LetGo(file);
  if (file->pStream) CloseStream(file->pStream);
  DropBackup(file);
  free(file->pName);
  file->pStream = nullptr;
  file->pName = nullptr;
}

// Cuts the file to a size. Where the position is not reached nothing is cut.
bool Cut(HANDLE file, uint32_t size, DWORD* seekError) {
  SetLastError(ERROR_SUCCESS);
  SetFilePointer(file, static_cast<LONG>(size), nullptr, FILE_BEGIN);
  *seekError = GetLastError();
  return *seekError == ERROR_SUCCESS && SetEndOfFile(file);
}

void SetEnd(FileObject* file) {
  if (!(file->fFlags & FO_MAPPED)) {
    if (!file->pStream || fseek(file->pStream, static_cast<long>(file->nSize), SEEK_SET) != 0)
      ErrRaise(kModule, 271, 4);
    return;
  }
  DWORD seekError;
  bool done = Cut(file->hFile, file->nSize, &seekError);
  DWORD reason = GetLastError();
  if (seekError != ERROR_SUCCESS) ErrRaise(kModule, 264, ERR_SYSTEM | 2);
  SetLastError(reason);
  if (!done) ErrRaise(kModule, 266, ERR_SYSTEM | 3);
}

}  // namespace

FileObject* FileSelect(void* object) {
  auto* made = static_cast<FileObject*>(
      ClsAttach(kFileTag, object, kFileClass, sizeof(FileObject), FileClass));
  if (!made) return ErrRaise(kModule, 102, 1000), nullptr;
  return CurrentFile = made;
}

FileObject* FileOpen(void* object, const char* name, uint32_t flags) {
  if (flags == FO_EXISTS) {
    FILE* stream = name ? OpenStream(name, "rb") : nullptr;
    if (!stream) return nullptr;
    CloseStream(stream);
    static FileObject exists;  // any address will do
    return &exists;
  }
  const bool again = !name;
  if (!again) {
    ErrLast = 0;
    if (!FileSelect(object)) return ErrRaise(kModule, 131, 1), nullptr;
    // Without these flags an old record stays as it is, for an open that asks for one again.
    if (flags & (FO_KEEP_NAME | FO_NAME | FO_BACKUP)) {
      if (FileSplitPath(name, NameRecord(CurrentFile)) != 0)
        return ErrRaise(kModule, 139, 2), nullptr;
    }
    if ((flags & FO_BACKUP) && !BackUp(CurrentFile)) return nullptr;
  } else {
    if (!CurrentFile) return ErrRaise(kModule, 170, 6), nullptr;
    if (!CurrentFile->pName) return ErrRaise(kModule, 171, 7), nullptr;
    name = CurrentFile->pName->szFull;
  }
  FileObject* file = CurrentFile;
  const uint32_t formerFlags = file->fFlags;
  if (!(flags & FO_MAPPED ? OpenMapped : OpenStreamed)(file, name, flags, again)) return nullptr;
  if ((flags & FO_STAT) && FileStat(name, NameRecord(file)) != 0) {
    // The view is still that of the former open: of the same file, or of another one.
    if (file->hMap && again) file->fFlags = formerFlags;
    if (file->hMap && !again) FileMap(0);
    return ErrRaise(kModule, 228, 3), nullptr;
  }
  uint32_t mapSize = file->nSize;
  if (file->fFlags & (FO_WRITE | FO_KEEP_NAME)) {
    if (file->nGrow == 0) file->nGrow = GrowthOf(file->fFlags, file->nSize);
    if (mapSize == 0) mapSize = file->nGrow;
    if (file->nMaxSize == 0) file->nMaxSize = kLargestFile;
  }
  if (flags & FO_MAPPED) {
    if (FileMap(mapSize) != 0) return ErrRaise(kModule, 241, 7), nullptr;
    bool behind = file->hMap && file->nMapped > file->nSize && (file->fFlags & FO_WRITE);
    if ((flags & FO_ZERO_END) && behind) file->pView[file->nSize] = '\0';
  }
  return CurrentFile;
}

uint32_t FileClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kFileTag);
  auto* object = reinterpret_cast<FileObject*>(argument);
  if (object && !ClsLinked(kFileTag, kFileClass, object)) return 0;  // it was closed before
  if (object) CurrentFile = object;
  FileObject* file = CurrentFile;
  if (!file) return 0;
  if (file->hMap || file->hExtMap) FileMap(0);
  if (file->fFlags & FO_WRITE && !IsInherited(file->hFile, file->pStream)) SetEnd(file);
  CloseHandles(file);
  for (InstanceHeader* at = ClassLists[kScanClass]; at; at = at->pNext) {
    auto* scanner = reinterpret_cast<FileScanner*>(at);
    if (scanner->pFile == file) scanner->pFile = nullptr;
  }
  if (FileScanner* scanner = file->pScanner) {
    file->pScanner = nullptr;
    scanner->pFile = nullptr;
    if (scanner->header.proc) scanner->header.proc(reinterpret_cast<uintptr_t>(scanner));
    // What went with the scanner may have closed the file.
    if (!ClsLinked(kFileTag, kFileClass, file)) return 0;
    CurrentFile = file;
  }
  ClsDetach(kFileTag, &CurrentFile);
  return 0;
}

int32_t FileRevert() {
  FileObject* file = CurrentFile;
  if (!file) return ErrRaise(kModule, 301, 1);
  file->nReverted = 1;
  if (IsInherited(file->hFile, file->pStream)) {  // the parent's to revert
    FileClass(reinterpret_cast<uintptr_t>(file));
    return 0;
  }
  if (file->pView) FileMap(0);
  DWORD ignored;
  Cut(file->hFile, file->nOpenSize, &ignored);
  if (file->hFile) CloseHandle(file->hFile);
  file->hFile = nullptr;
  bool put = true;
  DWORD reason = ERROR_SUCCESS;
  if (file->pszBackup) {
    put = PutBack(file);
    reason = GetLastError();
  }
  FileClass(reinterpret_cast<uintptr_t>(file));
  if (put) return 0;
  SetLastError(reason);
  return ErrRaise(kModule, 318, ERR_SYSTEM | 2);
}

}  // namespace quern

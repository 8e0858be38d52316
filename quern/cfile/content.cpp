#include "quern/cfile/content.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cfile/map.h"
#include "quern/cfile/open.h"
#include "quern/cmem/edit.h"
#include "quern/cmem/format.h"
#include "quern/cmem/search.h"

namespace quern {

void (*FileResizedHook)(FileObject* file);

namespace {

constexpr char kModule[] = "cfile";

bool Seek(FileObject* file, uint64_t offset) {
  return offset <= INT32_MAX && fseek(file->pStream, static_cast<long>(offset), SEEK_SET) == 0;
}

// The bytes behind the old range of an edit in a stream.
struct Tail {
  Tail() = default;
  ~Tail() { free(bytes); }
  Tail(const Tail&) = delete;
  Tail& operator=(const Tail&) = delete;

  char* bytes = nullptr;
  uint32_t start = 0;  // where they begin in the file. Compat: as many are written back
  uint32_t size = 0;
  long position = 0;  // of the stream before the edit
};

// False after a raise.
bool ReadTail(FileObject* file, uint32_t pos, uint32_t length, Tail* tail) {
  if (pos > file->nSize) return ErrRaise(kModule, 801, 1), false;
  tail->position = ftell(file->pStream);
  uint64_t start = uint64_t{pos} + length;
  if (!Seek(file, start)) return ErrRaise(kModule, 804, 3), false;
  tail->start = static_cast<uint32_t>(start);
  uint32_t behind = file->nSize - std::min(file->nSize, tail->start);
  tail->size = std::max(tail->start, behind);
  tail->bytes = static_cast<char*>(calloc(1, std::max(tail->size, 1u)));
  if (!tail->bytes) return ErrRaise(kModule, 806, 4), false;
  if (fread(tail->bytes, 1, behind, file->pStream) < behind) clearerr(file->pStream);
  Seek(file, pos);
  return true;
}

// Whether the stream took everything.
bool WriteTail(FileObject* file, const void* newBytes, uint32_t newLength, const Tail& tail) {
  size_t wanted = tail.start, written = 0;
  if (newBytes) {
    wanted += newLength;
    written = fwrite(newBytes, 1, newLength, file->pStream);
  } else {
    fseek(file->pStream, static_cast<long>(newLength), SEEK_CUR);  // what stands there stays
  }
  written += fwrite(tail.bytes, 1, tail.start, file->pStream);
  bool sought = fseek(file->pStream, tail.position, SEEK_SET) == 0;  // writes what is buffered
  if (written == wanted && sought) return true;
  clearerr(file->pStream);
  return false;
}

// The mapped bytes; null when nothing is mapped, and pView a mere address.
char* ViewOf(const FileObject* file) { return file->hMap ? file->pView : nullptr; }

// Whether an edit can touch the first `reach` bytes of the view. Raises 2 when they are not all
// mapped, or for reading. Without a view MemReplace raises.
bool MayTouch(const FileObject* file, uint64_t reach) {
  bool writable = (file->fFlags & (FO_READ | FO_WRITE)) == FO_WRITE && reach <= file->nMapped;
  if (writable || !ViewOf(file)) return true;
  return ErrRaise(kModule, 823, 2), false;
}

// By how many bytes an edit at the limit is cut: by where a separator begins in the last `kept`
// bytes of the data. `readable` bytes are the file's own from there on; the search tries the byte
// behind its block, too.
uint32_t CutOf(const FileObject* file, const char* region, uint32_t kept, uint32_t readable) {
  auto offsetOf = [&](const char* separator, uint32_t length) {
    length = std::min(length, readable - std::min(readable, 1u));
    return MemFindOfs(region, length, separator, static_cast<uint32_t>(strlen(separator)),
                      MEM_BACKWARD);
  };
  switch (file->fFlags & FO_SEP_MASK) {
    case FO_SEP_SECTION: {
      uint32_t offset = offsetOf("[", file->nSize);
      return offset != 0 ? offset - 1 : 0;
    }
    case FO_SEP_BLOCK:  // without one a search for a line end would follow, over no bytes at all
      return offsetOf("\r\n\r\n", kept);
    case FO_SEP_LINE:
      return offsetOf("\r\n", kept);
    default:
      return 0;
  }
}

// An edit that would pass the largest size. False when the stream did not take it, or ErrLast is
// set.
bool EditAtLimit(FileObject* file, char* pos, uint32_t length, const void* newBytes,
                 uint32_t newLength, const Tail& tail) {
  FileResize(static_cast<int32_t>(file->nMaxSize - file->nSize));
  if (ErrLast != 0 && !tail.bytes) return false;
  auto offset = static_cast<uint32_t>(pos - file->pView);
  const bool empty = (length | newLength) == 0;
  newLength = std::min(newLength, file->nMaxSize - std::min(offset, file->nMaxSize));
  bool written = true;
  if (tail.bytes) {
    written = WriteTail(file, newBytes, newLength, tail);
  } else if (empty || MayTouch(file, file->nMaxSize)) {
    // What would move beyond the mapped bytes is cut.
    uint32_t growth = newLength - std::min(newLength, length);
    uint32_t size = file->nMapped - std::min(file->nMapped, growth);
    MemReplace(ViewOf(file), std::min(file->nMaxSize, size), pos, length, newBytes, newLength, 0);
  }
  if (ErrLast != 0 || !written) return false;
  uint32_t kept = std::min(file->nSize - newLength - offset, newLength);
  const char* region;
  uint32_t readable;  // bytes from there on
  if (tail.bytes) {
    kept = std::min(kept, tail.start);
    region = tail.bytes + tail.start - kept;
    readable = tail.size - tail.start + kept;
  } else {
    uint32_t start = file->nSize - kept;
    region = file->pView + start;
    readable = file->nMapped - std::min(file->nMapped, start);
  }
  if (uint32_t cut = CutOf(file, region, kept, readable)) FileResize(-static_cast<int32_t>(cut));
  return true;
}

}  // namespace

int32_t FileResize(int32_t delta) {
  ErrLast = 0;
  FileObject* file = CurrentFile;
  if (!file) return ErrRaise(kModule, 755, 1);
  uint32_t size = file->nSize + static_cast<uint32_t>(delta);
  if (size > file->nMaxSize) return ErrRaise(kModule, 757, 1);
  if ((file->fFlags & FO_KEEP_NAME) && (file->fFlags & FO_READ)) {
    uint32_t flags = (file->fFlags & ~FO_ACCESS) | FO_KEEP_NAME | FO_WRITE;
    if (!FileOpen(file, nullptr, flags)) return ErrRaise(kModule, 761, 2);
  }
  if (file->fFlags & FO_STREAMED) {
    if (file->pStream) {
      long position = ftell(file->pStream);
      Seek(file, size);
      fseek(file->pStream, position, SEEK_SET);
    }
  } else if (size > file->nMapped) {
    if (file->nGrow == 0) return ErrRaise(kModule, 770, 3);
    if (FileMap(size) != 0) return ErrRaise(kModule, 771, 4);
  }
  file->nSize = size;
  file->nDelta += static_cast<uint32_t>(delta);
  if (file->pScanner && FileResizedHook) FileResizedHook(file);
  return 0;
}

int32_t FileReplace(char* pos, uint32_t length, const void* newBytes, uint32_t newLength) {
  ErrLast = 0;
  FileObject* file = CurrentFile;
  if (!file) return ErrRaise(kModule, 800, 1), 0;
  auto change = static_cast<int32_t>(newLength - length);
  Tail tail;
  if (file->pStream) {
    auto offset = reinterpret_cast<uintptr_t>(pos);
    if (!ReadTail(file, offset <= UINT32_MAX ? static_cast<uint32_t>(offset) : UINT32_MAX, length,
                  &tail))
      return 0;
  } else {
    auto offset = static_cast<uintptr_t>(pos - file->pView);
    auto source = static_cast<uintptr_t>(static_cast<const char*>(newBytes) - file->pView);
    if (offset > file->nSize) return ErrRaise(kModule, 812, 1), 0;
    if (source <= file->nSize) return ErrRaise(kModule, 814, 2), 0;
  }
  uint32_t oldSize = file->nSize;
  int64_t size = int64_t{oldSize} + newLength - length;
  if (size > file->nMaxSize) {
    if (!EditAtLimit(file, pos, length, newBytes, newLength, tail))
      return ErrRaise(kModule, 846, 6), 0;
    return change;
  }
  FileResize(change);
  bool written = true;
  if (tail.bytes && size < 0) {  // more than there is
    fseek(file->pStream, tail.position, SEEK_SET);
  } else if (tail.bytes) {
    written = WriteTail(file, newBytes, newLength, tail);
  } else if (ErrLast == 0) {
    uint64_t reach = std::max<uint64_t>(oldSize, static_cast<uint64_t>(size));
    if ((length | newLength) == 0 || MayTouch(file, reach))
      MemReplace(ViewOf(file), oldSize, pos, length, newBytes, newLength, 0);
  }
  if (ErrLast != 0 || !written) return ErrRaise(kModule, 829, 5), 0;
  return change;
}

int32_t FileFormatList(char* pos, uint32_t length, const char* format, va_list arguments) {
  FormatCall call = ResolveFormat(format, arguments);
  va_list again;
  va_copy(again, call.arguments);
  // Format and arguments may lie in the file, so the text is made elsewhere.
  char buffer[1024];
  char* text = buffer;
  int size = FormatText(buffer, sizeof buffer, call.format, call.arguments);
  if (size >= static_cast<int>(sizeof buffer)) {
    text = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
    if (text) FormatText(text, static_cast<size_t>(size) + 1, call.format, again);
  }
  va_end(again);
  if (!text || size < 0) return ErrRaise(kModule, 872, 4), 0;
  int32_t change = FileReplace(pos, length, text, static_cast<uint32_t>(size));
  if (text != buffer) free(text);
  return change;
}

int32_t FileVPrintf(char* pos, uint32_t length, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int32_t change = FileFormatList(pos, length, format, arguments);
  va_end(arguments);
  return change;
}

int32_t FilePrintf(char* pos, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int32_t change = FileFormatList(pos, 0, format, arguments);
  va_end(arguments);
  return change;
}

int32_t FileAppendf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* end = CurrentFile ? CurrentFile->pView + CurrentFile->nSize : nullptr;
  int32_t change = FileFormatList(end, 0, format, arguments);
  va_end(arguments);
  return change;
}

}  // namespace quern

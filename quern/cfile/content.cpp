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
  uint32_t start = 0;  // where they begin in the file; as many are written back, on purpose
  uint32_t room = 0;
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
  tail->room = std::max(tail->start, behind);
  tail->bytes = static_cast<char*>(calloc(1, std::max(tail->room, 1u)));
  if (!tail->bytes) return ErrRaise(kModule, 806, 4), false;
  if (fread(tail->bytes, 1, behind, file->pStream) < behind) clearerr(file->pStream);
  Seek(file, pos);
  return true;
}

void WriteTail(FileObject* file, const void* newBytes, uint32_t newLength, const Tail& tail) {
  if (newBytes) {
    fwrite(newBytes, 1, newLength, file->pStream);
  } else {
    fseek(file->pStream, static_cast<long>(newLength), SEEK_CUR);  // what stands there stays
  }
  fwrite(tail.bytes, 1, tail.start, file->pStream);
  fseek(file->pStream, tail.position, SEEK_SET);
}

// Moves the bytes behind the old range, cutting what would go beyond the mapped ones, and puts the
// new ones in. ErrLast is set when the data are not all mapped, or not for writing.
void EditView(FileObject* file, uint32_t size, char* pos, uint32_t length, const void* newBytes,
              uint32_t newLength) {
  if ((length | newLength) == 0) return;
  if (!(file->fFlags & FO_WRITE) || size > file->nMapped) {
    ErrLast = 2;
    return;
  }
  uint32_t growth = newLength - std::min(newLength, length);
  size = std::min(size, file->nMapped - std::min(file->nMapped, growth));
  MemReplace(file->pView, size, pos, length, newBytes, newLength, 0);
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

// An edit that would pass the largest size.
void EditAtLimit(FileObject* file, char* pos, uint32_t length, const void* newBytes,
                 uint32_t newLength, const Tail& tail) {
  FileResize(static_cast<int32_t>(file->nMaxSize - file->nSize));
  if (ErrLast != 0 && !tail.bytes) return;
  auto offset = static_cast<uint32_t>(pos - file->pView);
  newLength = std::min(newLength, file->nMaxSize - std::min(offset, file->nMaxSize));
  if (tail.bytes) {
    WriteTail(file, newBytes, newLength, tail);
  } else {
    EditView(file, file->nMaxSize, pos, length, newBytes, newLength);
  }
  if (ErrLast != 0) return;
  uint32_t kept = std::min(file->nSize - newLength - offset, newLength);
  const char* region;
  uint32_t readable;  // bytes from there on
  if (tail.bytes) {
    kept = std::min(kept, tail.start);
    region = tail.bytes + tail.start - kept;
    readable = tail.room - tail.start + kept;
  } else {
    uint32_t start = file->nSize - kept;
    region = file->pView + start;
    readable = file->nMapped - std::min(file->nMapped, start);
  }
  if (uint32_t cut = CutOf(file, region, kept, readable)) FileResize(-static_cast<int32_t>(cut));
}

// Bytes behind the data of a mapped file where a text that is appended can be made at once, with
// its terminator; 0 when `pos` is not there, or the edit is no plain one. An edit at the limit may
// look for sections behind the data, so that those files keep what is there.
uint32_t RoomBehind(const FileObject* file, const char* pos) {
  if (!file || !file->hMap || file->pStream || pos != file->pView + file->nSize) return 0;
  if ((file->fFlags & (FO_WRITE | FO_READ | FO_STREAMED)) != FO_WRITE) return 0;
  if ((file->fFlags & FO_SEP_MASK) == FO_SEP_SECTION) return 0;
  uint32_t most = std::min(file->nMapped, file->nMaxSize);
  return most - std::min(most, file->nSize);
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
  uint32_t failure = 5;
  if (oldSize + static_cast<uint32_t>(change) <= file->nMaxSize) {
    FileResize(change);
    if (tail.bytes) {
      WriteTail(file, newBytes, newLength, tail);
    } else if (ErrLast == 0) {
      EditView(file, oldSize, pos, length, newBytes, newLength);
    }
  } else {
    failure = 6;
    EditAtLimit(file, pos, length, newBytes, newLength, tail);
  }
  if (ErrLast != 0) return ErrRaise(kModule, failure == 5 ? 829 : 846, failure), 0;
  return change;
}

int32_t FileFormatList(char* pos, uint32_t length, const char* format, va_list arguments) {
  if (format == kFileArgList) {
    format = va_arg(arguments, const char*);
    return FileFormatList(pos, length, format, *va_arg(arguments, va_list*));
  }
  va_list again;
  va_copy(again, arguments);
  if (uint32_t room = length == 0 ? RoomBehind(CurrentFile, pos) : 0) {
    int size = FormatText(pos, room, format, again);
    va_end(again);
    if (size >= 0 && static_cast<uint32_t>(size) < room) return FileResize(size) == 0 ? size : 0;
    va_copy(again, arguments);
  }
  char buffer[1024];
  char* text = buffer;
  int size = FormatText(buffer, sizeof buffer, format, arguments);
  if (size >= static_cast<int>(sizeof buffer)) {
    text = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
    if (text) FormatText(text, static_cast<size_t>(size) + 1, format, again);
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

#include "quern/cscan/scanner.h"

#include <algorithm>
#include <cstdlib>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile/content.h"
#include "quern/cfile/entry.h"
#include "quern/cfile/map.h"
#include "quern/cobj.h"
#include "quern/cscan/form.h"
#include "quern/cscan/match.h"
#include "quern/cscan/step.h"

namespace quern {

Scanner* CurrentScanner;

namespace {

constexpr char kModule[] = "cscan";

constexpr uint32_t kLineBlock = 256;  // granules
constexpr uint32_t kValueBlock = 128;

// Blocks of streamed texts whose scanners are gone: tokens may point into them, so that they stay
// until the process ends or the library is unloaded.
struct Retired {
  Retired* next;
  char* block;
};
Retired* retired;

void Retire(char* block) {
  auto* entry = static_cast<Retired*>(malloc(sizeof(Retired)));
  if (!entry) return;  // then it stays out of reach
  *entry = {retired, block};
  retired = entry;
}

void GoToBegin(Scanner* scanner) {
  scanner->pPosition = scanner->mbSource.pData;
  scanner->pLine = scanner->mbSource.pData;
  scanner->nLine = 1;
}

// Leaves the scanner without a text.
void DropText(Scanner* scanner) {
  MemBuf* text = &scanner->mbSource;
  if (text->nAlloc == 0) {
    text->pData = nullptr;
  } else if (scanner->header.flags & SCAN_STREAMED) {
    Retire(MemBufTake(text));
  } else {
    MemBufFree(text);
  }
  text->nAlloc = 0;
  text->nSize = 0;
  scanner->header.flags &= ~SCAN_VIEW;
  GoToBegin(scanner);
}

template <typename Visit>
void ForEachScanner(const FileObject* file, Visit visit) {
  for (InstanceHeader* at = ClassLists[kScanClass]; at; at = at->pNext) {
    auto* scanner = reinterpret_cast<Scanner*>(at);
    if (scanner->pFile == file) visit(scanner);
  }
}

// The scanner of a file follows its size.
void FollowSize(FileObject* file) {
  auto* scanner = reinterpret_cast<Scanner*>(file->pScanner);
  if (scanner->pFile != file) return;  // it reads another one since
  MemBuf* text = &scanner->mbSource;
  uint32_t most = scanner->header.flags & SCAN_VIEW ? file->nMapped : text->nSize;
  text->nSize = std::min(file->nSize, most);
  Scanner* current = CurrentScanner;
  CurrentScanner = scanner;
  ScanGet(kScanRefresh);
  CurrentScanner = current;
}

// No scanner reads what is not mapped any more.
void FollowView(FileObject* file) {
  ForEachScanner(file, [file](Scanner* scanner) {
    MemBuf* text = &scanner->mbSource;
    if (!(scanner->header.flags & SCAN_VIEW)) return;
    if (!file->hMap || text->pData != file->pView) {
      DropText(scanner);
    } else if (text->nSize > file->nMapped) {
      text->nSize = file->nMapped;
    }
  });
}

// Takes the whole file from its stream. False after a raise.
bool ReadWhole(const FileObject* file, MemBuf* text) {
  FILE* stream = file->pStream;
  if (!MemBufSet(text, nullptr, file->nSize)) return false;
  long position = ftell(stream);
  fseek(stream, 0, SEEK_SET);
  text->nSize = static_cast<uint32_t>(fread(text->pData, 1, file->nSize, stream));
  clearerr(stream);
  fseek(stream, position, SEEK_SET);
  return true;
}

// Takes the text of the source. False after a raise.
bool TakeText(Scanner* scanner) {
  const FileObject* file = scanner->pFile;
  MemBuf* text = &scanner->mbSource;
  if (file->fFlags & FO_MAPPED) {
    DropText(scanner);
    if (file->hMap) {
      text->pData = file->pView;
      text->nSize = std::min(file->nSize, file->nMapped);
      scanner->header.flags |= SCAN_VIEW;
    }
  } else if (file->fFlags & FO_STREAMED) {
    if (!file->pStream || fseek(file->pStream, 0, SEEK_SET) != 0)
      return ErrRaise(kModule, 675, 1), false;
    if (text->nAlloc != kLineBlock) DropText(scanner);
    return MemBufSet(text, nullptr, 0) != nullptr;
  } else if (file->fFlags & FO_STREAM_BUFFER) {
    // A block of its own is read into again, so that without memory for more it keeps the text.
    if (!file->pStream || text->nAlloc == 0) DropText(scanner);
    return !file->pStream || ReadWhole(file, text);
  }
  return true;
}

}  // namespace

void ScanFreeRetired() {
  while (Retired* entry = retired) {
    retired = entry->next;
    free(entry->block);
    free(entry);
  }
}

Scanner* ScanSelect(void* object) {
  auto* scanner =
      static_cast<Scanner*>(ClsAttach(kScanTag, object, kScanClass, sizeof(Scanner), ScanClass));
  if (!scanner) return ErrRaise(kModule, 570, 1000), nullptr;
  if (ClsNew != 0) {
    scanner->cbfMatch = ScanSymbol;
    scanner->mbValue.nAlign = kValueBlock;
  }
  CurrentScanner = scanner;
  ScanPending = nullptr;
  ScanStatus = 0;
  return scanner;
}

Scanner* ScanAttachFile(void* object, FileObject* file) {
  ErrLast = 0;
  FileObject* source = FileObjSelect(file);
  if (ErrLast != 0) return ErrRaise(kModule, 593, 1), nullptr;
  Scanner* scanner = ScanSelect(object);
  if (!scanner) return ErrRaise(kModule, 595, 2), nullptr;
  if (scanner->pFile == source) return scanner;
  scanner->pFile = source;
  source->pScanner = reinterpret_cast<FileScanner*>(scanner);
  FileResizedHook = FollowSize;
  FileMappedHook = FollowView;
  // The block of a stream serves the next one; before it, a block of any other kind is freed.
  const bool streamed = source->fFlags & FO_STREAMED;
  if (streamed != ((scanner->header.flags & SCAN_STREAMED) != 0)) DropText(scanner);
  scanner->header.flags &= ~SCAN_STREAMED;
  if (streamed) {
    scanner->header.flags |= SCAN_STREAMED;
    scanner->mbSource.nAlign = kLineBlock;
    if (!scanner->cbfRefill) scanner->cbfRefill = ScanReadLine;
  }
  ScanRewind();
  return scanner;
}

Scanner* ScanOpen(const char* name, uint32_t mode, ScanDef* table) {
  FileObject* file = FileObjOpen(nullptr, name, mode);
  if (!file) return ErrRaise(kModule, 619, 1), nullptr;
  Scanner* scanner = ScanAttachFile(nullptr, file);
  if (!scanner) return ErrRaise(kModule, 621, 2), nullptr;
  if (ScanDefine(table, 0) != 0) return ErrRaise(kModule, 623, 3), nullptr;
  return scanner;
}

Scanner* ScanText(const char* text, uint32_t length, ScanDef* table) {
  if (IsBadReadPtr(text, length)) return ErrRaise(kModule, 630, 1), nullptr;
  if (!ScanSelect(nullptr)) return ErrRaise(kModule, 631, 2), nullptr;
  if (ScanDefine(table, 0) != 0) return ErrRaise(kModule, 632, 3), nullptr;
  CurrentScanner->mbSource.pData = const_cast<char*>(text);  // never written
  CurrentScanner->mbSource.nSize = length;
  ScanRewind();
  return CurrentScanner;
}

int32_t ScanRewind() {
  Scanner* scanner = CurrentScanner;
  if (scanner && scanner->pFile && !TakeText(scanner)) {
    if (!scanner->mbSource.pData) ScanPending = nullptr;
    return -ErrLast;
  }
  if (!scanner || (!scanner->pIndex && !scanner->cbfMatch)) return ErrRaise(kModule, 684, 1);
  GoToBegin(scanner);
  ScanAdvance(0);
  ScanPending = nullptr;
  return 0;
}

uint32_t ScanReadLine() {
  Scanner* scanner = CurrentScanner;
  if (!scanner || !scanner->pFile || !scanner->pFile->pStream) return 0;
  FILE* stream = scanner->pFile->pStream;
  char* block = scanner->mbSource.pData;
  uint32_t capacity = scanner->mbSource.nAlloc;  // what a line end needs beyond it, a buffer has
  uint32_t count = 0;
  bool ended = false;
  while (count < capacity && !ended) {
    int c = getc(stream);
    if (c == EOF) break;
    block[count++] = static_cast<char>(c);
    ended = c == '\n' || c == '\r';
    if (c != '\r') continue;
    if (getc(stream) == '\n') {
      block[count++] = 'a';  // Compat: in place of the line feed
    } else {
      fseek(stream, -1, SEEK_CUR);
    }
  }
  if (capacity != 0) block[count] = '\0';
  return count;
}

uint32_t ScanClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kScanTag);
  auto* object = reinterpret_cast<Scanner*>(argument);
  if (object && !ClsLinked(kScanTag, kScanClass, object)) return 0;  // it was released before
  if (object) CurrentScanner = object;
  Scanner* scanner = CurrentScanner;
  if (!scanner) return 0;
  ScanFreeIndex(scanner->pIndex);
  scanner->pIndex = nullptr;
  for (InstanceHeader* at = ClassLists[kFileClass]; at; at = at->pNext) {
    auto* file = reinterpret_cast<FileObject*>(at);
    if (file->pScanner == reinterpret_cast<FileScanner*>(scanner)) file->pScanner = nullptr;
  }
  if (FileObject* file = scanner->pFile) {
    scanner->pFile = nullptr;
    file->pScanner = nullptr;
    FileObjClose(file);
  }
  if (InstanceHeader* companion = scanner->pCompanion) {
    scanner->pCompanion = nullptr;
    bool alive = ClsAlive(companion);  // it may have gone first
    if (alive && companion->proc) companion->proc(reinterpret_cast<uintptr_t>(companion));
  }
  // The companion may have released the scanner.
  if (!ClsLinked(kScanTag, kScanClass, scanner)) return 0;
  DropText(scanner);
  MemBufFree(&scanner->mbValue);
  CurrentScanner = scanner;
  ClsDetach(kScanTag, &CurrentScanner);
  return 0;
}

}  // namespace quern

#include "quern/ccsl/console.h"

#include <cstdio>

#include "quern/ccsl/colour.h"
#include "quern/cerr.h"
#include "quern/cobj.h"

namespace quern {

Console* CslCurrent;

namespace {

constexpr char kModule[] = "ccsl";

}  // namespace

Console* CslSelect(void* console) {
  auto* made =
      static_cast<Console*>(ClsAttach(kCslTag, console, kCslClass, sizeof(Console), CslClass));
  if (!made) return ErrRaise(kModule, 33, 1000), nullptr;
  return CslCurrent = made;
}

uint32_t CslClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kCslTag);
  auto* console = reinterpret_cast<Console*>(argument);
  if (console && !ClsLinked(kCslTag, kCslClass, console)) return 0;  // it was released before
  if (console) CslCurrent = console;
  if (!CslCurrent) return 0;
  if (CslCurrent->hOutput) {
    CslRestoreCursor(CslCurrent);
    if (!(CslCurrent->header.flags & kCslKeepColours)) CslRestoreColour(CslCurrent);
  }
  MemBufFree(&CslCurrent->bufExpand);
  ClsDetach(kCslTag, &CslCurrent);
  return 0;
}

Console* CslOnDemand() {
  if (CslCurrent) return CslCurrent;
  ErrLast = 0;
  if (CslSelect(nullptr)) CslCurrent->header.flags |= INST_IMPLICIT;
  return CslCurrent;
}

void CslRestoreCursor(const Console* console) {
  SetConsoleCursorInfo(console->hOutput, &console->savedCursor);
}

void CslRestoreColour(const Console* console) {
  WORD saved = console->savedScreen.wAttributes;
  if (console->header.flags & kCslAnsi) {
    fputs(CslAnsi(saved, 0), stdout);
  } else {
    SetConsoleTextAttribute(console->hOutput, saved);
  }
}

}  // namespace quern

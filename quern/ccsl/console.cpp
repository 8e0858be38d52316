#include "quern/ccsl/console.h"

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
  if (argument) CslCurrent = reinterpret_cast<Console*>(argument);
  if (!CslCurrent) return 0;
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

}  // namespace quern

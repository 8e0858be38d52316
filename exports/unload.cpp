// What is given back when the library is unloaded: all that is left behind ClsExit.
#include "platform/win32.h"
#include "quern/cfile/find.h"
#include "quern/cfile/list.h"
#include "quern/cscan/scanner.h"

namespace {

// With this number it runs after the functions that were registered with the runtime, ClsExit among
// them; without one it would come first.
__attribute__((destructor(101))) void Release() {
  quern::FileFindStep(nullptr, nullptr, nullptr);
  quern::FileListRoot(nullptr, nullptr, nullptr);
  quern::ScanFreeRetired();
  ReleasePlatform();
}

}  // namespace

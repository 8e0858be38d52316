#include "platform/posix/unload.h"

#include "platform/posix/directory.h"
#include "platform/win32.h"

void ReleasePlatform() {
  using namespace posix_layer;
  EndHandles();
  EndViews();
  EndFiles();
  EndProcesses();
  EndConsole();
  EndDebugOutput();
  ForgetDirectory();
}

#include "quern/ccsl/width.h"

namespace quern {

uint32_t ConsoleWidth() {
  DWORD lastError = GetLastError();
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  BOOL known = GetConsoleGeometry(GetStdHandle(STD_OUTPUT_HANDLE), &info);
  SetLastError(lastError);
  if (!known) return 0;
  return static_cast<uint32_t>(WindowSpan(info.srWindow.Left, info.srWindow.Right));
}

}  // namespace quern

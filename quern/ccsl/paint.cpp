#include "quern/ccsl/paint.h"

#include <algorithm>
#include <cstdlib>

#include "platform/win32.h"
#include "quern/cerr.h"

namespace quern {
namespace {

constexpr char kModule[] = "ccsl";

}  // namespace

int32_t CslPaint(uint32_t attribute, int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint32_t set,
                 uint32_t clear) {
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  GetConsoleGeometry(output, &info);  // without a console there are no cells
  int64_t width = info.dwSize.X, cells = width * info.dwSize.Y;
  int64_t most = cells + width;  // Compat: one row more than there is
  int64_t start = y1 * width + x1, end = y2 * width + x2;
  auto outside = [most](int64_t cell) { return cell < 0 || cell > most; };
  if (outside(start)) start = 0;
  if (outside(end)) end = most;
  if (end < start) return ErrRaise(kModule, 337, 2);
  end = std::min(end, cells);
  if (start >= end) return 0;
  DWORD count = static_cast<DWORD>(end - start);
  auto* attributes = static_cast<WORD*>(malloc(count * sizeof(WORD)));
  if (!attributes) return ErrRaise(kModule, 337, 2);
  COORD from = {static_cast<int16_t>(start % width), static_cast<int16_t>(start / width)};
  DWORD done = 0;
  if (ReadConsoleOutputAttribute(output, attributes, count, from, &done)) {
    for (DWORD i = 0; i < done; ++i)
      attributes[i] = static_cast<WORD>(set | clear ? (attributes[i] & ~clear) | set : attribute);
    WriteConsoleOutputAttribute(output, attributes, done, from, &done);
  }
  free(attributes);
  return 0;
}

}  // namespace quern

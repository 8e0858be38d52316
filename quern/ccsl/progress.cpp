#include "quern/ccsl/progress.h"

#include <cstdio>

#include "quern/ccsl/control.h"

namespace quern {
namespace {

constexpr uint32_t kBecomesBase = 0x80000000;  // in a command

uint32_t drawn;
uint32_t base;
uint32_t scale = 1;

// Where the next character goes; column 0 when that is not known.
uintptr_t column;
uintptr_t row;

// What is no number of characters counts as none.
uint32_t Truncated(double characters) {
  return characters >= 0 && characters <= UINT32_MAX ? static_cast<uint32_t>(characters) : 0;
}

void Draw(uint32_t count, char character) {
  if (column != 0) CslSet(CSL_POSITION, column, row);
  for (uint32_t i = 0; i < count; ++i) putchar(character);
  fflush(stdout);  // a bar that waits in a buffer shows nothing
  if (column != 0) column += count;
}

}  // namespace

uint32_t CslProgress(uint32_t command, uint32_t value, uint32_t low, uint32_t high, uint32_t width,
                     char character) {
  if (width == 0) return 0;
  double range = static_cast<double>(high) - low;
  double ratio = range / width;
  if (ratio == 0) ratio = 1;
  double above = static_cast<double>(value) - low;
  double target;
  switch (command) {
    case PROGRESS_START:
      target = 1;
      scale = value != 0 ? value : 1;
      column = row = 0;
      CslGet(CSL_POSITION, &column, &row);
      break;
    case PROGRESS_ADD:
      target = base + value / ratio / scale;
      break;
    case PROGRESS_ADD_PER_CENT:
      target = base + value / ratio / 100 / scale;
      break;
    case PROGRESS_ADD_PART:
      target = base + above / ratio / range / scale;
      break;
    case PROGRESS_FULL:
      target = width;
      break;
    case PROGRESS_UP:
      target = above / ratio;
      break;
    case PROGRESS_DOWN:
      target = width - above / ratio;
      break;
    default:
      return 0;
  }
  uint32_t wanted = Truncated(target);
  if (wanted == 0 && value != 0) wanted = 1;
  if (wanted > drawn) {
    Draw(wanted - drawn, character);
    drawn = wanted;
  }
  if (command & kBecomesBase) base = drawn;
  return drawn;
}

}  // namespace quern

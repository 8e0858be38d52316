// The four string exports: the runtime's routines with 1-based positions and shifted results.

#include <cstring>

#include "exports/tavrix32.h"

int32_t TAVRIX_CALL XStrCSpn(const char* text, const char* set, int32_t start) {
  return static_cast<int32_t>(strcspn(text + start - 1, set)) + 1;
}

int32_t TAVRIX_CALL XStrSpn(const char* text, const char* set, int32_t start) {
  return static_cast<int32_t>(strspn(text + start - 1, set)) + 1;
}

int32_t TAVRIX_CALL XStrCmp(const char* a, const char* b, int32_t count) {
  int order = strncmp(a, b, static_cast<uint32_t>(count));
  return 1 + (order > 0) - (order < 0);
}

int32_t TAVRIX_CALL XStrLen(const char* text) { return static_cast<int32_t>(strlen(text)); }

#include "quern/ccsl/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "quern/cobj.h"

namespace quern {

int32_t CslAtExit(void (*function)(), uint32_t enroll) {
  ClsAttach(kClsInitialise, nullptr, 0, 0, nullptr);
  if (enroll == 0) return 0;
  return function && atexit(function) == 0 ? 0 : -1;
}

char CslLower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
}

const char* CslFormat(const char* format, ...) {
  char text[kSharedText] = "";
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return strcpy(SharedText, text);
}

}  // namespace quern

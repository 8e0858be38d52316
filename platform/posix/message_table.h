// The texts of the system errors.
#pragma once

#include "platform/win32.h"

namespace posix_layer {

struct SystemMessage {
  DWORD code;
  const char* text;  // without the line break at its end; null when the text has inserts
};

// The row of that code, or null.
const SystemMessage* FindSystemMessage(DWORD code);

}  // namespace posix_layer

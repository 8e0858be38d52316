// Reads the error stack.
#pragma once

#include <string>

#include "quern/cerr.h"

namespace tavrix_test {

// The whole code trail; the stack is empty afterwards.
inline std::string ClearedTrail() {
  char trail[256] = "";
  quern::ErrInfo(trail, -1);
  quern::ErrClear();
  return trail;
}

}  // namespace tavrix_test

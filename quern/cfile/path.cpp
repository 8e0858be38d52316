#include "quern/cfile/path.h"

#include <cstring>

namespace quern {

uint32_t LastComponent(const char* path) {
  size_t at = strlen(path);
  while (at > 0 && path[at - 1] != '\\' && path[at - 1] != '/' && path[at - 1] != ':') --at;
  return static_cast<uint32_t>(at);
}

}  // namespace quern

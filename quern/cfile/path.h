// Parts of path texts.
#pragma once

#include <cstdint>

namespace quern {

// Offset of the last component of a path: what stands behind the last '\\', '/' or ':', which is
// all of a path without any of them and nothing of a path that ends in one.
uint32_t LastComponent(const char* path);

}  // namespace quern

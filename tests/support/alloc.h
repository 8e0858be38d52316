// Counts the library's heap blocks and makes chosen allocations fail.
//
// The test program is linked so that malloc, calloc, realloc and free of its objects and static
// libraries pass through here.
#pragma once

#include <cstdint>

namespace tavrix_test {

// While it lives, the allocation with the given number (from 1) fails, and as many after it as
// `more`.
class AllocationFault {
 public:
  explicit AllocationFault(int64_t number, int64_t more = 0);
  ~AllocationFault();
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;

  bool Hit() const;  // whether there were that many allocations
};

// Blocks allocated and not freed so far. May fall below zero through blocks of others that are
// freed here: compare differences.
int64_t LiveBlocks();

}  // namespace tavrix_test

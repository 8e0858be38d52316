// Counts the library's heap blocks and makes chosen allocations fail.
//
// The test program is linked so that malloc, calloc, realloc and free of its objects and static
// libraries pass through alloc.cpp.
#pragma once

#include <cstdint>

namespace tavrix_test {

// While it lives, the allocation with the given number (from 1) fails, and as many after it as
// `more`.
class AllocationFault {
 public:
  explicit AllocationFault(int64_t number, int64_t more = 0) { left_ = number, more_ = more; }
  ~AllocationFault() { left_ = more_ = 0; }
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;

  bool Hit() const { return left_ == 0; }  // whether there were that many allocations

  static bool Fails() { return left_ > 0 ? --left_ == 0 : more_ > 0 && --more_ >= 0; }

 private:
  inline static int64_t left_, more_;
};

inline int64_t liveBlocks;

// Blocks allocated and not freed so far. May fall below zero through blocks of others that are
// freed here: compare differences.
inline int64_t LiveBlocks() { return liveBlocks; }

}  // namespace tavrix_test

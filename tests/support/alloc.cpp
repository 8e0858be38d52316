#include "tests/support/alloc.h"

#include <cstddef>

using tavrix_test::AllocationFault;
using tavrix_test::liveBlocks;

extern "C" {

void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);

void* __wrap_calloc(size_t count, size_t size) {
  void* block = AllocationFault::Fails() ? nullptr : __real_calloc(count, size);
  liveBlocks += block != nullptr;
  return block;
}

void* __wrap_realloc(void* block, size_t size) {
  void* moved = AllocationFault::Fails() ? nullptr : __real_realloc(block, size);
  liveBlocks += moved && !block;
  return moved;
}

void* __wrap_malloc(size_t size) { return __wrap_realloc(nullptr, size); }

void __wrap_free(void* block) {
  liveBlocks -= block != nullptr;
  __real_free(block);
}
}

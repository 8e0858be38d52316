#include "tests/support/alloc.h"

#include <cstddef>

namespace {

int64_t live;
int64_t countdown;  // to the first allocation that fails; 0: it has failed, or none is to
int64_t following;  // how many fail behind it

bool Fails() {
  if (countdown > 0) return --countdown == 0;
  return following > 0 && --following >= 0;
}

void* Counted(void* block) {
  if (block) ++live;
  return block;
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);

void* __wrap_malloc(size_t size) { return Fails() ? nullptr : Counted(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) {
  return Fails() ? nullptr : Counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, size_t size) {
  if (Fails()) return nullptr;
  void* moved = __real_realloc(block, size);
  return block ? moved : Counted(moved);
}

void __wrap_free(void* block) {
  if (block) --live;
  __real_free(block);
}
}

namespace tavrix_test {

AllocationFault::AllocationFault(int64_t number, int64_t more) {
  countdown = number;
  following = more;
}
AllocationFault::~AllocationFault() { countdown = following = 0; }
bool AllocationFault::Hit() const { return countdown == 0; }

int64_t LiveBlocks() { return live; }

}  // namespace tavrix_test

// The handle table and CloseHandle.
#include "platform/posix/handle.h"

#include <cstdlib>

#include "platform/posix/native.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

// A handle has 32 bits on every target: two that are 0, the number of the slot, the generation.
constexpr uint32_t kIndexBits = 22;
constexpr uint32_t kSlotLimit = 1u << kIndexBits;
constexpr uint32_t kGenerationMask = (1u << (30 - kIndexBits)) - 1;
constexpr uint32_t kFirstSlots = 32;

struct Slot {
  const HandleKind* kind;  // null while free
  void* object;
  uint32_t generation;
  uint32_t nextFree;  // of a free slot: the next one, 0 at the end of the list
};

Slot* slots = nullptr;  // slot 0 is never used
uint32_t capacity = 0;
uint32_t used = 1;       // slots that were ever given out, and slot 0
uint32_t firstFree = 0;  // list of the slots that were closed
uint32_t freeCount = 0;

Slot* Find(HANDLE handle) {
  uintptr_t value = reinterpret_cast<uintptr_t>(handle);
  if (value & 3 || value > 0xFFFFFFFFu) return nullptr;
  uint32_t index = static_cast<uint32_t>(value) >> 2 & (kSlotLimit - 1);
  if (index >= used || index == 0 || !slots[index].kind) return nullptr;
  uint32_t generation = static_cast<uint32_t>(value) >> (2 + kIndexBits);
  return slots[index].generation == generation ? &slots[index] : nullptr;
}

void Release(Slot* slot) {
  slot->kind = nullptr;
  slot->generation = (slot->generation + 1) & kGenerationMask;
  slot->nextFree = firstFree;
  firstFree = static_cast<uint32_t>(slot - slots);
  ++freeCount;
}

void End(Slot* slot) {
  const HandleKind* kind = slot->kind;
  void* object = slot->object;
  Release(slot);
  if (kind->end) kind->end(object);
}

}  // namespace

void EndHandles() {
  for (uint32_t index = 1; index < used; ++index) {
    if (slots[index].kind) End(&slots[index]);
  }
  free(slots);
  slots = nullptr;
  capacity = 0;
  used = 1;
  firstFree = 0;
  freeCount = 0;
}

bool ReserveHandles(uint32_t count) {
  if (freeCount >= count || used + (count - freeCount) <= capacity) return true;
  uint32_t needed = used + (count - freeCount);
  if (needed > kSlotLimit) return Fail(ERROR_TOO_MANY_OPEN_FILES);
  uint32_t grown = capacity ? capacity * 2 : kFirstSlots;
  if (grown < needed) grown = needed;
  if (grown > kSlotLimit) grown = kSlotLimit;
  Slot* block = static_cast<Slot*>(realloc(slots, grown * sizeof(Slot)));
  if (!block) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  slots = block;
  capacity = grown;
  return true;
}

HANDLE OpenHandle(const HandleKind& kind, void* object) {
  if (!ReserveHandles(1)) return nullptr;
  uint32_t index = firstFree;
  if (index) {
    firstFree = slots[index].nextFree;
    --freeCount;
  } else {
    index = used++;
    slots[index].generation = 0;
  }
  slots[index].kind = &kind;
  slots[index].object = object;
  uintptr_t value = slots[index].generation << kIndexBits | index;
  return reinterpret_cast<HANDLE>(value << 2);
}

void* HandleObject(HANDLE handle, const HandleKind& kind) {
  Slot* slot = Find(handle);
  if (slot && slot->kind == &kind) return slot->object;
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

void* TakeHandle(HANDLE handle, const HandleKind& kind) {
  void* object = HandleObject(handle, kind);
  if (object) Release(Find(handle));
  return object;
}

}  // namespace posix_layer

BOOL CloseHandle(HANDLE handle) {
  if (handle == GetCurrentProcess()) return TRUE;
  posix_layer::Slot* slot = posix_layer::Find(handle);
  if (!slot || slot->kind->kept) return posix_layer::Fail(ERROR_INVALID_HANDLE);
  posix_layer::End(slot);
  return TRUE;
}

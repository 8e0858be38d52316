// The table behind every HANDLE.
//
// A handle is the number of a slot and how often that slot was given out before, so a handle that
// was closed is refused even when its slot serves again. Values are multiples of 4 and never 0.
#pragma once

#include "platform/win32.h"

namespace posix_layer {

// What a handle stands for. Each family defines its kinds as constants and is told apart by their
// addresses.
struct HandleKind {
  void (*end)(void* object);  // ends the object of a handle that is closed; null: nothing to end
  bool kept = false;          // CloseHandle refuses such a handle
};

// Makes place for `count` more handles, so that opening them cannot fail. False after setting
// ERROR_NOT_ENOUGH_MEMORY, or ERROR_TOO_MANY_OPEN_FILES when the table is at its limit.
bool ReserveHandles(uint32_t count);

// Opens a handle for `object`, which is not null. Null as ReserveHandles fails.
HANDLE OpenHandle(const HandleKind& kind, void* object);

// The object of an open handle of that kind, or null after setting ERROR_INVALID_HANDLE.
void* HandleObject(HANDLE handle, const HandleKind& kind);

// The same, and the handle is closed; the object is the caller's to end.
void* TakeHandle(HANDLE handle, const HandleKind& kind);

}  // namespace posix_layer

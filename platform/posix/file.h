// Descriptors behind file handles.
#pragma once

#include "platform/win32.h"

namespace posix_layer {

// The descriptor of a handle of GetStdHandle, or -1 after setting ERROR_INVALID_HANDLE.
int Descriptor(HANDLE file);

// Writes all bytes to a descriptor; returns 0 or the errno, and adds what went out to `written`. A
// pipe without a reader raises no signal.
int WriteAll(int descriptor, const void* data, size_t size, size_t* written);

}  // namespace posix_layer

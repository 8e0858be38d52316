// What the stack and the message texts share; for this module alone.
#pragma once

#include <cstddef>

#include "quern/cerr.h"

namespace quern {

// Makes the current stack when there is none. Ends the process with the fatal text of message 1
// when that fails or when ErrLast is set afterwards, whoever set it.
void ErrRequireStack();

// Writes a fatal text (a built-in message without conversions) to standard output and ends the
// process with exit code 1.
[[noreturn]] void ErrFatal(uint32_t message);

// The row of a code in a table, or the table's terminating row.
const MessageRow& MessageOf(const MessageRow* table, uintptr_t code);

inline constexpr uint32_t kReadableText = 1024;  // bytes of a text that must be readable

// ErrText with a prepared argument list.
const char* ErrTextList(uint32_t code, va_list arguments);

// ErrReport into a buffer of `capacity` bytes (at least one), where what is longer is cut. An
// untouched buffer when there is no code to show.
void ErrCompose(char* buffer, size_t capacity, uint32_t mode);

// Frees the blocks that earlier texts of a stack live in because its message buffer moved.
void ErrFreeRetired(const ErrorStack* owner);

}  // namespace quern

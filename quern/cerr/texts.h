// What the stack and the message texts share; for this module alone.
#pragma once

#include "quern/cerr.h"

namespace quern {

// Makes the current stack when there is none. Ends the process with the fatal text of message 1
// when that fails or when ErrLast is set afterwards, whoever set it.
void ErrRequireStack();

// Writes a fatal text (a built-in message without conversions) to standard output and ends the
// process with exit code 1.
[[noreturn]] void ErrFatal(uint32_t message);

// ErrText with a prepared argument list.
const char* ErrTextList(uint32_t code, va_list arguments);

// Frees the blocks that earlier texts of a stack live in because its message buffer moved.
void ErrFreeRetired(const ErrorStack* owner);

}  // namespace quern

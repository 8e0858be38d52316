// A deadline for calls that never return.
#pragma once

namespace tavrix_test {

// Ends the process with `code` after `milliseconds`.
void EndAfter(unsigned milliseconds, int code);

}  // namespace tavrix_test

// Tells the leak detector, where there is one, of leaks that are the rule.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace tavrix_test {

// Blocks allocated while it lives are not reported.
#if defined(__SANITIZE_ADDRESS__)
using LeakExpected = __lsan::ScopedDisabler;
#else
struct LeakExpected {
  LeakExpected() {}
};
#endif

}  // namespace tavrix_test

// Tells the leak detector, where there is one, of leaks that are the rule.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace tavrix_test {

// Blocks allocated while it lives are not reported.
class LeakExpected {
 public:
#if defined(__SANITIZE_ADDRESS__)
  LeakExpected() { __lsan_disable(); }
  ~LeakExpected() { __lsan_enable(); }
#else
  LeakExpected() {}
#endif
  LeakExpected(const LeakExpected&) = delete;
  LeakExpected& operator=(const LeakExpected&) = delete;
};

}  // namespace tavrix_test

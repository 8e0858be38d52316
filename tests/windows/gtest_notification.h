// Stands in for the notification class of GoogleTest, which needs threads of the C++ library that
// the cross compiler does not have. Only GoogleTest's own helper threads for its own tests use it.
#pragma once

#include <atomic>

namespace testing::internal {

class Notification {
 public:
  void Notify() { notified_ = true; }
  void WaitForNotification() {
    while (!notified_) {
    }
  }

 private:
  std::atomic<bool> notified_{false};
};

}  // namespace testing::internal

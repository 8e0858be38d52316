#include "platform/posix/fork.h"

#include <pthread.h>

#include "platform/posix/native.h"

namespace posix_layer {

volatile uint32_t generation = 0;
bool hasForked = false;

bool WatchForks() {
  static bool watched = false;
  if (watched) return true;
  // The runtime drops the handlers when the library is unloaded.
  auto inParent = [] { hasForked = true; };
  auto inChild = [] {
    generation = generation + 1;
    hasForked = false;
  };
  int number = pthread_atfork(nullptr, inParent, inChild);
  if (number != 0) return Fail(ErrorFromErrno(number));
  return watched = true;
}

}  // namespace posix_layer

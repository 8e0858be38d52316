// Priorities, which are kept and given back, and sleep.
#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/native.h"

namespace {

int threadPriority = 0;
DWORD processPriority = NORMAL_PRIORITY_CLASS;

}  // namespace

// The same value as on the real system.
HANDLE GetCurrentThread() { return reinterpret_cast<HANDLE>(~uintptr_t{0} - 1); }

int GetThreadPriority(HANDLE thread) {
  constexpr int kFailed = 0x7FFFFFFF;
  if (thread == GetCurrentThread()) return threadPriority;
  return posix_layer::Fail(ERROR_INVALID_HANDLE), kFailed;
}

BOOL SetThreadPriority(HANDLE thread, int priority) {
  if (thread != GetCurrentThread()) return posix_layer::Fail(ERROR_INVALID_HANDLE);
  threadPriority = priority;
  return TRUE;
}

DWORD GetPriorityClass(HANDLE process) {
  if (process == GetCurrentProcess()) return processPriority;
  return posix_layer::Fail(ERROR_INVALID_HANDLE), 0;
}

BOOL SetPriorityClass(HANDLE process, DWORD priorityClass) {
  if (process != GetCurrentProcess()) return posix_layer::Fail(ERROR_INVALID_HANDLE);
  processPriority = priorityClass;
  return TRUE;
}

void Sleep(DWORD milliseconds) {
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  while (milliseconds == INFINITE) pause();
  timespec left = {static_cast<time_t>(milliseconds / 1000),
                   static_cast<long>(milliseconds % 1000) * 1'000'000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

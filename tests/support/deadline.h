// A deadline for calls that never return.
#pragma once

#include "platform/win32.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>
#endif

namespace tavrix_test {

inline int endCode;

#ifdef _WIN32

inline DWORD WINAPI End(void* milliseconds) {
  Sleep(static_cast<DWORD>(reinterpret_cast<uintptr_t>(milliseconds)));
  return TerminateProcess(GetCurrentProcess(), static_cast<UINT>(endCode));
}

#endif

// Ends the process with `code` after `milliseconds`, less than 1000 of them.
inline void EndAfter(uint32_t milliseconds, int code) {
  endCode = code;
#ifdef _WIN32
  CloseHandle(CreateThread(nullptr, 0, End, reinterpret_cast<void*>(milliseconds), 0, nullptr));
#else
  signal(SIGALRM, [](int) { _exit(endCode); });
  const itimerval timer = {{}, {0, static_cast<suseconds_t>(milliseconds * 1000)}};
  setitimer(ITIMER_REAL, &timer, nullptr);
#endif
}

}  // namespace tavrix_test

#include "tests/support/deadline.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>
#endif

namespace tavrix_test {
namespace {

int exitCode;
unsigned delay;

}  // namespace

#ifdef _WIN32

DWORD WINAPI End(void*) {
  Sleep(delay);
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
  return 0;
}

void EndAfter(unsigned milliseconds, int code) {
  exitCode = code;
  delay = milliseconds;
  CloseHandle(CreateThread(nullptr, 0, End, nullptr, 0, nullptr));
}

#else

void EndAfter(unsigned milliseconds, int code) {
  exitCode = code;
  delay = milliseconds;
  signal(SIGALRM, [](int) { _exit(exitCode); });
  itimerval timer = {};
  timer.it_value.tv_sec = delay / 1000;
  timer.it_value.tv_usec = static_cast<suseconds_t>(delay % 1000 * 1000);
  setitimer(ITIMER_REAL, &timer, nullptr);
}

#endif

}  // namespace tavrix_test

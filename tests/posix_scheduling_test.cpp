// Sleep in spite of signals.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>

#include "platform/win32.h"
#include "tests/support/child.h"
#include "tests/support/deadline.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(PosixScheduling, SleepsOnBehindASignal) {
  signal(SIGALRM, [](int) {});
  const itimerval often = {{0, 20'000}, {0, 20'000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  auto begun = Clock::now();
  Sleep(150);
  auto slept = Clock::now() - begun;
  EXPECT_GE(slept, 150ms);
  EXPECT_LT(slept, 5s);
  Sleep(0);
  setitimer(ITIMER_REAL, &never, nullptr);
  auto forEver = [] {
    tavrix_test::EndAfter(20, 7);
    Sleep(INFINITE);
    return 0;
  };
  EXPECT_EQ(tavrix_test::InChild(forEver), 7);
}

}  // namespace

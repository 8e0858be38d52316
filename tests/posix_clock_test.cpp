// The time of day and the time since the start.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/win32.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

std::string Text(const SYSTEMTIME& time) {
  char text[64];
  snprintf(text, sizeof text, "%u %04u-%02u-%02u %02u:%02u:%02u", time.wDayOfWeek, time.wYear,
           time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
  return text;
}

// The zone's time of day, once by the C runtime and once by the layer, within one second.
void ExpectSameTime(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
  char expected[64];
  SYSTEMTIME time;
  time_t before;
  auto now = [] {  // the function time lags behind the clock
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  };
  do {
    before = now();
    GetLocalTime(&time);
    strftime(expected, sizeof expected, "%w %Y-%m-%d %H:%M:%S", localtime(&before));
  } while (now() != before);
  EXPECT_EQ(Text(time), expected) << zone;
}

TEST(PosixClock, TellsTheTimeOfTheZoneInForce) {
  // Neighbours share a name, both names, or the offset; three have summer all year.
  for (const char* zone :
       {"UTC0", "AAA-13", "AAA12", "AAA12AAA11,0/0,J365/25", "AAA11BBB", "AAA12BBB11,0/0,J365/25",
        "AAA12CCC8,0/0,J365/25", "<+0545>-5:45", "CCC-5:45", "LMT-0:53:28", "UTC0"}) {
    ExpectSameTime(zone);
  }
}

TEST(PosixClock, RunsOnInMilliseconds) {
  setenv("TZ", "UTC0", 1);
  tzset();
  auto now = [] {
    return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch();
  };
  // Long enough to see a second change.
  for (auto begun = now(), after = begun; after < begun + 1100ms;) {
    SYSTEMTIME time;
    auto before = now();
    GetLocalTime(&time);
    after = now();
    tm parts = {};
    parts.tm_year = time.wYear - 1900;
    parts.tm_mon = time.wMonth - 1;
    parts.tm_mday = time.wDay;
    parts.tm_hour = time.wHour;
    parts.tm_min = time.wMinute;
    parts.tm_sec = time.wSecond;
    auto told = std::chrono::seconds(timegm(&parts)) + milliseconds(time.wMilliseconds);
    ASSERT_LE(before, told);
    ASSERT_LE(told, after);
    std::this_thread::sleep_for(1ms);
  }
}

TEST(PosixClock, CountsTicksSinceTheSystemStarted) {
  auto uptime = [] {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  };
  for (int i = 0; i < 20; ++i) {
    DWORD before = static_cast<DWORD>(std::chrono::floor<milliseconds>(uptime()).count());
    DWORD ticks = GetTickCount();
    DWORD after = static_cast<DWORD>(std::chrono::floor<milliseconds>(uptime()).count());
    EXPECT_LE(ticks - before, after - before);
    std::this_thread::sleep_for(1ms);
  }
}

}  // namespace

// The time of day and the time since the start.
#include "tests/support/test.h"

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

}  // namespace

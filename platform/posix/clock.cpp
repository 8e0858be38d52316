// The time of day and the time since the start. Seconds have 64 bits on every target.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif
#ifndef _TIME_BITS
#define _TIME_BITS 64
#endif
#include <time.h>

#include <algorithm>
#include <limits>

#include "platform/win32.h"

namespace posix_layer {
namespace {

// What tzset tells of the time zone in force.
struct Zone {
  const char* names[2];  // compared by address: the runtime keeps one copy of a name for ever
  long offset;
  int summer;

  bool operator==(const Zone&) const = default;
};

Zone CurrentZone() { return {{tzname[0], tzname[1]}, timezone, daylight}; }

// The second that was broken down last. It is broken down again after a change of the zone, which
// shows in the names or the offset; one that shows in neither (between two zones that differ in
// their rules for the summer alone) is seen with the next second.
struct {
  time_t second = std::numeric_limits<time_t>::min();
  Zone zone;
  SYSTEMTIME time;
} last;

void BreakDown(time_t second) {
  tm parts = {};
  localtime_r(&second, &parts);
  last.second = second;
  last.zone = CurrentZone();  // localtime_r may set it
  last.time.wYear = static_cast<WORD>(parts.tm_year + 1900);
  last.time.wMonth = static_cast<WORD>(parts.tm_mon + 1);
  last.time.wDayOfWeek = static_cast<WORD>(parts.tm_wday);
  last.time.wDay = static_cast<WORD>(parts.tm_mday);
  last.time.wHour = static_cast<WORD>(parts.tm_hour);
  last.time.wMinute = static_cast<WORD>(parts.tm_min);
  last.time.wSecond = static_cast<WORD>(std::min(parts.tm_sec, 59));  // without leap seconds
}

}  // namespace
}  // namespace posix_layer

void GetLocalTime(SYSTEMTIME* time) {
  using namespace posix_layer;
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec != last.second || CurrentZone() != last.zone) BreakDown(now.tv_sec);
  *time = last.time;
  time->wMilliseconds = static_cast<WORD>(static_cast<uint32_t>(now.tv_nsec) / 1'000'000);
}

DWORD GetTickCount() {
  timespec now;
  if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<DWORD>(now.tv_sec) * 1000 + static_cast<DWORD>(now.tv_nsec) / 1'000'000;
}

// Time stamps and the stopwatch. Both write into SharedText and return it, so that each call
// overwrites what an earlier one returned. Nothing here fails.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace quern {

inline constexpr uint32_t STAMP_SECONDS = 1;  // seconds of the day as a number
inline constexpr uint32_t STAMP_DATE = 2;     // day first: 05.03.2001
inline constexpr uint32_t STAMP_TIME = 4;     // 14:07:09
inline constexpr uint32_t STAMP_MILLIS = 8;   // the time, and its milliseconds: 14:07:09:042

// The parts of a date and time, in this order: date, seconds, time. Null means the local time now.
//
// Compat: the seconds text is written over the date, while the time still goes where date and
// seconds together would end. With STAMP_DATE and STAMP_SECONDS it stands behind the end of the
// text returned. The seconds come out as "36000.000000.3".
const char* TimeStamp(const SYSTEMTIME* time, uint32_t flags);

inline constexpr uint32_t WATCH_NUMBER = 1;    // a number of seconds, or with
inline constexpr uint32_t WATCH_MILLIS = 8;    // this of milliseconds
inline constexpr uint32_t WATCH_RESTART = 16;  // starts anew
inline constexpr uint32_t WATCH_STOP = 32;     // stops after reading

// The stopwatch of the process. Starts it when it does not run, or on WATCH_RESTART, and returns
// null; else returns the time since then, as WatchText has it. The first argument is not used.
const char* TimeWatch(uintptr_t unused, uint32_t flags);

// A time in milliseconds as the stopwatch tells it: "01:02:03.004", shorter while there are no
// hours, minutes ("03.004") or seconds ("0.004"). Compat: minutes and seconds are taken from
// fractions of hours, so that a whole minute may come out a second short.
const char* WatchText(uint32_t milliseconds, uint32_t flags);

}  // namespace quern

#include "quern/ctime/clock.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "quern/quern.h"

namespace quern {

char SharedText[kSharedText];

namespace {

// Appends a number of at least `width` digits.
char* Digits(char* out, uint32_t number, int width) {
  char digits[10];
  int count = 0;
  for (; number != 0; number /= 10) digits[count++] = static_cast<char>('0' + number % 10);
  while (count < width) digits[count++] = '0';
  while (count > 0) *out++ = digits[--count];
  return out;
}

char* TwoDigits(char* out, uint32_t number) {
  if (number > 99) return Digits(out, number, 2);
  out[0] = static_cast<char>('0' + number / 10);
  out[1] = static_cast<char>('0' + number % 10);
  return out + 2;
}

char* Colon(char* out) {
  *out++ = ':';
  return out;
}

char* Separate(char* out) {
  if (out != SharedText) *out++ = ' ';
  return out;
}

}  // namespace

const char* TimeStamp(const SYSTEMTIME* time, uint32_t flags) {
  SYSTEMTIME now;
  if (!time) {
    GetLocalTime(&now);
    time = &now;
  }
  char* out = SharedText;
  if (flags & STAMP_DATE) {
    out = TwoDigits(out, time->wDay);
    *out++ = '.';
    out = TwoDigits(out, time->wMonth);
    *out++ = '.';
    out = Digits(out, time->wYear, 4);
    *out = '\0';
  }
  if (flags & STAMP_SECONDS) {
    out = Separate(out);
    uint32_t seconds = time->wSecond + time->wMinute * 60u + time->wHour * 3600u +
                       static_cast<uint32_t>(time->wMilliseconds / 1000);
    out += sprintf(SharedText, "%02f.3", static_cast<double>(seconds));
  }
  if (!(flags & (STAMP_TIME | STAMP_MILLIS))) return SharedText;
  out = Separate(out);
  out = Colon(TwoDigits(out, time->wHour));
  out = Colon(TwoDigits(out, time->wMinute));
  out = TwoDigits(out, time->wSecond);
  if (flags & STAMP_MILLIS) out = Digits(Colon(out), time->wMilliseconds, 3);
  *out = '\0';
  return SharedText;
}

const char* TimeWatch(uintptr_t /*unused*/, uint32_t flags) {
  static uint32_t start;  // 0 while it does not run
  if ((flags & WATCH_RESTART) || start == 0) {
    start = GetTickCount();
    return nullptr;
  }
  uint32_t elapsed = GetTickCount() - start;
  if (flags & WATCH_STOP) start = 0;
  return WatchText(elapsed, flags);
}

const char* WatchText(uint32_t milliseconds, uint32_t flags) {
  if (flags & WATCH_NUMBER) {
    if (flags & WATCH_MILLIS) {
      sprintf(SharedText, "%02f", static_cast<double>(milliseconds));
    } else {
      uint32_t seconds = milliseconds / 1000;
      sprintf(SharedText, "%02f.3", static_cast<double>(seconds));
    }
    return SharedText;
  }
  double hours, minutes, seconds;
  double rest = modf(milliseconds / 3600000.0, &hours);
  rest = modf(rest * 60, &minutes);
  modf(rest * 60, &seconds);
  char* out = SharedText;
  if (hours != 0) out = Colon(TwoDigits(out, static_cast<uint32_t>(hours)));
  if (hours != 0 || minutes != 0) out = Colon(TwoDigits(out, static_cast<uint32_t>(minutes)));
  if (hours != 0 || minutes != 0 || seconds != 0) {
    out = TwoDigits(out, static_cast<uint32_t>(seconds));
  } else {
    *out++ = '0';
  }
  *out++ = '.';
  *Digits(out, milliseconds % 1000, 3) = '\0';
  return SharedText;
}

}  // namespace quern

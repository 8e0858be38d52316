// A time stamp with milliseconds, of now and of a time that is there already: TimeStamp beside
// strftime. The stopwatch: TimeWatch beside std::chrono.

#include <benchmark/benchmark.h>
#include <time.h>

#include <chrono>
#include <cstdio>

#include "quern/ctime/clock.h"

namespace {

constexpr uint32_t kFlags = quern::STAMP_DATE | quern::STAMP_MILLIS;
constexpr char kFormat[] = "%d.%m.%Y %H:%M:%S";

char text[64];

size_t Printed(size_t length, int millis) {
  return length +
         static_cast<size_t>(snprintf(text + length, sizeof text - length, ":%03d", millis));
}

size_t ByHand(size_t length, int millis) {
  char* out = text + length;
  *out++ = ':';
  *out++ = static_cast<char>('0' + millis / 100);
  *out++ = static_cast<char>('0' + millis / 10 % 10);
  *out++ = static_cast<char>('0' + millis % 10);
  *out = '\0';
  return length + 4;
}

void BM_NowTimeStamp(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quern::TimeStamp(nullptr, kFlags));
}

template <size_t (*Millis)(size_t, int)>
void BM_NowStrftime(benchmark::State& state) {
  tzset();  // localtime_r need not
  for (auto _ : state) {
    timespec now;
    tm parts;
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &parts);
    size_t length = strftime(text, sizeof text, kFormat, &parts);
    benchmark::DoNotOptimize(Millis(length, static_cast<int>(now.tv_nsec / 1'000'000)));
  }
}

void BM_ReadyTimeStamp(benchmark::State& state) {
  SYSTEMTIME time = {2001, 3, 1, 5, 14, 7, 9, 42};
  for (auto _ : state) {
    benchmark::DoNotOptimize(time);
    benchmark::DoNotOptimize(quern::TimeStamp(&time, kFlags));
  }
}

template <size_t (*Millis)(size_t, int)>
void BM_ReadyStrftime(benchmark::State& state) {
  tm parts = {};
  parts.tm_year = 101, parts.tm_mon = 2, parts.tm_mday = 5, parts.tm_wday = 1;
  parts.tm_hour = 14, parts.tm_min = 7, parts.tm_sec = 9;
  int millis = 42;
  for (auto _ : state) {
    benchmark::DoNotOptimize(parts);
    benchmark::DoNotOptimize(millis);
    benchmark::DoNotOptimize(Millis(strftime(text, sizeof text, kFormat, &parts), millis));
  }
}

void BM_TimeWatch(benchmark::State& state) {
  quern::TimeWatch(0, quern::WATCH_RESTART);
  for (auto _ : state) benchmark::DoNotOptimize(quern::TimeWatch(0, 0));
}

void BM_StdChrono(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point start = Clock::now();
  for (auto _ : state) {
    auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    int ms = static_cast<int>(elapsed.count()), s = ms / 1000, m = s / 60, h = m / 60;
    if (h) {
      snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", h, m % 60, s % 60, ms % 1000);
    } else if (m) {
      snprintf(text, sizeof text, "%02d:%02d.%03d", m, s % 60, ms % 1000);
    } else if (s) {
      snprintf(text, sizeof text, "%02d.%03d", s, ms % 1000);
    } else {
      snprintf(text, sizeof text, "0.%03d", ms);
    }
    benchmark::DoNotOptimize(text[0]);
  }
}

BENCHMARK(BM_NowTimeStamp);
BENCHMARK(BM_NowStrftime<Printed>);
BENCHMARK(BM_NowStrftime<ByHand>);
BENCHMARK(BM_ReadyTimeStamp);
BENCHMARK(BM_ReadyStrftime<Printed>);
BENCHMARK(BM_ReadyStrftime<ByHand>);
BENCHMARK(BM_TimeWatch);
BENCHMARK(BM_StdChrono);

}  // namespace

BENCHMARK_MAIN();

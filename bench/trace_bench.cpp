// A diagnostic line that nobody receives, Trace beside g_debug; and one that goes to /dev/null,
// beside fprintf with a time stamp of strftime.

#define G_LOG_DOMAIN "bench"
#include <benchmark/benchmark.h>
#include <glib.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>

#include "quern/csys.h"

namespace {

const char* name = "name_1234.txt";
int size = 1234;

// Calls write() with the threshold at 0 and the stream (or none) that lines go to.
template <class Write>
void Lines(benchmark::State& state, const char* stream, Write write) {
  FILE* file = stream ? fopen(stream, "w") : nullptr;
  unsetenv("TAVRIX_DEBUG_OUTPUT");
  unsetenv("G_MESSAGES_DEBUG");
  quern::TraceFile = file;
  quern::TraceLevel = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(name);
    benchmark::DoNotOptimize(size);
    write(file);
  }
  quern::TraceFile = nullptr;
  if (file) fclose(file);
}

void BM_TraceAboveTheThreshold(benchmark::State& state) {
  Lines(state, "/dev/null", [](FILE*) { quern::Trace(1, "read %s, %d bytes", name, size); });
}

void BM_TraceWithoutListener(benchmark::State& state) {
  Lines(state, nullptr, [](FILE*) { quern::Trace(0, "read %s, %d bytes", name, size); });
}

void BM_GDebugDropped(benchmark::State& state) {
  Lines(state, nullptr, [](FILE*) { g_debug("read %s, %d bytes", name, size); });
}

void BM_TraceToStream(benchmark::State& state) {
  Lines(state, "/dev/null", [](FILE*) { quern::Trace(0, "read %s, %d bytes", name, size); });
}

void BM_FprintfToStream(benchmark::State& state) {
  Lines(state, "/dev/null", [](FILE* file) {
    timespec now;
    tm parts;
    char stamp[32];
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &parts);
    strftime(stamp, sizeof stamp, "%d.%m.%Y %H:%M:%S", &parts);
    fprintf(file, "%s:%03d read %s, %d bytes\n", stamp, static_cast<int>(now.tv_nsec / 1'000'000),
            name, size);
  });
}

BENCHMARK(BM_TraceAboveTheThreshold);
BENCHMARK(BM_TraceWithoutListener);
BENCHMARK(BM_GDebugDropped);
BENCHMARK(BM_TraceToStream);
BENCHMARK(BM_FprintfToStream);

}  // namespace

BENCHMARK_MAIN();

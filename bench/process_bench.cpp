// Starting a program and waiting for it, from a small process and from one of 256 MiB: XProcStart
// beside posix_spawn.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "exports/tavrix32.h"

namespace {

const char kProgram[] = "/bin/true";

std::vector<char> Ballast(const benchmark::State& state) {
  return std::vector<char>(static_cast<size_t>(state.range(0)) << 20, 1);
}

void BM_XProcStart(benchmark::State& state) {
  std::vector<char> ballast = Ballast(state);
  benchmark::DoNotOptimize(ballast.data());
  for (auto _ : state) {
    char line[sizeof kProgram];
    strcpy(line, kProgram);
    if (XProcStart(line) != 0) state.SkipWithError("not started");
  }
}

void BM_PosixSpawn(benchmark::State& state) {
  std::vector<char> ballast = Ballast(state);
  benchmark::DoNotOptimize(ballast.data());
  char* arguments[] = {const_cast<char*>(kProgram), nullptr};
  for (auto _ : state) {
    pid_t child;
    int status;
    if (posix_spawn(&child, kProgram, nullptr, nullptr, arguments, environ) != 0 ||
        waitpid(child, &status, 0) != child)
      state.SkipWithError("not started");
  }
}

BENCHMARK(BM_XProcStart)->ArgName("MiB")->Arg(0)->Arg(256)->UseRealTime();
BENCHMARK(BM_PosixSpawn)->ArgName("MiB")->Arg(0)->Arg(256)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

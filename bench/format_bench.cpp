// A dump of 64 MiB to the null device: FmtDump beside one that prints each line with printf.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "quern/cfmt/hex.h"

namespace {

constexpr uint32_t kBytes = 64 << 20;

const std::vector<uint8_t>& Bytes() {
  static const std::vector<uint8_t> bytes = [] {
    std::vector<uint8_t> made(kBytes);
    std::mt19937 random(1);
    for (uint8_t& byte : made) byte = static_cast<uint8_t>(random());
    return made;
  }();
  return bytes;
}

// Standard output, which the report needs, is the null device while `dump` runs.
template <class Dump>
void ToNullDevice(benchmark::State& state, Dump dump) {
  Bytes();
  FILE* report = stdout;
  stdout = fopen("/dev/null", "wb");
  if (!stdout) abort();
  for (auto _ : state) {
    dump();
    fflush(stdout);
  }
  fclose(stdout);
  stdout = report;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void BM_Dump_FmtDump(benchmark::State& state) {
  ToNullDevice(state, [] { quern::FmtDump(Bytes().data(), kBytes, 0, quern::DUMP_OFFSET); });
}

void BM_Dump_printf(benchmark::State& state) {
  ToNullDevice(state, [] {
    const uint8_t* in = Bytes().data();
    for (uint32_t offset = 0; offset < kBytes; offset += 16, in += 16) {
      char text[17] = "";
      for (int i = 0; i < 16; ++i)
        text[i] = in[i] < 0x20 || in[i] == 0x7F ? '.' : static_cast<char>(in[i]);
      printf(
          "0x%08X: %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X "
          " %s\n",
          offset, in[0], in[1], in[2], in[3], in[4], in[5], in[6], in[7], in[8], in[9], in[10],
          in[11], in[12], in[13], in[14], in[15], text);
    }
  });
}

BENCHMARK(BM_Dump_FmtDump)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dump_printf)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

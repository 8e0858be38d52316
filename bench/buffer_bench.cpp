// Appending small pieces: MemBufAdd beside std::string and GByteArray.

#include <benchmark/benchmark.h>
#include <glib.h>

#include <string>

#include "quern/cmem/buffer.h"

namespace {

constexpr int64_t kTotal = 8 << 20;  // bytes appended in one iteration
const char kPiece[] = "0123456789abcde";

template <class Append>
void AppendAll(benchmark::State& state, uint32_t piece, Append append) {
  for (int64_t done = 0; done < kTotal; done += piece) append(kPiece, piece);
  state.SetItemsProcessed(state.items_processed() + kTotal / piece);
}

void BM_MemBufAdd(benchmark::State& state) {
  for (auto _ : state) {
    quern::MemBuf buf = {1024, 0, 0, nullptr};
    AppendAll(state, static_cast<uint32_t>(state.range(0)),
              [&](const char* piece, uint32_t size) { quern::MemBufAdd(&buf, piece, size); });
    benchmark::DoNotOptimize(buf.pData);
    quern::MemBufFree(&buf);
  }
}

void BM_StdString(benchmark::State& state) {
  for (auto _ : state) {
    std::string text;
    AppendAll(state, static_cast<uint32_t>(state.range(0)),
              [&](const char* piece, uint32_t size) { text.append(piece, size); });
    benchmark::DoNotOptimize(text.data());
  }
}

void BM_GByteArray(benchmark::State& state) {
  for (auto _ : state) {
    GByteArray* array = g_byte_array_new();
    AppendAll(state, static_cast<uint32_t>(state.range(0)), [&](const char* piece, uint32_t size) {
      g_byte_array_append(array, reinterpret_cast<const guint8*>(piece), size);
    });
    benchmark::DoNotOptimize(array->data);
    g_byte_array_unref(array);
  }
}

BENCHMARK(BM_MemBufAdd)->Arg(1)->Arg(16);
BENCHMARK(BM_StdString)->Arg(1)->Arg(16);
BENCHMARK(BM_GByteArray)->Arg(1)->Arg(16);

}  // namespace

BENCHMARK_MAIN();

// Files and edits beside what one would write by hand: appending lines beside fprintf, inserting at
// the front beside a bare memmove, deferred edits beside one memcpy of the block, and opening a
// small file beside open, mmap, munmap and close.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "quern/cfile.h"
#include "quern/cmem/edit.h"

namespace {

using namespace quern;

constexpr int kLines = 2'000'000;
constexpr int kInsertions = 10'000;
constexpr uint32_t kFront = 4 << 20;
constexpr uint32_t kBlock = 64 << 20;
constexpr uint32_t kEdits = 10'000;

std::string Name() {
  return (std::filesystem::temp_directory_path() / "tavrix-file-bench").string();
}

void Remove() { std::filesystem::remove(Name()); }

void BM_AppendLines_FileAppendf(benchmark::State& state) {
  for (auto _ : state) {
    FileOpen(nullptr, Name().c_str(), FO_MAPPED | FO_CREATE | 0x40000);
    for (int i = 0; i < kLines; ++i) FileAppendf("%d %s %d %x\n", i, "write", -i, i * 77);
    FileClass(0);
  }
  Remove();
}

void BM_AppendLines_fprintf(benchmark::State& state) {
  for (auto _ : state) {
    FILE* file = fopen(Name().c_str(), "wb");
    for (int i = 0; i < kLines; ++i) fprintf(file, "%d %s %d %x\n", i, "write", -i, i * 77);
    fclose(file);
  }
  Remove();
}

void BM_InsertAtFront_FileReplace(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    std::ofstream(Name()) << std::string(kFront, 'x');
    FileObject* file = FileOpen(nullptr, Name().c_str(), FO_MAPPED | FO_WRITE | 0x40000);
    state.ResumeTiming();
    for (int i = 0; i < kInsertions; ++i) FileReplace(file->pView, 0, "0123456789abcdef", 16);
    state.PauseTiming();
    FileClass(0);
    state.ResumeTiming();
  }
  Remove();
}

void BM_InsertAtFront_memmove(benchmark::State& state) {
  std::vector<char> block(kFront + kInsertions * 16);
  for (auto _ : state) {
    size_t size = kFront;
    for (int i = 0; i < kInsertions; ++i) {
      memmove(block.data() + 16, block.data(), size);
      memcpy(block.data(), "0123456789abcdef", 16);
      size += 16;
    }
    benchmark::DoNotOptimize(block.data());
  }
}

// Every other edit inserts and deletes 8 bytes, so that the block keeps its size.
void BM_DeferredEdits_MemReplace(benchmark::State& state) {
  std::vector<char> block(kBlock + 64, 'x');
  for (auto _ : state) {
    state.PauseTiming();
    for (uint32_t i = 0; i < kEdits; ++i) {
      char* at = block.data() + i * (kBlock / kEdits);
      MemReplace(block.data(), kBlock, at, i % 2 ? 8 : 0, "01234567", i % 2 ? 0 : 8, MEM_RECORD);
    }
    state.ResumeTiming();
    MemReplace(block.data(), kBlock, nullptr, 0, nullptr, 0, MEM_APPLY);
  }
}

// Every edit inserts 3 bytes: each byte behind the first moves.
void BM_DeferredInsertions_MemReplace(benchmark::State& state) {
  std::vector<char> block(kBlock + kEdits * 3, 'x');
  for (auto _ : state) {
    state.PauseTiming();
    for (uint32_t i = 0; i < kEdits; ++i)
      MemReplace(block.data(), kBlock, block.data() + i * (kBlock / kEdits), 0, "abc", 3,
                 MEM_RECORD);
    state.ResumeTiming();
    MemReplace(block.data(), kBlock + kEdits * 3, nullptr, 0, nullptr, 0, MEM_APPLY);
  }
}

void BM_DeferredEdits_memcpy(benchmark::State& state) {
  std::vector<char> from(kBlock, 'x'), to(kBlock, 'y');
  for (auto _ : state) {
    memcpy(to.data(), from.data(), kBlock);
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

void BM_OpenSmall_FileOpen(benchmark::State& state) {
  std::ofstream(Name()) << std::string(3000, 'x');
  std::string name = Name();
  for (auto _ : state) {
    FileObject* file = FileOpen(nullptr, name.c_str(), FO_MAPPED | FO_READ);
    benchmark::DoNotOptimize(file->pView[0]);
    FileClass(0);
  }
  Remove();
}

void BM_OpenSmall_mmap(benchmark::State& state) {
  std::ofstream(Name()) << std::string(3000, 'x');
  std::string name = Name();
  for (auto _ : state) {
    int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat facts;
    fstat(file, &facts);
    auto* view = static_cast<char*>(
        mmap(nullptr, static_cast<size_t>(facts.st_size), PROT_READ, MAP_SHARED, file, 0));
    benchmark::DoNotOptimize(view[0]);
    munmap(view, static_cast<size_t>(facts.st_size));
    close(file);
  }
  Remove();
}

BENCHMARK(BM_AppendLines_FileAppendf)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AppendLines_fprintf)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertAtFront_FileReplace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertAtFront_memmove)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeferredEdits_MemReplace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeferredInsertions_MemReplace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeferredEdits_memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenSmall_FileOpen)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OpenSmall_mmap)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();

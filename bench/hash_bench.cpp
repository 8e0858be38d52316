// Hash and pool beside what one would take instead: keys added and found with a hash function of
// the caller's beside std::unordered_map and GHashTable with the same function, and small pieces of
// memory beside malloc.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "quern/cmem/hash.h"
#include "quern/cmem/pool.h"

namespace {

using namespace quern;

constexpr uint32_t kKeys = 200'000;
constexpr uint32_t kKeyBytes = 12;
constexpr uint32_t kSlots = 800'000;
constexpr uint32_t kPool = 1024;
constexpr uint32_t kPieces = 1'000'000;

struct Key {
  char bytes[kKeyBytes];
};

uint64_t Mix(uint64_t x) {
  x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
  x = (x ^ x >> 27) * 0x94D049BB133111EB;
  return x ^ x >> 31;
}

std::vector<Key> Keys() {
  std::vector<Key> keys(kKeys);
  for (uint32_t i = 0; i < kKeys; ++i) {
    uint64_t x = Mix(i + 1);
    for (char& byte : keys[i].bytes) {
      byte = static_cast<char>('0' + (x & 31));
      x = x >> 5 | x << 59;
    }
  }
  return keys;
}

uint64_t HashOf(const void* key) {
  uint64_t first;
  uint32_t rest;
  memcpy(&first, key, sizeof first);
  memcpy(&rest, static_cast<const char*>(key) + sizeof first, sizeof rest);
  return Mix(first ^ rest * 0x9E3779B97F4A7C15);
}

// Never slot 0, whose entries count as free.
uint32_t SlotOf(const void* key, uint32_t /*length*/) {
  return static_cast<uint32_t>((HashOf(key) >> 32) * (kSlots - 1) >> 32) + 1;
}

int32_t Compare(const HashKey* key, const HashKey* entry) {
  return memcmp(key->pData, entry->pData, kKeyBytes);
}

struct LibraryTable {
  Hash hash = {};
  LibraryTable() { MemHashInit(&hash, kSlots, kPool, SlotOf, Compare); }
  ~LibraryTable() { MemHashFree(&hash); }
  void Add(const Key& key, uint32_t value) { MemHashAdd(&hash, key.bytes, kKeyBytes, value); }
  bool Has(const Key& key, uint32_t value) {
    const HashNode* entry = MemHashGet(&hash, key.bytes, kKeyBytes, 0);
    return entry && entry->pAssoc == value;
  }
};

struct StandardTable {
  struct Hasher {
    size_t operator()(std::string_view key) const { return HashOf(key.data()); }
  };
  std::unordered_map<std::string_view, uint32_t, Hasher> map;
  StandardTable() { map.reserve(kKeys); }
  void Add(const Key& key, uint32_t value) {
    map.emplace(std::string_view(key.bytes, kKeyBytes), value);
  }
  bool Has(const Key& key, uint32_t value) {
    auto at = map.find(std::string_view(key.bytes, kKeyBytes));
    return at != map.end() && at->second == value;
  }
};

struct GlibTable {
  GHashTable* map = g_hash_table_new(
      [](gconstpointer key) { return static_cast<guint>(HashOf(key)); },
      [](gconstpointer a, gconstpointer b) { return gboolean{memcmp(a, b, kKeyBytes) == 0}; });
  ~GlibTable() { g_hash_table_unref(map); }
  void Add(const Key& key, uint32_t value) {
    g_hash_table_insert(map, const_cast<char*>(key.bytes), GUINT_TO_POINTER(value));
  }
  bool Has(const Key& key, uint32_t value) {
    gpointer found;
    return g_hash_table_lookup_extended(map, key.bytes, nullptr, &found) &&
           GPOINTER_TO_UINT(found) == value;
  }
};

template <class Table>
void BM_Add(benchmark::State& state) {
  const std::vector<Key> keys = Keys();
  for (auto _ : state) {
    Table table;
    for (uint32_t i = 0; i < kKeys; ++i) table.Add(keys[i], i);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kKeys);
}

template <class Table>
void BM_Find(benchmark::State& state) {
  const std::vector<Key> keys = Keys(), asked = Keys();  // with bytes of their own
  Table table;
  for (uint32_t i = 0; i < kKeys; ++i) table.Add(keys[i], i);
  for (auto _ : state) {
    uint32_t found = 0;
    for (uint32_t i = 0; i < kKeys; ++i) {
      uint32_t at = static_cast<uint32_t>(uint64_t{i} * 77'777 % kKeys);
      found += table.Has(asked[at], at);
    }
    if (found != kKeys) state.SkipWithError("keys are missing");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kKeys);
}

// Pieces of 8, 16, 24 and 32 bytes.
constexpr uint32_t SizeOf(uint32_t piece) { return 8 + piece % 4 * 8; }

// Both keep what is freed: giving memory back to the system is not what is compared.
void BM_Pieces_MemPoolAdd(benchmark::State& state) {
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  while (state.KeepRunning()) {
    MemBuf pool = {65536, 0, 0, nullptr};
    MemPoolNew(&pool, nullptr, 8);
    for (uint32_t i = 0; i < kPieces; ++i)
      benchmark::DoNotOptimize(MemPoolAdd(&pool, nullptr, SizeOf(i)));
    MemPoolFree(&pool);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kPieces);
}

void BM_Pieces_malloc(benchmark::State& state) {
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  std::vector<void*> pieces(kPieces);
  while (state.KeepRunning()) {
    for (uint32_t i = 0; i < kPieces; ++i) pieces[i] = malloc(SizeOf(i));
    benchmark::ClobberMemory();
    for (void* piece : pieces) free(piece);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kPieces);
}

BENCHMARK(BM_Add<LibraryTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Add<StandardTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Add<GlibTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find<LibraryTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find<StandardTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find<GlibTable>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pieces_MemPoolAdd)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pieces_malloc)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

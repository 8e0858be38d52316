// Hashes against plain tables and pools, with everything that lasts from call to call.

#include "quern/cmem/hash.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/mman.h>
#endif

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "quern/cfmt/hex.h"
#include "tests/support/alloc.h"
#include "tests/support/traced.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;
using tavrix_test::Line;
using tavrix_test::Traced;

using Entries = std::vector<HashNode>;
constexpr uint32_t kHome = 0xFFFFF;

uint32_t FirstByte(const void* data, uint32_t length) {
  return length ? *static_cast<const unsigned char*>(data) % 5 * 3 : 2;
}
int32_t ByLength(const HashKey* key, const HashKey* entry) { return key->nData != entry->nData; }

struct Model {
  int id;  // of the table; 0: there is none
  uint32_t slots, count;
  bool hasPool;
  Entries table, pool;
  bool ownHash, ownCompare;

  uint32_t Home(const HashKey& key) const {
    uint32_t value = 0;
    auto* bytes = static_cast<const unsigned char*>(key.pData);
    if (ownHash)
      value = FirstByte(key.pData, key.nData);
    else if (key.nData == 0)
      value = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(bytes));
    else if (!bytes)
      value = key.nData;
    else if (key.nData < 8)
      value = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    else
      for (uint32_t i = value = 0; i < 4; ++i)
        value += bytes[key.nData / 4 * i] + 32 + (i ? 0 : key.nData);
    return value % slots;
  }
  bool Equal(const HashKey& a, const HashKey& b) const {
    return a.nData == b.nData &&
           (ownCompare || a.nData == 0 || memcmp(a.pData, b.pData, a.nData) == 0);
  }
};

// What lasts from call to call.
struct Lasting {
  int addTable = 0, getTable = 0;
  uint32_t addPool = 0, getPool = 0;  // whether there was one when the table was first met
  bool searching = false;
  uint32_t home, left, probes, slot;
  HashKey key;
  uint32_t refills = 0, refillSlot = 0;
} lasting;
int tables = 0;

HashNode* ModelAdd(Model* m, const HashKey& key, uintptr_t assoc) {
  if (m->slots == 0) return nullptr;
  if (!m->id) {
    m->id = ++tables;
    m->table.assign(m->slots, HashNode{});
  }
  if (lasting.addTable != m->id) {
    lasting.addTable = m->id;
    lasting.addPool = m->hasPool;
  }
  uint32_t home = m->Home(key);
  HashNode* at = &m->table[home];
  HashNode* target = nullptr;
  uint32_t old = at->idHash & kHome, n = 0;
  if (old == 0) {
    target = at;
  } else {
    uint32_t slot = old, budget = 5;
    for (uint32_t k = 0; k < 5 && !target; slot = (slot + 2 * k++ + 1) % m->slots) {
      if (k < 4 && m->table[slot].idHash == 0) target = &m->table[slot];
      budget -= (m->table[slot].idHash & kHome) == old;
    }
    if (!target && !lasting.addPool) return nullptr;
    for (size_t i = 0; i < m->pool.size() && budget && !target; ++i) {
      if (m->pool[i].idHash == 0) target = &m->pool[i];
      budget -= (m->pool[i].idHash & kHome) == old;
    }
    if (!target) target = &m->pool.emplace_back();
    if (old != home) {
      *target = *at;
      target = at;
    } else {
      n = at->idHash >> 20;
    }
  }
  static_cast<HashKey&>(*target) = key;
  target->nState = 0;
  target->pAssoc = assoc;
  at->idHash = target->idHash = home | (n + 1) << 20;
  ++m->count;
  return target;
}

HashNode* ModelGet(Model* m, const HashKey& key, int mode) {
  Lasting& l = lasting;
  if (mode != -1) l.searching = false;
  if (!m->id) l.searching = false;
  if (mode == -2 || !m->id) return nullptr;
  if (l.getTable != m->id) {
    l.getTable = m->id;
    l.getPool = m->hasPool;
    l.searching = false;
  }
  if (mode != -1 || !l.searching) {
    l.home = l.slot = m->Home(key);
    l.left = m->table[l.home].idHash >> 20;
    l.probes = 0;
    l.key = key;
  }
  l.searching = false;
  HashNode* found = nullptr;
  auto look = [&](HashNode* entry) {
    if ((entry->idHash & kHome) != l.home) return false;
    if (!m->Equal(l.key, *entry)) return --l.left, false;
    found = entry;
    return true;
  };
  while (l.left && l.probes < 5 && !found) {
    if (l.probes) l.slot = (l.slot + 2 * l.probes - 1) % m->slots;
    ++l.probes;
    if (look(&m->table[l.slot]) && l.probes == 5) found = nullptr, --l.left;
  }
  for (; l.left && !found && l.getPool && l.probes - 5 < m->pool.size(); ++l.probes)
    if (m->pool[l.probes - 5].idHash == 0 || look(&m->pool[l.probes - 5])) break;
  if (!found) return nullptr;
  --l.left;
  l.searching = mode == -1;
  return found;
}

// The entry is a slot, or behind all slots an entry of the pool. Null with `failed` when there is
// none to refill a slot.
bool ModelRemove(Model* m, size_t entry, HashNode* copy) {
  Lasting& l = lasting;
  HashNode* at = entry < m->slots ? &m->table[entry] : &m->pool[entry - m->slots];
  uint32_t home = at->idHash & kHome;
  HashNode* first = &m->table[home];
  uint32_t n = (first->idHash >> 20) - 1;
  at->idHash = 0;
  *copy = *at;
  --m->count;
  if (entry >= m->slots) {
    *at = m->pool.back();
    m->pool.pop_back();
  }
  if (n == 0) return true;
  if (at == first) {
    HashNode* found = nullptr;
    if (l.refills == 0) l.refillSlot = home;
    l.refillSlot %= m->slots;
    while (l.refills < 5 && !found) {
      if (l.refills) l.refillSlot = (l.refillSlot + 2 * l.refills - 1) % m->slots;
      HashNode* next = &m->table[l.refillSlot];
      if (++l.refills < 5 && next->idHash && (next->idHash & kHome) == home) found = next;
    }
    for (; !found && l.refills - 5 < m->pool.size(); ++l.refills)
      if (uint32_t id = m->pool[l.refills - 5].idHash; id && (id & kHome) == home) {
        found = &m->pool[l.refills - 5];
        break;
      }
    if (!found) {
      l.refills = 0;
      return false;
    }
    *first = *found;
  }
  first->idHash = home | n << 20;
  return true;
}

void ModelForget(const Model& m) {
  if (!m.id) return;
  if (lasting.addTable == m.id) lasting.addTable = 0;
  if (lasting.getTable != m.id) return;
  lasting.getTable = 0;
  lasting.searching = false;
}

int ModelSize(Model* m, uint32_t slots, uint32_t pool) {
  Model saved = {};
  if (slots != 0 && slots != m->slots) {
    if (m->id) saved = *m;
    ModelForget(*m);
    m->pool.clear();
    m->table.clear();
    m->slots = slots;
    m->id = 0;
    m->count = 0;
  }
  if (pool != 0) m->pool.clear();
  if (pool == kMemNoPool) ModelForget(*m);
  if (pool != 0) m->hasPool = pool != kMemNoPool;
  if (saved.count == 0) return 0;
  for (const HashNode& entry : saved.table)
    if (!ModelAdd(m, entry, entry.pAssoc)) return 4;
  for (const HashNode& entry : saved.pool)
    if (!ModelAdd(m, entry, entry.pAssoc)) return 5;
  return 0;
}

bool Same(const HashNode& a, const HashNode& b) {
  return a.pData == b.pData && a.nData == b.nData && a.nState == b.nState && a.idHash == b.idHash &&
         a.pAssoc == b.pAssoc;
}

// The model's entry in the place of an actual one.
HashNode* Counterpart(const Hash& hash, Model* m, const HashNode* node) {
  if (!node) return nullptr;
  if (node >= hash.pHash && node < hash.pHash + hash.nHash) return &m->table[node - hash.pHash];
  return &m->pool[node - reinterpret_cast<HashNode*>(hash.pmbLinear->pData)];
}

bool Agrees(const Hash& hash, const Model& m) {
  const MemBuf* pool = hash.pmbLinear;
  if (hash.nHash != m.slots || hash.nCount != m.count || (pool != nullptr) != m.hasPool ||
      (m.id ? hash.pHash == kMemHashPending : hash.pHash && hash.pHash != kMemHashPending) ||
      (pool && pool->nSize != m.pool.size() * sizeof(HashNode)))
    return false;
  auto* entries = pool ? reinterpret_cast<HashNode*>(pool->pData) : nullptr;
  return std::equal(m.table.begin(), m.table.end(), hash.pHash, Same) &&
         std::equal(m.pool.begin(), m.pool.end(), entries, Same);
}

TEST(Hash, AgreesWithAModelOverRandomCalls) {
  std::mt19937 random(45);
  auto below = [&](size_t n) { return static_cast<uint32_t>(random() % n); };
  static char arena[4096 + 4];
  int64_t before = tavrix_test::LiveBlocks();
  int calls = 0, refilled = 0, emptied = 0, lost = 0, pooled = 0, again = 0, freed = 0;
  for (int round = 0; round < 3000; ++round) {
    for (char& c : arena) c = static_cast<char>(below(round % 3 ? 3 : 256));
    Hash hashes[2] = {};
    Model models[2] = {};
    std::vector<HashKey> keys[2];
    const uint32_t kSlots[] = {1, 2, 7, 13, 31, 64};
    double load[2];
    for (int h : {0, 1}) {
      bool ownHash = below(3) == 0, ownCompare = below(5) == 0;
      uint32_t slots = kSlots[below(6)], pool = below(2) ? 1 + below(5) : 0;
      load[h] = 0.1 + below(20) * 0.1;
      ASSERT_EQ(MemHashInit(&hashes[h], slots, pool, ownHash ? FirstByte : nullptr,
                            ownCompare ? ByLength : nullptr),
                0);
      models[h] = {0, slots, 0, pool != 0, {}, {}, ownHash, ownCompare};
    }
    for (int step = 0; step < 80; ++step) {
      int h = below(4) == 0;
      Hash* hash = &hashes[h];
      Model* m = &models[h];
      HashKey key = {arena + below(4096 - 20), below(21)};
      if (key.nData == 0) key.pData = reinterpret_cast<void*>(uintptr_t{below(100)});
      if (below(3) && !keys[h].empty()) key = keys[h][below(keys[h].size())];
      ErrLast = 0;
      switch (below(8)) {
        case 0:
        case 1:
        case 2: {
          if (m->count > load[h] * m->slots) break;
          keys[h].push_back(key);
          HashNode* node = MemHashAdd(hash, key.pData, key.nData, random());
          HashNode* wanted = ModelAdd(m, key, node ? node->pAssoc : 0);
          lost += !wanted;
          ASSERT_EQ(!node, !wanted) << round << " " << step;
          ASSERT_EQ(Counterpart(*hash, m, node), wanted) << round << " " << step;
          if (node) node->nState = wanted->nState = step;
          break;
        }
        case 3:
        case 4:
        case 5: {
          int mode = (const int[]){-1, -1, -1, -2, 0, 5}[below(6)];
          if (below(40) == 0) {  // without a hash a search ends, too
            ASSERT_EQ(MemHashGet(nullptr, key.pData, key.nData, mode), nullptr);
            lasting.searching = false;
          }
          for (uint32_t times = mode == -1 ? 1 + below(4) : 1; times; --times) {
            again += mode == -1 && lasting.searching && lasting.getTable == m->id;
            HashNode* node = MemHashGet(hash, key.pData, key.nData, mode);
            HashNode* wanted = ModelGet(m, key, mode);
            ASSERT_EQ(!node, !wanted) << round << " " << step;
            ASSERT_EQ(Counterpart(*hash, m, node), wanted) << round << " " << step;
          }
          break;
        }
        case 6: {
          if (!m->id) break;
          size_t entry = below(m->slots + m->pool.size());
          bool inPool = entry >= m->slots;
          HashNode* node =
              inPool ? reinterpret_cast<HashNode*>(hash->pmbLinear->pData) + (entry - m->slots)
                     : hash->pHash + entry;
          if (inPool && node == hash->pHash + m->slots) break;  // taken for a slot
          pooled += inPool;
          if (node->idHash == 0) {
            ASSERT_EQ(MemHashRemove(hash, node), nullptr);
            ASSERT_EQ(ErrLast, 1);
            break;
          }
          HashNode wanted;
          bool refill = ModelRemove(m, entry, &wanted);
          const HashNode* copy = MemHashRemove(hash, node);
          ++(refill ? refilled : emptied);
          ASSERT_EQ(ErrLast, refill ? 0 : 1) << round << " " << step;
          ASSERT_EQ(copy != nullptr, refill);
          ASSERT_TRUE(!copy || Same(*copy, wanted)) << round << " " << step;
          break;
        }
        case 7: {
          if (below(2)) {
            const HashKey* echo = MemHashDel(hash, arena, 4);
            ASSERT_EQ(!echo, !m->id);
            ASSERT_TRUE(!echo || (echo->pData == arena && echo->nData == 4));
            break;
          }
          if (!m->pool.empty() && below(2)) {  // freed by hand
            size_t entry = below(m->pool.size());
            reinterpret_cast<HashNode*>(hash->pmbLinear->pData)[entry].idHash = 0;
            m->pool[entry].idHash = 0;
            ++freed;
          }
          if (below(6)) break;
          uint32_t slots = below(2) ? kSlots[below(6)] : 0;
          uint32_t pool = below(2) ? 1 + below(5) : 0;
          int code = ModelSize(m, slots, pool);
          ASSERT_EQ(MemHashSize(hash, slots, pool), -code) << round << " " << step;
          if (code) {
            ASSERT_EQ(ClearedTrail(), code == 4 ? "04" : "05");
          }
          break;
        }
      }
      ++calls;
      ASSERT_TRUE(!ErrCurrent || ErrCurrent->nCount == 0);
      for (int i : {0, 1}) ASSERT_TRUE(Agrees(hashes[i], models[i])) << round << " " << step;
    }
    for (Hash& hash : hashes) ASSERT_EQ(MemHashFree(&hash), 0);
    lasting.addTable = lasting.getTable = 0;
    lasting.searching = false;
  }
  EXPECT_GT(std::min({refilled, emptied, lost, pooled, again, freed}), 500);  // every way was gone
  EXPECT_LE(tavrix_test::LiveBlocks(), before + 3);
}

TEST(Hash, TracesAndDumps) {
  Hash hash = {};
  MemHashInit(
      &hash, 3, 2, [](const void*, uint32_t) { return 4u; }, nullptr);
  char key[] = "ab\1c";
  EXPECT_EQ(Traced([&] {
              MemHashAdd(&hash, key, 4, 0xABC)->nState = 5;
              MemHashAdd(&hash, nullptr, 0, 7);
              MemHashGet(&hash, key, 4, 0);
              MemHashGet(&hash, key, 3, 0);
            }),
            "MemHashAdd: 01 id=0x00100001 assoc=0x00000ABC state=0x00000000 data=04 ab.c\n"
            "MemHashAdd: 02 id=0x00200001 assoc=0x00000007 state=0x00000000 data=00 \n"
            "MemHashGet: 02 id=0x00200001 assoc=0x00000ABC state=0x00000005 data=04 ab.c\n");
  for (uintptr_t assoc = 8; assoc < 10; ++assoc) MemHashAdd(&hash, key + 1, 3, assoc);
  auto word = [](auto pointer) { return reinterpret_cast<uintptr_t>(pointer); };
  const auto* pool = reinterpret_cast<HashNode*>(hash.pmbLinear->pData);
  std::string wanted = Line("Hash (0x%08" PRIXPTR "): pHash=0x%08" PRIXPTR
                            "; nHash=0x00000003; nCount=0x00000004; pmbLinear=0x%08" PRIXPTR
                            "; cbfHash=0x%08" PRIXPTR "; cbfCmpr=0x%08" PRIXPTR ";\n",
                            word(&hash), word(hash.pHash), word(hash.pmbLinear), word(hash.cbfHash),
                            word(hash.cbfCmpr));
  for (int i = 0; i < 5; ++i) {  // the slots that the probes meet are two, so two are in the pool
    const HashNode* node = i < 3 ? hash.pHash + i : pool + i - 3;
    if (i == 3) {
      wanted +=
          Line("0002 Hash linear entries (0x%08" PRIXPTR "): nAlloc=0x%08X; nAlign=0x00000002\n",
               word(pool), static_cast<uint32_t>(hash.pmbLinear->nAlloc / sizeof(HashNode)));
    }
    int compared = node->nData == 4 ? 0 : static_cast<int>(node->nData) - 4;
    wanted +=
        Line("%04d Node (0x%08" PRIXPTR "): pData=0x%08" PRIXPTR
             "; nData=0x%08X; nState=0x%08X; pAssoc=0x%08" PRIXPTR "; idHash=0x%08X; Cmpr=%d;\n",
             i + 1, word(node), word(node->pData), node->nData, node->nState, node->pAssoc,
             node->idHash, compared);
  }
  EXPECT_EQ(Traced([&] { EXPECT_EQ(MemHashDump(&hash, key, 4), 0); }), wanted);
  // Without a comparison; without entries in the pool, without a pool, without a table.
  hash.cbfCmpr = nullptr;
  EXPECT_TRUE(Traced([&] { MemHashDump(&hash, key, 4); }).ends_with("; Cmpr=0;\n"));
  auto lines = [&] {
    std::string text = Traced([&] { EXPECT_EQ(MemHashDump(&hash, key, 4), 0); });
    return std::count(text.begin(), text.end(), '\n');
  };
  EXPECT_EQ(MemHashSize(&hash, 0, 4), 0);
  EXPECT_EQ(lines(), 1 + 3 + 1);
  EXPECT_EQ(MemHashSize(&hash, 0, kMemNoPool), 0);
  EXPECT_EQ(lines(), 1 + 3);
  MemHashFree(&hash);
  hash = {nullptr, 9, 0, nullptr, nullptr, nullptr};
  EXPECT_EQ(lines(), 1);
}

TEST(Hash, Keys) {
  const char key[] = "abcdefghijk";
  EXPECT_EQ(MemHashKey(reinterpret_cast<void*>(77), 0), 77u);
  EXPECT_EQ(MemHashKey(nullptr, 9), 9u);
  for (uint32_t length : {1u, 7u, 0x80000000u}) EXPECT_EQ(MemHashKey(key, length), 0x64636261u);
  EXPECT_EQ(MemHashKey(key, 8), 8u + 'a' + 'c' + 'e' + 'g' + 128);
  EXPECT_EQ(MemHashKey(key, 11), 11u + 'a' + 'c' + 'e' + 'g' + 128);
  const HashKey a = {"ab", 2}, b = {"ac", 2}, c = {"a", 1}, none = {nullptr, 2};
  EXPECT_LT(MemHashCmpr(&a, &b), 0);
  EXPECT_EQ(MemHashCmpr(&c, &b), -1);
  EXPECT_EQ(MemHashCmpr(&none, &b), -1);
  EXPECT_EQ(MemHashCmpr(&b, &none), 1);
  EXPECT_EQ(MemHashCmpr(&none, &none), 0);
#ifndef _WIN32
  // What lies behind a short key counts where it can be read.
  char* page = static_cast<char*>(
      mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_EQ(mprotect(page + 4096, 4096, PROT_NONE), 0);
  memcpy(page + 4092, "abcd", 4);
  EXPECT_EQ(MemHashKey(page + 4092, 3), 0x64636261u);
  EXPECT_EQ(MemHashKey(page + 4093, 2), 0x6362u);
  munmap(page, 8192);
#endif
}

TEST(Hash, RefusesWhatItCannotDo) {
  HashNode node = {};
  Hash hash = {};
  EXPECT_EQ(MemHashInit(nullptr, 1, 1, nullptr, nullptr), -1);
  EXPECT_EQ(MemHashFree(nullptr), -1);
  EXPECT_EQ(MemHashDump(nullptr, "a", 1), -1);
  EXPECT_EQ(ClearedTrail(), "01.01.01");
  EXPECT_EQ(MemHashSize(nullptr, 1, 1), -1);
  auto nothing = [](const void* result) {
    EXPECT_EQ(result, nullptr);
    return std::exchange(ErrLast, 0);
  };
  EXPECT_EQ(ErrLast, 1);
  ErrLast = 0;
  hash.nCount = 3;                           // of no table
  for (uint32_t slots : {0u, 0u, 5u, 6u}) {  // zeroed, without slots, without a table, or with one
    EXPECT_EQ(nothing(MemHashGet(&hash, "a", 1, 0)), 0);
    EXPECT_EQ(nothing(MemHashDel(&hash, "a", 1)), 0);
    EXPECT_EQ(nothing(MemHashRemove(&hash, &node)), 1);
    EXPECT_EQ(MemHashInit(&hash, slots, 0, nullptr, nullptr), 0);
    const uint32_t had = hash.nHash;
    HashNode* entry = slots == 6 ? MemHashAdd(&hash, "abcd", 4, 0) : nullptr;
    hash.nHash = 0;
    EXPECT_EQ(nothing(MemHashAdd(&hash, "a", 1, 0)), 0);
    EXPECT_EQ(nothing(MemHashGet(&hash, "abcd", 4, 0)), 0);
    EXPECT_EQ(nothing(MemHashDel(&hash, "a", 1)), 0);
    if (entry) {
      EXPECT_EQ(nothing(MemHashRemove(&hash, entry)), 1);
      hash.nHash = had;
    }
  }
  EXPECT_EQ(nothing(MemHashAdd(nullptr, "a", 1, 0)), 0);
  EXPECT_EQ(nothing(MemHashDel(nullptr, "a", 1)), 1);
  EXPECT_EQ(nothing(MemHashDel(&hash, nullptr, 1)), 1);
  EXPECT_EQ(nothing(MemHashRemove(nullptr, &node)), 1);
  EXPECT_EQ(nothing(MemHashRemove(&hash, nullptr)), 1);
  // A pool whose granule has no number; the one that is there is empty then.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(MemHashSize(&hash, 0, UINT32_MAX / sizeof(HashNode) + 1), -2);
    EXPECT_EQ(hash.pmbLinear != nullptr, i == 1);
    EXPECT_TRUE(!hash.pmbLinear || !hash.pmbLinear->pData);
    EXPECT_EQ(MemHashSize(&hash, 0, UINT32_MAX / sizeof(HashNode)), 0);
    EXPECT_EQ(hash.pmbLinear->nAlign, UINT32_MAX / sizeof(HashNode) * sizeof(HashNode));
  }
  MemHashFree(&hash);
}

// An entry of another hash is freed where it is; the counts are those of the hash that was asked.
TEST(Hash, RemovesWhatIsNotItsOwn) {
  auto one = [](const void*, uint32_t) { return 1u; };
  const char* keys[] = {"aaaa", "bbbb", "cccc", "dddd", "eeee"};
  Hash hash = {}, other = {};
  MemHashInit(&hash, 40, 2, one, nullptr);
  HashNode* last = nullptr;
  for (const char* key : keys) last = MemHashAdd(&hash, key, 4, 0);
  for (uint32_t pool : {0u, 1u}) {
    MemHashInit(&other, 40 + pool, pool, one, nullptr);
    for (const char* key : {"ffff", "gggg"}) MemHashAdd(&other, key, 4, 0);
    EXPECT_EQ(MemHashRemove(&other, last)->pData, keys[4]);
    EXPECT_EQ(other.nCount, 1u);
    EXPECT_EQ(other.pHash[1].idHash, 0x00100001u);
    EXPECT_EQ(hash.nCount, 5u);
    EXPECT_EQ(last->idHash, 0u);
    EXPECT_EQ(MemHashGet(&hash, keys[4], 4, 0), nullptr);
    EXPECT_EQ(MemHashAdd(&hash, keys[4], 4, 0), last);  // its place is free
    hash.nCount = 5;
    MemHashFree(&other);
    other = {};
  }
  // Behind the last entry of the pool there is none to put in its place.
  hash.pmbLinear->nSize = 0;
  EXPECT_NE(MemHashRemove(&hash, last), nullptr);
  EXPECT_EQ(hash.pmbLinear->nSize, 0u);
  MemHashFree(&hash);
}

// A hash that has no pool when its table is first used goes without one until another was used.
TEST(Hash, RemembersTheLastOne) {
  char keys[5][5] = {"aaaa", "bbbb", "cccc", "dddd", "eeee"};
  auto one = [](const void*, uint32_t) { return 1u; };
  Hash hash = {}, other = {};
  MemHashInit(&hash, 40, 0, one, nullptr);
  MemHashInit(&other, 40, 0, one, nullptr);
  for (int i = 0; i < 4; ++i) EXPECT_NE(MemHashAdd(&hash, keys[i], 4, 0), nullptr);
  EXPECT_EQ(MemHashAdd(&hash, keys[4], 4, 0), nullptr);  // though the fifth probe is free
  EXPECT_EQ(MemHashSize(&hash, 0, 3), 0);
  EXPECT_EQ(MemHashAdd(&hash, keys[4], 4, 0), nullptr);
  MemHashAdd(&other, keys[0], 4, 0);
  EXPECT_NE(MemHashAdd(&hash, keys[4], 4, 0), nullptr);
  EXPECT_NE(MemHashGet(&hash, keys[4], 4, 0), nullptr);
  hash.cbfCmpr = [](const HashKey*, const HashKey*) { return 1; };
  EXPECT_NE(MemHashGet(&hash, keys[4], 4, 0), nullptr);
  MemHashGet(&other, keys[0], 4, 0);
  EXPECT_EQ(MemHashGet(&hash, keys[4], 4, 0), nullptr);
  char* block = hash.pmbLinear->pData;
  EXPECT_EQ(MemHashSize(&hash, 0, kMemNoPool), 0);  // the block is left
  EXPECT_EQ(MemHashAdd(&hash, keys[4], 4, 0), nullptr);
  free(block);
  MemHashFree(&hash);
  MemHashFree(&other);
}

TEST(Hash, AMillionEntries) {
  constexpr uint32_t kSlots = 1 << 20;
#ifdef _WIN32
  constexpr uint32_t kEntries = 100000;  // the debugger is told of each, which takes its time
#else
  constexpr uint32_t kEntries = 1000000;
#endif
  static uint32_t keys[kEntries];
  Hash hash = {};
  MemHashInit(
      &hash, kSlots, 1000,
      [](const void* data, uint32_t) { return *static_cast<const uint32_t*>(data); }, nullptr);
  for (uint32_t i = 0; i < kEntries; ++i) {
    keys[i] = (i + 1) * 7;  // slot 0 is for nobody, and most of the others for one
    ASSERT_NE(MemHashAdd(&hash, &keys[i], 4, i), nullptr);
  }
  EXPECT_EQ(hash.nCount, kEntries);
  for (uint32_t i = 0; i < kEntries; ++i) ASSERT_EQ(MemHashGet(&hash, &keys[i], 4, 0)->pAssoc, i);
  MemHashFree(&hash);
}

TEST(Hash, EveryAllocationMayFail) {
  char keys[5][8] = {"aaaaaaa", "bbbbbbb", "ccccccc", "ddddddd", "eeeeeee"};
  auto one = [](const void*, uint32_t) { return 1u; };
  ErrStackAttach(nullptr);
  FmtHex(keys, 8, nullptr, FMT_CHARS);  // what it makes stays, where the debug output is heard
  int lines[8] = {};
  for (int number : {1, 1, 2, 3, 4, 5, 6, 7}) {
    const bool reported = lines[1] != 0;  // the first report makes objects that stay
    int64_t before = tavrix_test::LiveBlocks();
    Hash hash = {};
    {
      AllocationFault fault(number);
      int32_t code = MemHashInit(&hash, 2, 1, one, nullptr);
      for (int i = 0; i < 4 && code == 0; ++i)
        if (!MemHashAdd(&hash, keys[i], 7, 0)) code = -ErrLast;
      if (code == 0) code = MemHashSize(&hash, 3, 0);
      lines[number] = code ? ErrLine : 0;
      MemHashFree(&hash);
    }
    EXPECT_TRUE(!reported || tavrix_test::LiveBlocks() == before) << number;
    ErrClear();
  }
  // The pool's record, the table, the pool; and the new table.
  EXPECT_EQ(std::vector<int>(lines + 1, lines + 4), std::vector<int>({1553, 1394, 1410}));
  EXPECT_NE(std::find(lines, lines + 8, 1562), lines + 8);
}

TEST(Hash, TextsOfKeysMayFail) {
  static const char key[20000] = {};
  Hash hash = {};
  MemHashInit(&hash, 2, 0, nullptr, nullptr);
  MemHashAdd(&hash, key, 2, 0);
  ErrStackAttach(nullptr);
  FmtHex(key, 8, nullptr, FMT_CHARS);
  hash.cbfHash = [](const void*, uint32_t) { return 1u; };
  EXPECT_EQ(Traced([&] {
              AllocationFault fault(1, 1);
              MemHashAdd(&hash, key, 20000, 5);
            }),
            "MemHashAdd: 02 id=0x00100001 assoc=0x00000005 state=0x00000000 data=20000 \n");
  ErrClear();
  MemHashFree(&hash);
}

}  // namespace
}  // namespace quern

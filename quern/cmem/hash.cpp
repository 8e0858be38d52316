#include "quern/cmem/hash.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfmt/hex.h"
#include "quern/csys.h"

namespace quern {
namespace {

constexpr char kModule[] = "cmem";

constexpr uint32_t kNoMemory = 12;  // messages
constexpr uint32_t kNoObject = 13;

constexpr auto kLineLevel = static_cast<int32_t>(0xC0000000);

constexpr uint32_t kSlotBits = 20;
constexpr uint32_t kSlotMask = (1u << kSlotBits) - 1;

// Compat: an entry in the last probe counts for nothing.
constexpr uint32_t kProbes = 5;

uint32_t FirstSlotIn(uint32_t idHash) { return idHash & kSlotMask; }
uint32_t CountIn(uint32_t idHash) { return idHash >> kSlotBits; }

HashNode* Entries(const MemBuf* pool) { return reinterpret_cast<HashNode*>(pool->pData); }
uint32_t EntryCount(const MemBuf* pool) {
  return pool && pool->pData ? pool->nSize / sizeof(HashNode) : 0;
}

// What is remembered of a hash, by its table.
struct Remembered {
  HashNode* table;
  uint32_t slots;
  MemBuf* pool;

  bool Knows(const Hash& hash) const { return table == hash.pHash; }
  void Take(const Hash& hash) { *this = {hash.pHash, hash.nHash, hash.pmbLinear}; }
};

// The slots from `first` on, at distances 0, 1, 4, 9 and 16.
struct Probe {
  uint32_t slot;
  uint32_t made;

  void Begin(uint32_t first) { *this = {first, 0}; }
  HashNode* Next(const Remembered& of) {
    if (slot >= of.slots) slot %= of.slots;
    HashNode* entry = of.table + slot;
    slot += 2 * made + 1;
    ++made;
    return entry;
  }
};

Remembered addition;  // of MemHashAdd

// Of MemHashGet.
struct Search {
  Remembered of;
  int32_t (*compare)(const HashKey* key, const HashKey* entry);
  bool underWay;
  HashKey key;
  uint32_t first;
  uint32_t remaining;  // entries of that first slot that were not seen yet
  Probe probe;         // probes beyond kProbes are entries of the pool
} search;

Probe refill;  // of MemHashRemove

// What is remembered must not outlive the table or pool of a hash.
void Forget(const Hash& hash) {
  if (addition.Knows(hash)) addition.table = nullptr;
  if (search.of.Knows(hash)) search.of.table = nullptr;
}

bool HasTable(const Hash& hash) { return hash.pHash && hash.pHash != kMemHashPending; }

bool MakeTable(Hash* hash) {
  size_t most = PTRDIFF_MAX / sizeof(HashNode);
  auto* table =
      hash->nHash > most ? nullptr : static_cast<HashNode*>(calloc(hash->nHash, sizeof(HashNode)));
  if (!table) return ErrRaiseText(kModule, 1394, 1, kNoMemory), false;
  ExpectScatteredUse(table, hash->nHash * sizeof(HashNode));
  hash->pHash = table;
  addition.Take(*hash);
  return true;
}

void Tell(const char* name, const Hash& hash, const HashNode& entry) {
  if (!TraceHeard(kLineLevel)) return;
  const char* key = entry.pData ? FmtHex(entry.pData, entry.nData, nullptr, FMT_CHARS) : "";
  Trace(kLineLevel, "%s: %02d id=0x%08X assoc=0x%08" PRIXPTR " state=0x%08X data=%02d %s\n", name,
        static_cast<int32_t>(hash.nCount), entry.idHash, entry.pAssoc, entry.nState,
        static_cast<int32_t>(entry.nData), key ? key : "");
}

// A free entry for one whose first slot is `first`, which is never slot 0: among the probes, else
// in the pool, which grows by one when it must. Null without a place, or after a raise.
HashNode* FreePlace(uint32_t first) {
  uint32_t budget = 5;  // entries of the same first slot that are passed over
  Probe probe;
  probe.Begin(first);
  while (probe.made < kProbes) {
    HashNode* entry = probe.Next(addition);
    if (entry->idHash == 0 && probe.made < kProbes) return entry;
    if (FirstSlotIn(entry->idHash) == first) --budget;
  }
  MemBuf* pool = addition.pool;
  if (!pool) return nullptr;
  uint32_t count = EntryCount(pool);
  for (uint32_t i = 0; i < count && budget > 0; ++i) {
    HashNode* entry = Entries(pool) + i;
    if (entry->idHash == 0) return entry;
    if (FirstSlotIn(entry->idHash) == first) --budget;
  }
  auto* added = reinterpret_cast<HashNode*>(MemBufAdd(pool, nullptr, sizeof(HashNode)));
  if (!added) ErrRaiseText(kModule, 1410, 1, kNoMemory);
  return added;
}

// The next entry of the search, or null when it has ended.
HashNode* NextFound() {
  auto isOfSlot = [](const HashNode* entry) { return FirstSlotIn(entry->idHash) == search.first; };
  auto isEqual = [](const HashNode* entry) { return search.compare(&search.key, entry) == 0; };
  while (search.remaining > 0 && search.probe.made < kProbes) {
    HashNode* entry = search.probe.Next(search.of);
    if (!isOfSlot(entry)) continue;
    --search.remaining;
    if (isEqual(entry) && search.probe.made < kProbes) return entry;
  }
  const uint32_t count = EntryCount(search.of.pool);
  while (search.remaining > 0 && search.probe.made - kProbes < count) {
    HashNode* entry = Entries(search.of.pool) + (search.probe.made - kProbes);
    if (entry->idHash == 0) break;
    if (isOfSlot(entry)) {
      --search.remaining;
      if (isEqual(entry)) return entry;
    }
    ++search.probe.made;
  }
  return nullptr;
}

// Another entry of a first slot whose own entry was removed; null when there is none.
HashNode* Another(const Hash& hash, uint32_t first) {
  Remembered of;
  of.Take(hash);
  auto isOfSlot = [first](const HashNode* entry) {
    return entry->idHash != 0 && FirstSlotIn(entry->idHash) == first;
  };
  if (refill.made == 0) refill.Begin(first);
  while (refill.made < kProbes) {
    HashNode* entry = refill.Next(of);
    if (isOfSlot(entry) && refill.made < kProbes) return entry;
  }
  for (; refill.made - kProbes < EntryCount(of.pool); ++refill.made) {
    HashNode* entry = Entries(of.pool) + (refill.made - kProbes);
    if (isOfSlot(entry)) return entry;
  }
  refill.made = 0;
  return nullptr;
}

// Frees what a change of size left behind.
int32_t Discard(const Hash& table, const MemBuf& pool, int32_t result) {
  if (HasTable(table)) free(table.pHash);
  free(pool.pData);
  return result;
}

}  // namespace

uint32_t MemHashKey(const void* data, uint32_t length) {
  auto address = reinterpret_cast<uintptr_t>(data);
  if (length == 0) return static_cast<uint32_t>(address);
  if (!data) return length;
  auto* bytes = static_cast<const uint8_t*>(data);
  if (static_cast<int32_t>(length) >= 8) {
    uint32_t step = length / 4;
    return length + bytes[0] + bytes[step] + bytes[2 * step] + bytes[3 * step] + 4 * 32;
  }
  // Bytes behind a short key count, too; they are zero where nothing can be read.
  constexpr uint32_t kRead = 4;
  uint32_t there = kRead;
  if (length < kRead && IsBadReadPtr(data, kRead)) there = length;
  uint32_t value = 0;
  for (uint32_t i = 0; i < there; ++i) value |= uint32_t{bytes[i]} << 8 * i;
  return value;
}

int32_t MemHashCmpr(const HashKey* a, const HashKey* b) {
  if (a->nData != b->nData) return static_cast<int32_t>(a->nData - b->nData);
  if (a->nData == 0 || a->pData == b->pData) return 0;
  if (!a->pData || !b->pData) return a->pData ? 1 : -1;
  return memcmp(a->pData, b->pData, a->nData);
}

int32_t MemHashInit(Hash* hash, uint32_t slots, uint32_t pool,
                    uint32_t (*cbfHash)(const void* data, uint32_t length),
                    int32_t (*cbfCmpr)(const HashKey* key, const HashKey* entry)) {
  if (!hash) return ErrRaise(kModule, 1606, 1);
  if (cbfCmpr || !hash->cbfCmpr) hash->cbfCmpr = cbfCmpr ? cbfCmpr : MemHashCmpr;
  if (cbfHash || !hash->cbfHash) hash->cbfHash = cbfHash ? cbfHash : MemHashKey;
  return MemHashSize(hash, slots, pool);
}

int32_t MemHashSize(Hash* hash, uint32_t slots, uint32_t pool) {
  if (!hash) return -(ErrLast = 1);
  Hash saved = {};
  MemBuf savedPool = {};
  auto savePool = [&] {
    MemBuf* live = hash->pmbLinear;
    if (savedPool.pData) return;
    savedPool = *live;
    *live = {live->nAlign, 0, 0, nullptr};
  };
  if (slots != 0 && slots != hash->nHash) {
    if (hash->pHash != kMemHashPending) {
      saved = *hash;
      if (hash->pmbLinear) savePool();
    }
    Forget(*hash);
    hash->pHash = kMemHashPending;
    hash->nHash = slots;
    hash->nCount = 0;
  }
  if (pool == kMemNoPool) {
    Forget(*hash);
    free(hash->pmbLinear);
    hash->pmbLinear = nullptr;
  } else if (pool != 0) {
    uint64_t granule = uint64_t{pool} * sizeof(HashNode);
    MemBuf* made = nullptr;
    if (hash->pmbLinear) savePool();
    if (granule <= UINT32_MAX) made = MemBufNew(hash->pmbLinear, static_cast<uint32_t>(granule));
    if (!made) {
      ErrRaiseText(kModule, 1553, 2, kNoMemory);
      return Discard(saved, savedPool, -ErrLast);
    }
    hash->pmbLinear = made;
  }
  if (saved.nCount != 0 && saved.pHash) {
    const HashNode* entry = saved.pHash;
    for (uint32_t i = 0; i < saved.nHash; ++i, ++entry)
      if (!MemHashAdd(hash, entry->pData, entry->nData, entry->pAssoc))
        return Discard(saved, savedPool, ErrRaise(kModule, 1562, 4));
    entry = Entries(&savedPool);
    for (uint32_t i = EntryCount(&savedPool); i > 0; --i, ++entry)
      if (!MemHashAdd(hash, entry->pData, entry->nData, entry->pAssoc))
        return Discard(saved, savedPool, ErrRaise(kModule, 1566, 5));
  }
  return Discard(saved, savedPool, 0);
}

HashNode* MemHashAdd(Hash* hash, const void* data, uint32_t length, uintptr_t assoc) {
  if (!hash || !hash->pHash || hash->nHash == 0) return nullptr;
  if (!addition.Knows(*hash)) addition.Take(*hash);
  if (hash->pHash == kMemHashPending && !MakeTable(hash)) return nullptr;
  uint32_t first = hash->cbfHash(data, length) % addition.slots;
  HashNode* at = addition.table + first;
  HashNode* target = at;
  uint32_t count = 0;
  if (uint32_t occupant = FirstSlotIn(at->idHash)) {
    target = FreePlace(occupant);
    if (!target) return nullptr;
    if (occupant == first) {
      count = CountIn(at->idHash);
    } else {  // it was here for want of a better place, and moves on
      *target = *at;
      target = at;
    }
  }
  target->pData = data;
  target->nData = length;
  target->nState = 0;
  target->idHash = first | (count + 1) << kSlotBits;
  target->pAssoc = assoc;
  at->idHash = target->idHash;
  ++hash->nCount;
  Tell("MemHashAdd", *hash, *target);
  return target;
}

HashNode* MemHashGet(Hash* hash, const void* data, uint32_t length, int32_t mode) {
  bool usable = hash && HasTable(*hash) && hash->nHash != 0;
  if (mode != MEM_HASH_NEXT || !usable) search.underWay = false;
  if (mode == MEM_HASH_RESET || !usable) return nullptr;
  if (!search.of.Knows(*hash)) {
    search.of.Take(*hash);
    search.compare = hash->cbfCmpr;
    search.underWay = false;
  }
  if (!search.underWay) {
    search.key = {data, length};
    search.first = hash->cbfHash(data, length) % search.of.slots;
    search.remaining = CountIn(search.of.table[search.first].idHash);
    search.probe.Begin(search.first);
  }
  HashNode* entry = NextFound();
  search.underWay = entry && mode == MEM_HASH_NEXT;
  if (entry) Tell("MemHashGet", *hash, *entry);
  return entry;
}

const HashKey* MemHashDel(Hash* hash, const void* data, uint32_t length) {
  static HashKey key;
  if (!hash || !data) return ErrLast = 1, nullptr;
  if (!HasTable(*hash) || hash->nHash == 0) return nullptr;
  hash->cbfHash(data, length);  // its first slot, of which no count is left
  key = {data, length};
  return &key;
}

const HashNode* MemHashRemove(Hash* hash, HashNode* entry) {
  static HashNode removed;
  bool good = hash && entry && HasTable(*hash) && entry->idHash != 0;
  if (!good || FirstSlotIn(entry->idHash) >= hash->nHash) return ErrLast = 1, nullptr;
  uint32_t first = FirstSlotIn(entry->idHash);
  HashNode* at = hash->pHash + first;
  uint32_t count = CountIn(at->idHash);
  entry->idHash = 0;
  removed = *entry;
  --hash->nCount;
  MemBuf* pool = hash->pmbLinear;
  if (pool && MemBufHolds(pool, entry) && EntryCount(pool) > 0) {
    pool->nSize -= sizeof(HashNode);
    HashNode* last = Entries(pool) + EntryCount(pool);
    *entry = *last;
    *last = {};
  }
  if (--count == 0) return &removed;
  if (entry == at) {
    const HashNode* another = Another(*hash, first);
    if (!another) return ErrRaiseText(kModule, 1366, 1, kNoObject), nullptr;
    *at = *another;
  }
  at->idHash = first | count << kSlotBits;
  return &removed;
}

int32_t MemHashFree(Hash* hash) {
  if (!hash) return ErrRaise(kModule, 1595, 1);
  Forget(*hash);
  if (HasTable(*hash)) free(hash->pHash);
  if (hash->pmbLinear) {
    MemBufFree(hash->pmbLinear);
    free(hash->pmbLinear);
  }
  return 0;
}

int32_t MemHashDump(const Hash* hash, const void* data, uint32_t length) {
  if (!hash) return ErrRaise(kModule, 1627, 1);
  auto number = [](auto pointer) { return reinterpret_cast<uintptr_t>(pointer); };
  Trace(0,
        "Hash (0x%08" PRIXPTR "): pHash=0x%08" PRIXPTR
        "; nHash=0x%08X; nCount=0x%08X; pmbLinear=0x%08" PRIXPTR "; cbfHash=0x%08" PRIXPTR
        "; cbfCmpr=0x%08" PRIXPTR ";\n",
        number(hash), number(hash->pHash), hash->nHash, hash->nCount, number(hash->pmbLinear),
        number(hash->cbfHash), number(hash->cbfCmpr));
  const HashKey key = {data, length};
  int32_t line = 0;
  auto dump = [&](const HashNode* entry) {
    Trace(0,
          "%04d Node (0x%08" PRIXPTR "): pData=0x%08" PRIXPTR
          "; nData=0x%08X; nState=0x%08X; pAssoc=0x%08" PRIXPTR "; idHash=0x%08X; Cmpr=%d;\n",
          ++line, number(entry), number(entry->pData), entry->nData, entry->nState, entry->pAssoc,
          entry->idHash, hash->cbfCmpr ? hash->cbfCmpr(entry, &key) : 0);
  };
  for (uint32_t i = 0; HasTable(*hash) && i < hash->nHash; ++i) dump(hash->pHash + i);
  const MemBuf* pool = hash->pmbLinear;
  if (!pool) return 0;
  const auto size = static_cast<uint32_t>(sizeof(HashNode));
  Trace(0, "%04d Hash linear entries (0x%08" PRIXPTR "): nAlloc=0x%08X; nAlign=0x%08X\n",
        static_cast<int32_t>(EntryCount(pool)), number(pool->pData), pool->nAlloc / size,
        pool->nAlign / size);
  for (uint32_t i = 0; i < EntryCount(pool); ++i) dump(Entries(pool) + i);
  return 0;
}

}  // namespace quern

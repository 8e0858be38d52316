// A table from byte keys to words, with a few probes per key and an overflow pool behind them.
//
// An addition or lookup looks at four slots, at distances 0, 1, 4 and 9 from the key's first slot
// (which its hash value names), then at the pool. Keys are not copied. Additions and lookups are
// told to the trace, at level 0xC0000000, which no threshold drops.
//
// The limits of the encoding are part of it: no more than 2^20 slots (with more, first slots and
// counts run into each other, and keys are lost), 4095 entries of a first slot; and an entry whose
// first slot is 0 counts as free there, so that the next key that needs the slot replaces it.
//
// The slot count, the pool and the comparison of the hash used last are remembered by its table:
// what a caller changes in the record itself is seen only after another hash was used.
#pragma once

#include <cstdint>

#include "quern/cmem/buffer.h"

namespace quern {

struct HashKey {
  const void* pData;  // the caller's
  uint32_t nData;     // bytes
};

// A slot or pool entry.
struct HashNode : HashKey {
  uint32_t nState;   // the caller's; 0 at first
  uint32_t idHash;   // 0: free. The first slot in the low 20 bits; above them, in the entry that
                     // occupies it, how many entries have it
  uintptr_t pAssoc;  // the word that the key stands for
};
static_assert(sizeof(void*) != 4 || sizeof(HashNode) == 20);

// The caller's record, zeroed at first.
struct Hash {
  HashNode* pHash;    // the table, owned; kMemHashPending: made by the first addition
  uint32_t nHash;     // slots
  uint32_t nCount;    // additions less removals
  MemBuf* pmbLinear;  // the pool, owned; null: none
  uint32_t (*cbfHash)(const void* data, uint32_t length);
  int32_t (*cbfCmpr)(const HashKey* key, const HashKey* entry);  // 0: equal
};
static_assert(sizeof(void*) != 4 || sizeof(Hash) == 24);

inline HashNode* const kMemHashPending = reinterpret_cast<HashNode*>(~uintptr_t{0});

// Sets a hash up for `slots` slots and a pool that grows by `pool` entries (0: none). Null
// callbacks stand for those that it has, else for the two below. Returns 0, or minus ErrLast after
// raising 1 (no hash), or as MemHashSize.
int32_t MemHashInit(Hash* hash, uint32_t slots, uint32_t pool,
                    uint32_t (*cbfHash)(const void* data, uint32_t length),
                    int32_t (*cbfCmpr)(const HashKey* key, const HashKey* entry));

// The address for length 0, the length for a null address, the first four bytes (even where the key
// has fewer) for less than 8 bytes; else a sum of the length and four bytes.
uint32_t MemHashKey(const void* data, uint32_t length);

// By length, then by bytes.
int32_t MemHashCmpr(const HashKey* a, const HashKey* b);

// Changes the number of slots (0: keeps it) and the pool (0: keeps it; kMemNoPool: takes it away,
// with its data block left allocated). For a new number of slots everything is added again.
// Compat: so are the slots that were free, as keys of length 0, which count. A new pool alone is
// empty. Returns 0, or minus ErrLast after raising 2 (no memory for the pool), 4 or 5 (a slot or
// pool entry could not be added; they are gone then). ErrLast is set to 1 for a null hash.
int32_t MemHashSize(Hash* hash, uint32_t slots, uint32_t pool);
inline constexpr uint32_t kMemNoPool = 0xFFFFFFFF;

// Adds an entry and returns it; what is there with the same key stays. Null when there is no place
// (nothing is raised), no table or no slots, or after raising 1 (no memory).
HashNode* MemHashAdd(Hash* hash, const void* data, uint32_t length, uintptr_t assoc);

// The entry of a key, or null. With MEM_HASH_NEXT the next one of the key that was given to the
// first such call; a search ends when there is none, with any other mode, and with another table.
// In the pool it does not go past what it found.
HashNode* MemHashGet(Hash* hash, const void* data, uint32_t length, int32_t mode);
inline constexpr int32_t MEM_HASH_NEXT = -1;
inline constexpr int32_t MEM_HASH_RESET = -2;  // ends the search; null

// Compat: removes nothing; the count of the key's first slot is shifted away twice. Returns a
// record of the key that every call overwrites; null without a table, and for a null argument,
// after setting ErrLast to 1.
const HashKey* MemHashDel(Hash* hash, const void* data, uint32_t length);

// Removes an entry and returns a copy of it, which every call overwrites. From its first slot
// another entry is put there, which stays where it is, too; the search for it goes on where the
// last one ended. Null after setting ErrLast to 1 (a free entry, or none), or after raising 1 (no
// other entry to put there).
const HashNode* MemHashRemove(Hash* hash, HashNode* entry);

// Frees table and pool; the record is left as it is. Returns 0, or minus ErrLast after raising 1.
int32_t MemHashFree(Hash* hash);

// Writes the hash to the trace, a line for each slot and pool entry, compared with a key. Returns
// 0, or minus ErrLast after raising 1 (no hash).
int32_t MemHashDump(const Hash* hash, const void* data, uint32_t length);

}  // namespace quern

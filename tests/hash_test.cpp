// Hashes: what each call leaves in slots and pool, and what is remembered from call to call.

#include "tests/support/test.h"

namespace quern {
namespace {

Hash hashes[2];
Hash* hash;  // the one that calls get

HashNode* Pool() {
  return hash->pmbLinear ? reinterpret_cast<HashNode*>(hash->pmbLinear->pData) : nullptr;
}

// Entries go by their slots, those of the pool by a plus and their place there, those of the other
// hash by an asterisk.
HashNode* Entry(const std::string& name) {
  if (name == ".") return nullptr;
  if (name[0] == '*') return hashes[hash == hashes].pHash + std::stoi(name.substr(1));
  return name[0] == '+' ? Pool() + std::stoi(name.substr(1)) : hash->pHash + std::stoi(name);
}
std::string NameOf(const HashNode* at) {
  const bool pooled = Pool() && MemBufHolds(hash->pmbLinear, at);
  return (pooled ? "+" : "") + tavrix_test::Name(at, pooled ? Pool() : hash->pHash, sizeof *at);
}
// Key and count, a place that is not the key's, a quotation mark with a state, an asterisk with a
// word that is not the key's, in brackets what was freed.
std::string Contents(const HashNode& entry) {
  if (!entry.idHash && !entry.pAssoc) return "";
  const std::string place = std::to_string(entry.idHash & 0xFFFFF);
  std::string text(static_cast<const char*>(entry.pData), entry.pData ? entry.nData : 0);
  const bool foreign = !text.ends_with(place),
             own = entry.pAssoc == static_cast<uintptr_t>(text[0]);
  text += std::string(own ? "" : "*") + (entry.nState ? "'" : "") + (foreign ? ":" + place : "");
  return entry.idHash ? text + "x" + std::to_string(entry.idHash >> 20) : "(" + text + ")";
}

// Its own words are "#", the count, and "+", the size of the pool.
tavrix_test::State Read() {
  tavrix_test::State state = {{"#", std::to_string(hash->nCount)}, {"+", "."}};
  for (uint32_t i = 0; hash->pHash && hash->pHash != kMemHashPending && i < hash->nHash; ++i)
    state[std::to_string(i) + "="] = Contents(hash->pHash[i]);
  if (!hash->pmbLinear) return state;
  const uint32_t size = hash->pmbLinear->nSize / sizeof(HashNode);
  state["+"] = std::to_string(size);
  for (uint32_t i = 0; i < size; ++i) state["+" + std::to_string(i) + "="] = Contents(Pool()[i]);
  return state;
}

// A key's last letter is its place's number.
uint32_t LastDigit(const void* data, uint32_t length) {
  return length ? static_cast<uint32_t>(static_cast<const char*>(data)[length - 1] - '0') : 2;
}

std::string Step(const tavrix_test::Words& w) {
  static std::set<std::string> keys;
  const char* key = w[1] == "." ? nullptr : keys.insert(w[1]).first->c_str();
  const uint32_t size = key ? static_cast<uint32_t>(w[1].size()) : 0;
  if (w[0] == "init" || w[0] == "size") {
    const auto slots = static_cast<uint32_t>(std::stoi(w[1]));
    const auto pool = static_cast<uint32_t>(std::stoi(w[2]));
    return std::to_string(w[0] == "init" ? MemHashInit(hash, slots, pool, LastDigit, nullptr)
                                         : MemHashSize(hash, slots, pool));
  }
  if (w[0] == "add") return NameOf(MemHashAdd(hash, key, size, static_cast<uintptr_t>(*key)));
  if (w[0] == "get") return NameOf(MemHashGet(hash, key, size, 0));
  if (w[0] == "next") return NameOf(MemHashGet(hash, key, size, MEM_HASH_NEXT));
  if (w[0] == "reset") return NameOf(MemHashGet(hash, key, size, MEM_HASH_RESET));
  if (w[0] == "del") {
    const HashKey* echo = MemHashDel(hash, key, size);
    return echo && echo->pData == key && echo->nData == size ? "key" : ".";
  }
  if (w[0] == "remove") {
    const HashNode* removed = MemHashRemove(hash, Entry(w[1]));
    return removed ? Contents(*removed) : ".";
  }
  if (w[0] == "other") hash = hashes + (hash == hashes);
  if (w[0] == "state") Entry(w[1])->nState = 5;
  if (w[0] == "empty") Entry(w[1])->idHash = 0;
  if (w[0] == "free") MemHashFree(hash), *hash = {};
  return "";
}

void Expect(const std::string& transcript) {
  hashes[0] = hashes[1] = {};
  hash = hashes;
  EXPECT_EQ(tavrix_test::Played(transcript, Step, Read), transcript);
}

// The entries of a place stand at distances 0, 1, 4 and 9 from it, then in the pool.
TEST(Hash, AddsWhereThereIsAPlace) {
  Expect(R"(
    init 13 0 : 0, add a3 : 3 ; #1 3=a3x1, add b3 : 4 ; #2 3=a3x2 4=b3x2
    add c3 : 7 ; #3 3=a3x3 7=c3x3, add d3 : 12 ; #4 12=d3x4 3=a3x4, add e3 : ., add f4 : .
    state 4 : ; 4=b3'x2, add g7 : ., add h0 : 0 ; #5 0=h0x1, add i0 : 0 ; #6 0=i0x1
    add j9 : 9 ; #7 9=j9x1, add k8 : 8 ; #8 8=k8x1, add l9 : 10 ; #9 10=l9x2 9=j9x2, free : ; #0
    init 20 2 : 0 ; +0, add a3 : 3 ; #1 3=a3x1, add b3 : 4 ; #2 3=a3x2 4=b3x2
    add c3 : 7 ; #3 3=a3x3 7=c3x3, add d3 : 12 ; #4 12=d3x4 3=a3x4
    add e3 : +0 ; #5 +1 +0=e3x5 3=a3x5, empty +0 : ; +0=(e3:0), add f3 : +0 ; #6 +0=f3x6 3=a3x6
    add g3 : +1 ; #7 +2 +1=g3x7 3=a3x7, empty +0 : ; +0=(f3:0), add h3 : +0 ; #8 +0=h3x8 3=a3x8
    empty +1 : ; +1=(g3:0), add i3 : +2 ; #9 +3 +2=i3x9 3=a3x9, add k4 : 4 ; #10 +4 +3=b3x2 4=k4x1
    free : ; #0 +.)");
}

TEST(Hash, FindsTheEntriesOfAPlace) {
  Expect(R"(
    init 20 2 : 0 ; +0, add a3 : 3 ; #1 3=a3x1, add b3 : 4 ; #2 3=a3x2 4=b3x2
    add a3 : 7 ; #3 3=a3x3 7=a3x3, add c3 : 12 ; #4 12=c3x4 3=a3x4
    add a3 : +0 ; #5 +1 +0=a3x5 3=a3x5, add a3 : +1 ; #6 +2 +1=a3x6 3=a3x6, get a3 : 3, get b3 : 4
    get c3 : 12, get d3 : ., get c4 : ., next a3 : 3, next a3 : 7, next b3 : +0, next . : +0
    next a3 : ., next a3 : 3, next a3 : 7, next a3 : +0, get b3 : 4, next a3 : 3, next a3 : 7
    reset a3 : ., next a3 : 3, other : ; #0 +., next a3 : .
    other : ; #6 +2 +0=a3x5 +1=a3x6 12=c3x4 3=a3x6 4=b3x2 7=a3x3, next a3 : 3, next a3 : 7
    empty +0 : ; +0=(a3:0), next a3 : ., next a3 : 3, next a3 : 7, get a3 : 3, del a3 : key
    del . : . !1, free : ; #0 +.)");
}

TEST(Hash, RemovedEntriesAreReplaced) {
  Expect(R"(
    init 20 2 : 0 ; +0, add a3 : 3 ; #1 3=a3x1, add b3 : 4 ; #2 3=a3x2 4=b3x2
    add c3 : 7 ; #3 3=a3x3 7=c3x3, add d3 : 12 ; #4 12=d3x4 3=a3x4
    add e3 : +0 ; #5 +1 +0=e3x5 3=a3x5, add f3 : +1 ; #6 +2 +1=f3x6 3=a3x6
    add g3 : +2 ; #7 +3 +2=g3x7 3=a3x7, remove +0 : (e3:0) ; #6 +2 +0=g3x7 3=a3x6
    remove 3 : (a3:0) ; #5 3=b3x5, remove 4 : (b3:0) ; #4 3=b3x4 4=(b3:0)
    remove 3 : (b3:0) ; #3 3=c3x3, remove 7 : (c3:0) ; #2 3=c3x2 7=(c3:0)
    remove 3 : (c3:0) ; #1 3=d3x1, remove +0 : (g3:0) ; #0 +1 +0=f3x6
    remove 3 : (d3:0) ; #4294967295 3=(d3:0), remove 3 : . !1, add h5 : 5 ; #0 5=h5x1
    remove 5 : (h5:0) ; #4294967295 5=(h5:0), add i3 : 3 ; #0 3=i3x1, add j3 : 4 ; #1 3=i3x2 4=j3x2
    remove 3 : (i3:0) ; #0 3=f3x1, remove 9 : . !1, remove . : . !1)");
}

TEST(Hash, ChangesItsSize) {
  Expect(R"(
    init 3 0 : 0, add a1 : 1 ; #1 1=a1x1, add b2 : 2 ; #2 2=b2x1, state 2 : ; 2=b2'x1
    size 7 0 : 0 ; #3 2=:2x2 3=b2x2, add c5 : 5 ; #4 5=c5x1, size 7 0 : 0
    size 2 3 : 0 ; #7 +1 +0=c5:1x2 0=:0x1 1=a1x2, size 0 5 : 0 ; +0
    add d1 : +0 ; #8 +1 +0=d1x3 1=a1x3, size 9 0 : 0 ; #3 +0 0= 1=a1x2 2=:2x1 5=d1x2
    size 0 -2 : -2 !2, size 0 -1 : 0 ; +., size 1 0 : 0 ; #9 0=:0x1, size 1 1 : 0 ; +0
    free : ; #0 +., init 2 9 : 0 ; +0, add a1 : 1 ; #1 1=a1x1, add b1 : 0 ; #2 0=b1x2 1=a1x2
    add c1 : +0 ; #3 +1 +0=c1x3 1=a1x3, size 1 -1 : 0 ; +. 0=c1:0x1, free : ; #0, init 2 3 : 0 ; +0
    add a1 : 1 ; #1 1=a1x1, add b1 : 0 ; #2 0=b1x2 1=a1x2, add c1 : +0 ; #3 +1 +0=c1x3 1=a1x3
    size 3 -1 : -5 =05@1566 ; #2 +. 0= 1=b1x2 2=a1x2)");
}

TEST(Hash, RefusesWhatItCannotDo) {
  Expect(R"(
    add a1 : ., get a1 : ., del a1 : ., init 0 0 : 0, add a1 : ., get a1 : ., init 5 0 : 0
    get a1 : ., del a1 : ., add a1 : 1 ; #1 1=a1x1, other : ; #0, init 9 0 : 0
    add m5 : 5 ; #1 5=m5x1, other : ; 1=a1x1, remove *5 : . !1)");
}

TEST(Hash, TracesAndDumps) {
  Expect("init 3 2 : 0 ; +0");
  const char key[] = "b\0011";
  EXPECT_EQ(tavrix_test::Traced([&] { MemHashAdd(hash, key, 3, 0xABC)->nState = 5; }),
            "MemHashAdd: 01 id=0x00100001 assoc=0x00000ABC state=0x00000000 data=03 b.1\n");
  MemHashAdd(hash, nullptr, 0, 7);
  MemHashAdd(hash, key + 1, 2, 8);
  EXPECT_EQ(tavrix_test::Numbered(tavrix_test::Traced([&] { MemHashDump(hash, key, 3); })),
            R"(Hash (@0): pHash=@1; nHash=3; nCount=3; pmbLinear=@2; cbfHash=@3; cbfCmpr=@4;
0001 Node (@1): pData=0; nData=0; nState=0; pAssoc=0; idHash=0; Cmpr=-3;
0002 Node (@5): pData=@6; nData=3; nState=5; pAssoc=2748; idHash=@7; Cmpr=0;
0003 Node (@8): pData=0; nData=0; nState=0; pAssoc=7; idHash=@9; Cmpr=-3;
0001 Hash linear entries (@10): nAlloc=2; nAlign=2
0004 Node (@10): pData=@11; nData=2; nState=0; pAssoc=8; idHash=@7; Cmpr=-1;
)");
}

TEST(Hash, Keys) {
  const char key[] = "abcdefghijk";
  EXPECT_EQ(MemHashKey(reinterpret_cast<void*>(77), 0), 77u);
  EXPECT_EQ(MemHashKey(nullptr, 9), 9u);
  EXPECT_TRUE(MemHashKey(key, 7) == 0x64636261 && MemHashKey(key, 0x80000000) == 0x64636261);
  EXPECT_EQ(MemHashKey(key, 11), 11 + 'a' + 'c' + 'e' + 'g' + 128u);
  const HashKey a = {"ab", 2}, b = {"ac", 2}, c = {"a", 1}, none = {nullptr, 2};
  EXPECT_TRUE(MemHashCmpr(&a, &b) < 0 && MemHashCmpr(&c, &b) == -1);
  EXPECT_TRUE(MemHashCmpr(&none, &b) == -1 && MemHashCmpr(&b, &none) == 1);
#ifndef _WIN32
  // What lies behind a short key counts where it can be read.
  char* page = static_cast<char*>(
      mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(page + 4096, 4096, PROT_NONE);
  memcpy(page + 4092, "abcd", 4);
  EXPECT_EQ(MemHashKey(page + 4092, 3), 0x64636261u);
  EXPECT_EQ(MemHashKey(page + 4093, 2), 0x6362u);
  munmap(page, 8192);
#endif
}

TEST(Hash, KeepsEveryKeyOfALargeTable) {
  static uint32_t keys[100000];
  Hash large = {};
  MemHashInit(&large, 1 << 20, 1000, nullptr, nullptr);
  for (uint32_t& key : keys) {  // slot 0 is for nobody
    key = static_cast<uint32_t>(&key - keys + 1) * 77;
    ASSERT_NE(MemHashAdd(&large, &key, 4, key), nullptr);
  }
  for (const uint32_t& key : keys) ASSERT_EQ(MemHashGet(&large, &key, 4, 0)->pAssoc, key);
  MemHashFree(&large);
}

}  // namespace
}  // namespace quern

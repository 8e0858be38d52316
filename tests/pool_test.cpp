// Pieces and chunks of pools against the bytes that they must have.

#include "quern/cmem/pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/alloc.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;

constexpr uint32_t kHeader = sizeof(PoolChunk);

struct Chunk {
  std::string bytes;  // behind the header
  uint32_t alloc, used;
};

PoolChunk* Current(const MemBuf& buf) { return reinterpret_cast<PoolChunk*>(buf.pData); }

TEST(Pool, AgreesWithAModelOverRandomCalls) {
  std::mt19937 random(48);
  auto below = [&](size_t n) { return static_cast<uint32_t>(random() % n); };
  int64_t before = tavrix_test::LiveBlocks();
  for (int round = 0; round < 3000; ++round) {
    const uint32_t granule = (const uint32_t[]){0, 1, 64, 300, 1024}[below(5)];
    MemBuf buf = {granule, 0, 0, nullptr};
    std::vector<Chunk> chunks;
    uint32_t size = 0, alloc = 0;  // as the record has them
    for (int step = 0; step < 40; ++step) {
      std::string text(below(8) ? below(40) : below(700), '\0');
      for (char& c : text) c = static_cast<char>(1 + below(255));
      const uint32_t n = static_cast<uint32_t>(text.size());
      const char* src = below(4) ? text.data() : nullptr;
      const bool first = chunks.empty();
      if (!first && below(8) == 0) {
        PoolChunk* chunk = Current(buf);
        const void* at = below(2) ? nullptr : buf.pData + below(chunks.back().used + 1);
        bool outside = at == buf.pData + chunks.back().used || chunks.back().used == 0;
        MemPoolInfo* info = below(2) ? MemPoolFind(&buf, at) : nullptr;
        bool found = info;
        if (!found) {
          info = MemPoolDel(&buf, at);
          ASSERT_EQ(!info, outside);
          if (outside) continue;
        }
        ASSERT_EQ(info->nAlign, granule);
        ASSERT_EQ(info->nAlloc, chunks.back().alloc);
        ASSERT_EQ(info->nUsed, chunks.back().used);
        ASSERT_EQ(info->pChunk, chunk);
        if (found) continue;
        ASSERT_EQ(chunk->link.pWhere, nullptr);
        free(chunk);
        chunks.pop_back();
        size = chunks.empty() ? 0 : std::max(chunks.back().used, kHeader);
        alloc = chunks.empty() ? 0 : chunks.back().alloc;
      } else if (bool anew = below(first ? 2 : 20) == 0; anew || first || alloc < size + n) {
        if (anew && !first) {  // in the same block; the other chunks are forgotten
          for (ChainLink* link = Current(buf)->link.pWhere; link;)
            free(std::exchange(link, link->pWhere));
          chunks.clear();
          if (below(2) && n <= size) {  // of a piece of its own
            src = buf.pData + below(size - n + 1);
            text.assign(src, n);
          }
        }
        if (!anew) alloc = 0;
        char* piece = (anew ? MemPoolNew : MemPoolAdd)(&buf, src, n);
        ASSERT_EQ(piece, buf.pData + kHeader);
        size = n + kHeader;
        alloc = std::max(alloc, MemAlign(size + 4, granule));
        std::string bytes(buf.pData + kHeader, alloc - kHeader);  // unwritten ones may be anything
        if (!anew) bytes.replace(0, n, n, '\0');
        bytes.replace(n, 4, 4, '\0');
        size_t at = std::min<size_t>(anew ? 0 : 15 * kHeader, bytes.size());
        if (src)
          bytes.replace(at, std::min<size_t>(n, bytes.size() - at), text, 0, bytes.size() - at);
        chunks.push_back({bytes, alloc, anew ? n : size});
      } else {
        Chunk& chunk = chunks.back();
        bool grows = alloc < size + n + 4;
        char* piece = MemPoolAdd(&buf, src, n);
        ASSERT_EQ(piece, buf.pData + size);
        if (grows) {
          uint32_t was = alloc;
          alloc = MemAlign(size + n + 4, granule);
          chunk.bytes.resize(was - kHeader);
          chunk.bytes.append(buf.pData + was, alloc - was);
        }
        auto put = [&](uint32_t at, std::string_view what) {
          for (char c : what) {
            if (at >= kHeader && at < alloc) chunk.bytes[at - kHeader] = c;
            ++at;
          }
        };
        put(size + n, std::string_view("\0\0\0\0", 4));
        if (src) put(size, text);
        put(size + kHeader * n, std::string_view("\0\0\0\0", 4));
        chunk.used += n;
        size += n;
      }
      ASSERT_EQ(buf.nSize, size);
      ASSERT_EQ(buf.nAlloc, alloc);
      const PoolChunk* chunk = Current(buf);
      ChainLink* behind = nullptr;
      for (size_t i = chunks.size(); i-- > 0;) {
        ASSERT_EQ(chunk->nAlloc, chunks[i].alloc);
        ASSERT_EQ(chunk->nUsed, chunks[i].used);
        ASSERT_EQ(chunk->link.pNext, behind);
        ASSERT_EQ(memcmp(chunk + 1, chunks[i].bytes.data(), chunks[i].bytes.size()), 0)
            << round << " " << step;
        behind = const_cast<ChainLink*>(&chunk->link);
        chunk = reinterpret_cast<const PoolChunk*>(chunk->link.pWhere);
      }
      ASSERT_EQ(chunk, nullptr);
    }
    bool empty = !chunks.empty() && chunks[0].used == 0;  // such a chunk is never found
    MemPoolFree(&buf);
    ASSERT_EQ(buf.pData != nullptr, empty);
    MemBufFree(&buf);
  }
  EXPECT_EQ(ErrCurrent, nullptr);
  EXPECT_EQ(tavrix_test::LiveBlocks(), before);
}

TEST(Pool, FindsForwardOnly) {
  MemBuf buf = {64, 0, 0, nullptr};
  char* piece = MemPoolNew(&buf, "0123456789", 10);
  PoolChunk* first = Current(buf);
  MemPoolAdd(&buf, nullptr, 100);
  PoolChunk* second = Current(buf);
  EXPECT_EQ(MemPoolFind(&buf, piece), nullptr);
  PoolChunk behind = {{nullptr, nullptr}, 5, 6};
  MemChainLinkAfter(nullptr, &behind.link, &second->link);
  EXPECT_EQ(MemPoolFind(&buf, &behind)->pChunk, &behind);
  EXPECT_EQ(MemPoolDel(&buf, nullptr)->pChunk, second);  // another is behind it: it stays current
  EXPECT_EQ(Current(buf), second);
  EXPECT_EQ(first->link.pNext, &behind.link);
  EXPECT_EQ(behind.link.pWhere, &first->link);
  MemChainLinkAfter(nullptr, &behind.link, &second->link);
  buf.nSize = buf.nAlloc - 1;
  MemPoolAdd(&buf, "x", 1);  // the chunk moves, and both know
  second = Current(buf);
  EXPECT_EQ(behind.link.pWhere, &second->link);
  EXPECT_EQ(MemPoolFree(&buf), second);
  EXPECT_EQ(buf.nAlign, 64u);
  EXPECT_EQ(buf.pData, nullptr);
  EXPECT_EQ(buf.nSize + buf.nAlloc, 0u);
  EXPECT_EQ(MemPoolFree(&buf), nullptr);
  free(first);
  EXPECT_EQ(MemPoolFind(&buf, nullptr), nullptr);
  EXPECT_EQ(MemPoolFind(nullptr, nullptr), nullptr);
  EXPECT_EQ(MemPoolDel(nullptr, nullptr), nullptr);
  EXPECT_EQ(MemPoolFree(nullptr), nullptr);
  EXPECT_EQ(ErrCurrent, nullptr);
}

TEST(Pool, AllocationsMayFailAndLeaveTheRecord) {
  MemBuf buf = {2048, 0, 0, nullptr};
  EXPECT_EQ(MemPoolNew(nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(MemPoolAdd(nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.01.01");
  for (uint32_t n : {0xFFFFFFF0u, 0xFFFFFFFFu, 0x7FFFFFF0u})
    EXPECT_EQ(MemPoolNew(&buf, nullptr, n), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.01.01.01.01.01");
  EXPECT_EQ(buf.pData, nullptr);
  const int64_t before = tavrix_test::LiveBlocks();
  MemBuf was = buf;
  auto fails = [&](char* (*call)(MemBuf*, const void*, uint32_t), const void* src, uint32_t n,
                   int64_t more = 0) {
    AllocationFault fault(1, more);
    EXPECT_EQ(call(&buf, src, n), nullptr) << n;
    EXPECT_EQ(memcmp(&buf, &was, sizeof buf), 0) << n;
    return ErrLast;
  };
  EXPECT_EQ(fails(MemPoolNew, nullptr, 48), 1);
  EXPECT_EQ(fails(MemPoolAdd, nullptr, 48), 1);
  MemPoolNew(&buf, nullptr, 48);
  was = buf;
  EXPECT_EQ(fails(MemPoolAdd, nullptr, 3000), 1);
  EXPECT_EQ(fails(MemPoolNew, buf.pData, 3), 1);  // a copy of its own bytes
  EXPECT_EQ(fails(MemPoolNew, nullptr, 9000, 1), 1);
  EXPECT_EQ(ClearedTrail(), "01.02.01.01.01.01.01.01.01.01");
  for (uint32_t n : {0xFFFFFFFFu, 0x80000000u})  // no room for the first, as sums wrap
    EXPECT_NE(fails(MemPoolAdd, nullptr, n), 0);
  // No room for the terminator: the chunk has to grow.
  EXPECT_EQ(fails(MemPoolAdd, nullptr, buf.nAlloc - buf.nSize, 1), 2);
  EXPECT_EQ(Current(buf)->nUsed, 48u);
  MemPoolFree(&buf);
  EXPECT_EQ(tavrix_test::LiveBlocks(), before);
}

}  // namespace
}  // namespace quern

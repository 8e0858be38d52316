// Pools: where pieces and chunks are, and what is in them.

#include "tests/support/test.h"

namespace quern {
namespace {

constexpr uint32_t kHeader = sizeof(PoolChunk);

MemBuf buf;
char* kept;  // an address

PoolChunk* Current() { return reinterpret_cast<PoolChunk*>(buf.pData); }

// Sizes go without a header where there is one, with an "h" in front of them; those in granules as
// they are.
std::string Size(uint32_t size, bool whole = false) {
  return whole || size < kHeader ? std::to_string(size) : "h" + std::to_string(size - kHeader);
}

tavrix_test::State Read() {
  std::string chunks;
  const ChainLink* behind = nullptr;
  for (const PoolChunk* chunk = Current(); chunk;) {
    chunks += " " + Size(chunk->nUsed) + "/" + Size(chunk->nAlloc, buf.nAlign > 1);
    if (chunk->link.pNext != behind) chunks += "?";
    behind = &chunk->link;
    chunk = reinterpret_cast<const PoolChunk*>(chunk->link.pWhere);
  }
  return {{"#", Size(buf.nSize)}, {"/", Size(buf.nAlloc, buf.nAlign > 1)}, {"chunks", chunks}};
}

std::string Step(const tavrix_test::Words& w) {
  if (w[0] == "keep") return kept = buf.pData, "";
  if (w[0] == "free") return MemPoolFree(&buf) ? "last" : ".";
  if (w[0] == "find" || w[0] == "del") {
    const char* at = w[1] == "." ? nullptr : w[1] == "kept" ? kept : buf.pData + std::stoi(w[1]);
    PoolChunk* current = Current();
    const MemPoolInfo* info = w[0] == "del" ? MemPoolDel(&buf, at) : MemPoolFind(&buf, at);
    if (!info) return ".";
    if (w[0] == "del") free(current);
    return std::to_string(info->nAlign) + "/" + Size(info->nAlloc) + "/" + Size(info->nUsed);
  }
  static std::vector<std::string> between;  // so that blocks cannot grow where they are
  between.emplace_back(4000, ' ');
  const bool empty = w[0].ends_with("#");  // a size, and no bytes
  const auto n = static_cast<uint32_t>(empty ? std::stoul(w[1]) : w[1].size());
  char* piece = (w[0][0] == 'n' ? MemPoolNew : MemPoolAdd)(&buf, empty ? nullptr : w[1].data(), n);
  if (!piece) return ".";
  const std::string at = Size(static_cast<uint32_t>(piece - buf.pData));
  return empty ? at : at + "=" + piece;
}

void Expect(uint32_t granule, const std::string& transcript) {
  buf = {granule, 0, 0, nullptr};
  EXPECT_EQ(tavrix_test::Played(transcript, Step, Read), transcript);
}

// Compat: in the first chunk pieces go over others in the end, as its used bytes lack the header.
TEST(Pool, TakesPiecesFromChunks) {
  Expect(1, R"(
    find . : ., del . : ., free : ., new 0123456 : h0=0123456 ; #h7 /h11 chunks 7/h11
    find 6 : 1/h11/7, find 7 : ., add abcd : h7=abcd ; #h11 /h15 chunks 11/h11, keep :
    add# 9 : h0 ; #h9 /h13 chunks h9/h13 11/h11, find 8 : 1/h13/h9, find kept : .
    add# 1000 : h0 ; #h1000 /h1004 chunks h1000/h1004 h9/h13 11/h11
    add gh : h1000=gh ; #h1002 /h1006 chunks h1002/h1004 h9/h13 11/h11
    add# 2 : h1002 ; #h1004 /h1008 chunks h1004/h1004 h9/h13 11/h11
    add# 1 : h1004 ; #h1005 /h1009 chunks h1005/h1004 h9/h13 11/h11, del 2000 : .
    del . : 1/h1004/h1005 ; #h9 /h13 chunks h9/h13 11/h11
    add ij : h9=ij ; #h11 /h15 chunks h11/h13 11/h11, del . : 1/h13/h11 ; #h0 /h11 chunks 11/h11
    find . : 1/h11/11, del . : 1/h11/11 ; #0 /0 chunks, del . : .
    add xyz : h0= ; #h3 /h7 chunks h3/h7, free : last ; #0 /0 chunks, free : .)");
  Expect(256, R"(
    new a : h0=a ; #h1 /256 chunks 1/256, add# 3 : h1 ; #h4 chunks 4/256, keep :
    add bcd : h4=bcd ; #h7 chunks 7/256, add# 400 : h0 ; #h400 /512 chunks h400/512 7/256
    add# 1 : h400 ; #h401 chunks h401/512 7/256, new e : h0=e ; #h1 chunks 1/512)");
  free(buf.pData);
  free(kept);
}

TEST(Pool, RefusesWhatIsTooLarge) {
  Expect(1, R"(
    new# 4294967280 : . =01.01@582, new# 2147483632 : . =01.01@582, new abc : h0=abc ; #h3 /h7 chunks 3/h7
    add# 4294967295 : . =01.01@601, add# 2147483648 : . =01.01@601, add# 4294967290 : . =01.01@601
    find . : 1/h7/3, free : last ; #0 /0 chunks)");
}

// Compat: a new chunk's bytes stand 15 headers further on, and a piece is followed by zeros behind
// as many headers as it has bytes.
TEST(Pool, WritesFarBehindThePiece) {
  Expect(1024, "");
  const std::string text(900, 'x');
  MemPoolNew(&buf, text.data(), 900);
  EXPECT_EQ(std::string(buf.pData + kHeader, 904), text + std::string(4, '\0'));
  MemPoolNew(&buf, buf.pData + kHeader + 1, 3);  // of its own bytes
  EXPECT_EQ(memcmp(buf.pData + kHeader, "xxx\0\0\0\0xxx", 10), 0);
  char* piece = MemPoolAdd(&buf, "ab", 2);
  EXPECT_EQ(memcmp(piece, "ab\0\0\0\0xxx", 9), 0);
  EXPECT_EQ(memcmp(piece + 2 * kHeader - 1, "x\0\0\0\0x", 6), 0);
  piece = MemPoolAdd(&buf, std::string(1020, 'y').data(), 1020);
  EXPECT_EQ(std::string(piece, 15 * kHeader), std::string(15 * kHeader, '\0'));
  EXPECT_EQ(std::string(piece + 15 * kHeader, 1020), std::string(1020, 'y'));
  MemPoolFree(&buf);
}

}  // namespace
}  // namespace quern

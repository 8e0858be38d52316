// Growable buffers: sizes, contents and blocks, and every way to fail.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::Choices;
using tavrix_test::ClearedTrail;

uint32_t Granules(size_t n, uint32_t granule) {
  granule = std::max(granule, 1u);
  return (static_cast<uint32_t>(n) + granule - 1) / granule * granule;
}

// Edits of a record and of a plain string.
std::string BufferTrial(Choices& choices) {
  const uint32_t granule = choices.One({0, 1, 3, 16, 128, 1000});
  MemBuf buf = {granule, 0, 0, nullptr};
  MemBufSet(&buf, "start", 5);
  std::string bytes = "start";
  uint32_t alloc = Granules(9, granule);
  for (int step = 0; step < 60 && choices.More(); ++step) {
    const bool inside = buf.nSize && choices.OneIn(4);  // the source is a part of the contents
    const uint32_t from = choices.Below(buf.nSize), at = choices.Below(buf.nSize + 1);
    std::string text = choices.Text({"ab\0c", 4}, 40);
    if (inside) text = bytes.substr(from, choices.Below(buf.nSize - from + 1));
    const char* src = inside ? buf.pData + from : text.data();
    const auto count = static_cast<uint32_t>(text.size()), del = inside ? 0 : choices.Below(10);
    const uint32_t call = choices.Below(inside && from + count > at ? 3 : 4);
    const char* result = nullptr;
    if (call == 0) {
      result = MemBufSet(&buf, src, count);
      if (inside) bytes.append(4, '\0').replace(count, 4, 4, '\0');  // a terminator comes first
      bytes = inside ? bytes.substr(from, count) : text;
    } else if (call == 1) {
      result = MemBufAdd(&buf, src, count) - bytes.size();
      bytes += text;
    } else if (call == 2) {
      result = MemBufSet(&buf, nullptr, at);
      bytes.resize(at);
    } else {
      result = MemBufSplice(&buf, buf.pData + at, del, src, count) - at;
      bytes.replace(at, del, text);
    }
    alloc = std::max(alloc, Granules(bytes.size() + 4, granule));
    choices.Log("%u %u %u %u\n", call, at, del, count);
    if (result != buf.pData || buf.nSize != bytes.size() || buf.nAlloc != alloc ||
        std::string(buf.pData, buf.nSize + 4) != bytes + std::string(4, '\0'))
      return "wanted " + std::to_string(alloc) + " " + bytes;
  }
  MemBufFree(&buf);
  return buf.nSize + buf.nAlloc == 0 && buf.nAlign == granule ? "" : "not free";
}

TEST(Buffer, RandomEditsAgreeWithAString) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 1000, BufferTrial), "");
}

// Nine capacities are tried, each by a granule more than the last.
TEST(Buffer, FormatsAsTheRuntimeDoes) {
  for (uint32_t granule = 0; granule < 8; ++granule) {
    for (const char* format : {"%d%s", "%5d%.2s|", "%x%%%-9s", "%u%s%s", "%08u"}) {
      char wanted[80];
      const auto size =
          static_cast<uint32_t>(snprintf(wanted, sizeof wanted, format, 1234, "word", "z"));
      MemBuf buf = {granule, 0, 0, nullptr};
      const char* text = MemBufPrintf(&buf, format, 1234, "word", "z");
      const bool fits = size <= Granules(9 * granule + 4, granule);
      EXPECT_EQ(ClearedTrail(), fits ? "" : "01") << format << granule;
      EXPECT_EQ(text ? std::string(text, buf.nSize) : "", fits ? wanted : "") << format << granule;
      MemBufFree(&buf);
    }
  }
}

TEST(Buffer, BlocksAreHandedOut) {
  MemBuf buf = {16, 0, 0, nullptr};
  char* added = MemBufAdd(&buf, nullptr, 10);
  EXPECT_EQ(std::string(added, 14), std::string(14, '\0'));
  EXPECT_EQ(MemBufTake(&buf), added);
  EXPECT_TRUE(buf.nSize == 0 && buf.nAlloc == 16 && !MemBufTake(&buf));  // stale, and not trusted
  MemBufSet(&buf, "a longer text than before", 25);
  MemBufSet(&buf, buf.pData + 20, 5000);  // as far as the block reached when it was named
  EXPECT_EQ(std::string(buf.pData, 5), "efore");
  EXPECT_FALSE(MemBufSplice(&buf, buf.pData + 5001, 1, "x", 1) ||
               MemBufSplice(&buf, buf.pData - 1, 1, "x", 1));
  MemBufFree(&buf);
  EXPECT_STREQ(MemBufSplice(&buf, nullptr, 0, "xy", 2), "xy");
  MemBufFree(&buf);
  free(added);
}

TEST(Buffer, RawBlocksGrowInGranules) {
  const uint32_t rows[][3] = {{0, 0, 1}, {17, 16, 32}, {0x80000002, 0xFFFFFFFF, 0x80000000}};
  for (const auto& [n, granule, wanted] : rows) EXPECT_EQ(MemAlign(n, granule), wanted);
  char* block = static_cast<char*>(MemResize(nullptr, 0, 0, 1000));
  EXPECT_EQ(std::string(block, 1000), std::string(1000, '\0'));
  {
    tavrix_test::AllocationFault fault(1);  // nothing moves before what is there is used up
    EXPECT_TRUE(MemResize(block, 3000, 2001, 1000) == block && !MemResize(block, 1001, 1000, 1000));
  }
  block = static_cast<char*>(MemResize(block, 3001, 1000, 1000));
  EXPECT_GE(HeapBlockSize(block), 4000u);
  memcpy(block, "12345678", 8);
  block = static_cast<char*>(MemExtend(block, 4, 8, 12)) - 8;
  EXPECT_EQ(std::string(block, 12), "123456781234");  // the copy is of the block's start
  EXPECT_EQ(MemExtend(block, 0xFFFFFFFF, 4, 12), nullptr);
  EXPECT_EQ(ClearedTrail(), "02.02.02");
  free(block);
}

TEST(Buffer, FailuresRaiseAndLeaveTheRecord) {
  for (uint32_t granule : {1u, 8u, 1000u}) {  // no sizes beyond 0x7FFFFFFF
    MemBuf buf = {granule, 0, 0, nullptr};
    for (uint32_t size : {0x7FFFFFFCu, 0x80000000u, 0xFFFFFFFFu})
      EXPECT_FALSE(MemBufSet(&buf, nullptr, size) ||
                   MemResize(nullptr, size | 1u << 31, 0, granule));
    EXPECT_EQ(ClearedTrail(), "01.01.01.01.01.01");
    MemBufSet(&buf, "ac", 2);
    EXPECT_FALSE(MemBufSet(&buf, nullptr, 0x7FFFFFFC) || MemBufAdd(&buf, nullptr, 0xFFFFFFFF));
    EXPECT_EQ(ClearedTrail(), "02.02.02");
    EXPECT_STREQ(buf.pData, "ac");
    tavrix_test::AllocationFault fault(1);  // less is asked for where more than needed is refused
    EXPECT_TRUE(MemBufSet(&buf, nullptr, 100000));
    EXPECT_TRUE(fault.Hit() && HeapBlockSize(buf.pData) >= buf.nAlloc + 4u);
    MemBufFree(&buf);
  }
}

}  // namespace
}  // namespace quern

// Growable buffers: sizes, contents and blocks against a plain model, and every way to fail.

#include "quern/cmem/buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cmem/format.h"
#include "tests/support/alloc.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;

uint32_t Granules(uint32_t n, uint32_t granule) {
  if (granule == 0) granule = 1;
  return (n + granule - 1) / granule * granule;
}

// What a record must be after any sequence of calls.
struct Model {
  std::string bytes;
  uint32_t alloc = 0;
  void Grow(uint32_t size, uint32_t granule) {
    alloc = std::max(alloc, Granules(size + 4, granule));
  }
};

void ExpectEqual(const MemBuf& buf, const Model& model) {
  ASSERT_EQ(buf.nSize, model.bytes.size());
  ASSERT_EQ(buf.nAlloc, model.alloc);
  ASSERT_EQ(std::string(buf.pData, buf.nSize + 4), model.bytes + std::string(4, '\0'));
}

TEST(Buffer, AgreesWithAModelOverRandomEdits) {
  std::mt19937 random(20010305);
  auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
  for (int round = 0; round < 300; ++round) {
    uint32_t granule = (const uint32_t[]){0, 1, 3, 16, 128, 1000}[below(6)];
    MemBuf buf = {granule, 0, 0, nullptr};
    Model model;
    ASSERT_NE(MemBufSet(&buf, "start", 5), nullptr);
    model.bytes = "start";
    model.Grow(5, granule);
    for (int step = 0; step < 60; ++step) {
      std::string text(below(40), '\0');
      for (char& c : text) c = static_cast<char>(random());
      const char* src = text.data();
      uint32_t count = static_cast<uint32_t>(text.size());
      bool inside = below(4) == 0 && buf.nSize > 0;
      uint32_t from = inside ? below(buf.nSize) : 0;
      if (inside) {  // the source is a part of the contents
        count = below(buf.nSize - from + 1);
        text = model.bytes.substr(from, count);
        src = buf.pData + from;
      }
      switch (below(4)) {
        case 0:
          ASSERT_NE(MemBufSet(&buf, src, count), nullptr);
          if (inside) {  // the new terminator is written first
            std::string cut = model.bytes + std::string(4, '\0');
            text = cut.replace(count, 4, 4, '\0').substr(from, count);
          }
          model.bytes = text;
          break;
        case 1: {
          const char* added = MemBufAdd(&buf, src, count);
          ASSERT_EQ(added, buf.pData + model.bytes.size());
        }
          model.bytes += text;
          break;
        case 2: {
          uint32_t cut = below(buf.nSize + 1);
          ASSERT_NE(MemBufSet(&buf, nullptr, cut), nullptr);
          model.bytes.resize(cut);
          break;
        }
        case 3: {
          uint32_t at = below(buf.nSize + 1);
          uint32_t del = inside ? 0 : below(10);
          if (inside && from + count > at) break;  // its bytes move while they are inserted
          const char* edit = MemBufSplice(&buf, buf.pData + at, del, src, count);
          ASSERT_EQ(edit, buf.pData + at);
          model.bytes.replace(at, del, text);
          break;
        }
      }
      model.Grow(static_cast<uint32_t>(model.bytes.size()), granule);
      ExpectEqual(buf, model);
    }
    MemBufFree(&buf);
    EXPECT_EQ(buf.nAlloc + buf.nSize, 0u);
    EXPECT_EQ(buf.nAlign, granule);
  }
  EXPECT_EQ(ErrLast, 0);
}

TEST(Buffer, SourceWithinTheBlockSurvivesAnEditAcrossIt) {
  MemBuf buf = {1, 0, 0, nullptr};
  MemBufSet(&buf, "abc", 3);
  for (int i = 0; i < 10; ++i) MemBufAdd(&buf, buf.pData, buf.nSize);  // the block moves
  EXPECT_EQ(buf.nSize, 3u << 10);
  EXPECT_EQ(memcmp(buf.pData + buf.nSize - 3, "abc", 3), 0);
  // As far as the block reached when it was named.
  MemBufSet(&buf, buf.pData + 3000, 5000);
  EXPECT_EQ(buf.nAlloc, 5004u);
  EXPECT_EQ(std::string(buf.pData, 5), "abcab");
  MemBufFree(&buf);
}

TEST(Buffer, FirstAllocationIsZeroAndStaleSizesDoNotMatter) {
  MemBuf buf = {16, 0, 0, nullptr};
  char* added = MemBufAdd(&buf, nullptr, 10);
  ASSERT_EQ(added, buf.pData);
  EXPECT_EQ(std::string(added, 14), std::string(14, '\0'));
  char* taken = MemBufTake(&buf);
  EXPECT_EQ(buf.nSize, 0u);
  EXPECT_EQ(taken, added);
  EXPECT_EQ(buf.nAlloc, 16u);  // stale, and not trusted
  EXPECT_EQ(MemBufTake(&buf), nullptr);
  EXPECT_STREQ(MemBufSet(&buf, "a longer text than before", 25), "a longer text than before");
  free(taken);
  MemBufFree(&buf);
  MemBufFree(&buf);
  MemBufFree(nullptr);
  EXPECT_EQ(MemBufTake(nullptr), nullptr);
  EXPECT_EQ(MemBufPrintf(nullptr, "%s", "a"), nullptr);
}

TEST(Buffer, RawBlocks) {
  const uint32_t rows[][3] = {{0, 0, 1},
                              {5, 0, 5},
                              {0, 16, 16},
                              {16, 16, 16},
                              {17, 16, 32},
                              {0x80000002, 0xFFFFFFFF, 0x80000000},
                              {0x80000000, 16, static_cast<uint32_t>(-0x7FFFFFF1 / 16 * 16)}};
  for (const auto& [n, granule, wanted] : rows) EXPECT_EQ(MemAlign(n, granule), wanted);  // signed
  for (uint32_t granule : {1u, 8u, 12u, 1000u}) {
    // What it says is there is there, zeroed, and nothing moves before that is used up.
    char* block = static_cast<char*>(MemResize(nullptr, 0, 0, granule));
    EXPECT_EQ(std::string(block, granule), std::string(granule, '\0'));
    {
      AllocationFault fault(1);
      EXPECT_EQ(MemResize(block, granule, 0, granule), block);
      EXPECT_EQ(MemResize(block, 3 * granule, 2 * granule + 1, granule), block);
      EXPECT_EQ(MemResize(block, granule + 1, granule, granule), nullptr);
      EXPECT_TRUE(fault.Hit());
    }
    EXPECT_EQ(ClearedTrail(), "02");
    block = static_cast<char*>(MemResize(block, 3 * granule + 1, granule, granule));
    EXPECT_GE(HeapBlockSize(block), 4 * granule);
    block = static_cast<char*>(MemResize(block, 4 * granule + 8, 4 * granule, granule));
    memcpy(block, "12345678", 8);
    char* added = static_cast<char*>(MemExtend(block, 4, 8, granule));
    EXPECT_EQ(std::string(added - 8, 12), "123456781234");  // the copy is of the block's start
    free(added - 8);
    added = static_cast<char*>(MemExtend(nullptr, 4, 3, granule));
    EXPECT_EQ(std::string(added, 4), std::string(4, '\0'));
    free(added - 3);
  }
}

TEST(Buffer, SpliceOutsideIsQuiet) {
  MemBuf buf = {8, 0, 0, nullptr};
  MemBufSet(&buf, "abc", 3);
  EXPECT_EQ(MemBufSplice(&buf, buf.pData + 4, 1, "x", 1), nullptr);
  EXPECT_EQ(MemBufSplice(&buf, buf.pData - 1, 1, "x", 1), nullptr);
  EXPECT_EQ(MemBufSplice(&buf, buf.pData + 1, 99, nullptr, 7), buf.pData + 1);
  EXPECT_STREQ(buf.pData, "a");
  MemBuf empty = {8, 0, 0, nullptr};
  EXPECT_EQ(MemBufSplice(&empty, nullptr, 5, nullptr, 0), nullptr);
  EXPECT_STREQ(MemBufSplice(&empty, nullptr, 0, "xy", 2), "xy");
  EXPECT_EQ(ErrCurrent, nullptr);  // nothing was raised
  MemBufFree(&buf);
  MemBufFree(&empty);
}

char* Forward(MemBuf* buf, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = MemBufPrintf(buf, kMemArgList, format, arguments);
  va_end(arguments);
  return text;
}

int Made(char* text, size_t room, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int length = FormatText(text, room, format, arguments);
  va_end(arguments);
  return length;
}

TEST(Buffer, FormatsAsTheRuntimeDoes) {
  const char* const numberPieces[] = {"%d", "%i", "%u", "%x", "%c", "%5d", "%#x", "%X", "%08u"};
  const char* const wordPieces[] = {"%s", "%s%%", "%s", "%.2s", "%-9s|", "%"};
  const char* const words[] = {"", "word", "a longer one, past many a room", nullptr};
  std::mt19937 random(7);
  auto oneOf = [&random](const auto& list) { return list[random() % std::size(list)]; };
  for (int round = 0; round < 100000; ++round) {
    const int numbers[] = {0, -1, INT_MIN, INT_MAX, static_cast<int>(random())};
    std::string format = random() % 2 ? "plain\t" : "";
    format = format + oneOf(numberPieces) + " " + oneOf(wordPieces);
    size_t room = random() % 48;
    char wanted[48], made[48];
    memset(wanted, '#', sizeof wanted);
    memset(made, '#', sizeof made);
    int number = oneOf(numbers);
    const char* word = oneOf(words);
    int length = snprintf(wanted, room, format.c_str(), number, word);
    ASSERT_EQ(Made(made, room, format.c_str(), number, word), length) << format << room;
    ASSERT_EQ(memcmp(made, wanted, sizeof made), 0) << format << room;
  }
}

TEST(Buffer, PrintfTriesNineCapacities) {
  for (uint32_t length = 0; length <= 170; ++length) {
    MemBuf buf = {16, 0, 0, nullptr};
    std::string wanted(length, 'x');
    char* text = Forward(&buf, "%s", wanted.c_str());
    if (length <= 160) {
      ASSERT_NE(text, nullptr) << length;
      EXPECT_EQ(std::string(text, buf.nSize), wanted);
      EXPECT_EQ(buf.nAlloc, std::max(32u, Granules(length, 16))) << length;
    } else {
      EXPECT_EQ(text, nullptr) << length;
      EXPECT_EQ(ClearedTrail(), "01");
    }
    MemBufFree(&buf);
  }
  MemBuf none = {0, 0, 0, nullptr};
  EXPECT_EQ(memcmp(MemBufPrintf(&none, "%s", "four"), "four", 4), 0);
  EXPECT_EQ(none.nSize, 4u);
  EXPECT_EQ(none.nAlloc, 4u);
  EXPECT_EQ(MemBufPrintf(&none, "%s", "fives"), nullptr);
  EXPECT_EQ(ClearedTrail(), "01");
  MemBufSplice(&none, none.pData + none.nSize, 0, "!", 1);  // moves a terminator that is not there
  MemBufFree(&none);
}

TEST(Buffer, FailuresRaiseAndLeaveTheRecord) {
  EXPECT_EQ(MemBufSet(nullptr, "a", 1), nullptr);
  EXPECT_EQ(MemBufAdd(nullptr, "a", 1), nullptr);
  EXPECT_EQ(MemBufSplice(nullptr, "a", 1, "b", 1), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.01.01");
  // No sizes beyond 0x7FFFFFFF, in whatever granules.
  for (uint32_t granule : {1u, 8u, 1000u, 0x7FFFFFFFu}) {
    MemBuf buf = {granule, 0, 0, nullptr};
    for (uint32_t size : {0x7FFFFFFCu, 0x80000000u, 0xFFFFFFFFu}) {
      EXPECT_EQ(MemBufSet(&buf, nullptr, size), nullptr);
      EXPECT_EQ(MemResize(nullptr, std::max(size, 0x80000000u), 0, granule), nullptr);
      EXPECT_EQ(ClearedTrail(), "01.01");
    }
    EXPECT_EQ(buf.pData, nullptr);
    if (granule > 1000) continue;
    MemBufSet(&buf, "ac", 2);
    EXPECT_EQ(MemBufSet(&buf, nullptr, 0x7FFFFFFC), nullptr);
    EXPECT_EQ(MemBufAdd(&buf, nullptr, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(ClearedTrail(), "02.02.02");
    EXPECT_STREQ(buf.pData, "ac");
    char* block = static_cast<char*>(MemResize(nullptr, 4, 0, 4));
    EXPECT_EQ(MemExtend(block, 0xFFFFFFFF, 4, granule), nullptr);
    EXPECT_EQ(ClearedTrail(), "02.02");
    free(block);
    MemBufFree(&buf);
  }
  EXPECT_STREQ(ErrFile, "cmem");
  MemBuf* record = MemBufNew(nullptr, 4);
  EXPECT_EQ(record->nAlloc + record->nSize, 0u);
  EXPECT_EQ(MemBufNew(record, 6), record);
  EXPECT_EQ(record->nAlign, 6u);
  free(record);
}

TEST(Buffer, EveryAllocationMayFail) {
  const std::string text(1100, 'x');  // more than the heap may have given beyond what was asked for
  const char* t = text.data();
  ErrStackAttach(nullptr);
  MemBuf buf;
  // The trails when the first allocation fails, and when the next one does as well, which asks for
  // less and can make it good.
  auto fails = [&](const char* was, const char* left, const char* once, const char* twice,
                   auto call) {
    for (const char* trail : {once, twice}) {
      const int64_t before = tavrix_test::LiveBlocks();
      buf = {8, 0, 0, nullptr};
      if (*was) MemBufSet(&buf, was, 3);
      const uint32_t alloc = buf.nAlloc;
      bool made;
      {
        AllocationFault fault(1, trail == twice);
        made = call() != nullptr;
      }
      EXPECT_EQ(made, !*trail);
      EXPECT_EQ(ClearedTrail(), trail);
      EXPECT_TRUE(made || (buf.nAlloc == alloc && std::string(buf.pData ? buf.pData : "") == left));
      EXPECT_EQ(buf.nSize, made ? 1012u : strlen(left));
      EXPECT_GE(made ? HeapBlockSize(buf.pData) : SIZE_MAX, buf.nAlloc + 4u);  // a terminator's
      MemBufFree(&buf);
      EXPECT_EQ(tavrix_test::LiveBlocks(), before);
    }
  };
  fails("", "", "01", "01", [] { return MemBufNew(nullptr, 4); });
  fails("", "", "01", "01", [] { return MemResize(nullptr, 4, 0, 4); });
  fails("", "", "02.01", "02.01", [] { return MemExtend(nullptr, 4, 0, 4); });
  fails("", "", "01", "01", [&] { return MemBufSet(&buf, t, 9); });
  fails("", "", "02.01", "02.01", [&] { return MemBufAdd(&buf, t, 9); });
  fails("abc", "abc", "", "02", [&] { return MemBufSet(&buf, t, 1012); });
  fails("abc", "abc", "", "02.02", [&] { return MemBufAdd(&buf, t, 1009); });
  fails("abc", "ac", "", "02.02.02",  // the deletion has been done
        [&] { return MemBufSplice(&buf, buf.pData + 1, 1, t, 1010); });
  const char* printed;
  {
    AllocationFault fault(1, 1);  // a format is tried with more room
    printed = MemBufPrintf(&buf, "%.20s", t);
  }
  EXPECT_EQ(printed, text.substr(0, 20));
  EXPECT_EQ(ClearedTrail(), "01.01");
  MemBufFree(&buf);
}

}  // namespace
}  // namespace quern

// Replacing bytes of a block, at once and deferred, against a plain model.

#include "quern/cmem/edit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "quern/cerr.h"
#include "quern/cobj.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;

uint32_t Size(const std::string& text) { return static_cast<uint32_t>(text.size()); }

TEST(Edit, ReplacesAtOnce) {
  char memory[20] = "....12345678";
  char* block = memory + 4;
  EXPECT_EQ(MemReplace(block, 8, block, 2, "abcde", 5, 0), 3u);
  EXPECT_STREQ(block, "abcde345678");
  EXPECT_EQ(MemReplace(block, 11, block + 2, 9, "", 0, 0), static_cast<uint32_t>(-9));
  EXPECT_EQ(std::string(block, 2), "ab");
  char room[] = "12345678........";
  EXPECT_EQ(MemReplace(room, 8, room + 2, 1, nullptr, 4, 0), 3u);
  EXPECT_STREQ(room, "12345645678.....");  // the new room keeps what the move left there
  EXPECT_EQ(MemReplace(block, 8, block + 9, 0, "x", 1, 0), 0u);
  EXPECT_EQ(MemReplace(block, 8, block + 4, 5, "x", 1, 0), 0u);
  EXPECT_EQ(MemReplace(block, 8, block - 1, 1, "x", 1, 0), 0u);
  EXPECT_EQ(MemReplace(nullptr, 8, nullptr, 0, "x", 1, 0), 0u);
  EXPECT_EQ(ClearedTrail(), "01.02.02.02");
  EXPECT_EQ(MemReplace(block, 8, block + 8, 0, "y", 1, 0), 1u);
}

TEST(Edit, NotesAreKeptUntilTheyApply) {
  char block[] = "0123456789..";
  char other[] = "0123456789";
  auto note = [&](char* at, uint32_t size, uint32_t old, const char* text) {
    ErrLast = 0;
    EXPECT_EQ(MemReplace(at == other ? other : block, size, at, old, text, Size(text), MEM_RECORD),
              0u);
    return ErrLast;
  };
  EXPECT_EQ(MemReplace(block, 10, nullptr, 0, nullptr, 0, MEM_APPLY), 0u);
  EXPECT_EQ(ErrLast, 5);
  EXPECT_EQ(MemCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
  EXPECT_EQ(note(block + 2, 10, 1, "abc"), 0);
  EXPECT_EQ(note(block + 5, 10, 2, ""), 0);
  EXPECT_EQ(note(block + 9, 10, 2, ""), 2);
  EXPECT_EQ(note(block + 5, 9, 2, ""), 3);
  EXPECT_EQ(note(other, 10, 2, ""), 3);
  EXPECT_EQ(MemCurrent->nDelta, 0);
  EXPECT_EQ(MemReplace(block, 9, nullptr, 0, nullptr, 0, MEM_APPLY), 0u);
  EXPECT_EQ(ErrLast, 6);
  EXPECT_STREQ(block, "0123456789..");
  EXPECT_EQ(MemReplace(block, 11, nullptr, 0, nullptr, 0, MEM_APPLY), 0u);
  EXPECT_STREQ(block, "01abc34789..");
  EXPECT_EQ(MemCurrent->pBlock, nullptr);
  EXPECT_EQ(ErrCurrent, nullptr);  // nothing was raised so far
  EXPECT_EQ(MemReplace(block, 10, block, 0, nullptr, 0, 0x00100000), 0u);
  EXPECT_EQ(ClearedTrail(), "09");
}

// Applying to the noted block, to another, and to one that the noted block lies in.
TEST(Edit, RandomListsAgreeWithAModel) {
  std::mt19937 random(3);
  int inPlace = 0;
  for (int round = 0; round < 20000; ++round) {
    uint32_t size = random() % (round % 50 ? 60 : 3000);
    std::string text(size, ' ');
    for (char& c : text) c = static_cast<char>('a' + random() % 26);
    // Every list has room for itself; a gap keeps what was in the destination.
    std::string memory(16 + size * 2 + 2000, '~');
    std::copy(text.begin(), text.end(), memory.begin() + 16);
    char* noted = memory.data() + 16;
    std::vector<std::string> pieces;
    pieces.reserve(200);
    struct Gap {
      size_t at, length;
    };
    std::vector<Gap> gaps;
    std::string wanted;
    uint32_t read = 0;
    bool own = random() % 4 == 0;  // some new bytes are the block's own
    for (uint32_t count = random() % 20; count > 0; --count) {
      uint32_t at = read + random() % (size - read + 1);
      uint32_t old = random() % (std::min(size - at, 9u) + 1);
      pieces.emplace_back(random() % 12, static_cast<char>('A' + random() % 26));
      const char* bytes = pieces.back().data();
      bool gap = random() % 5 == 0;
      wanted += text.substr(read, at - read);
      if (gap) {
        bytes = nullptr;
        gaps.push_back({wanted.size(), pieces.back().size()});
      } else if (own && size > 20) {
        pieces.back() = "";
      }
      wanted += pieces.back();
      ErrLast = 0;
      MemReplace(noted, size, noted + at, old, bytes, Size(pieces.back()), MEM_RECORD);
      ASSERT_EQ(ErrLast, 0);
      read = at + old;
    }
    wanted += text.substr(read);
    if (!MemCurrent || !MemCurrent->pBlock) continue;
    std::string elsewhere(memory.size(), '#');
    unsigned where = random() % 3;
    char* out = where == 0 ? noted : where == 1 ? elsewhere.data() : noted - random() % 17;
    inPlace += where == 0;
    std::string before(out, wanted.size());
    for (const Gap& gap : gaps) wanted.replace(gap.at, gap.length, before, gap.at, gap.length);
    uint32_t delta = Size(wanted) - size;
    uint32_t room = Size(wanted) + random() % 3;
    char behind = out[wanted.size()];
    if (where == 2) room = std::max(room, static_cast<uint32_t>(noted - out) + 1);
    ASSERT_EQ(MemReplace(out, room, nullptr, 0, nullptr, 0, MEM_APPLY), delta);
    ASSERT_EQ(std::string(out, wanted.size()), wanted) << round;
    ASSERT_EQ(out[wanted.size()], behind);
  }
  EXPECT_GT(inPlace, 5000);
}

TEST(Edit, UnorderedListsAndOwnBytesStayInside) {
  std::mt19937 random(4);
  for (int round = 0; round < 20000; ++round) {
    std::string block = std::string(20, 'o') + std::string(20, 'x');
    for (int i = 0; i < 6; ++i) {
      uint32_t at = random() % 21, old = random() % (21 - at), count = random() % 4;
      MemReplace(block.data(), 20, block.data() + at, old, block.data() + random() % 17, count,
                 MEM_RECORD);
    }
    uint32_t size = 20 + static_cast<uint32_t>(MemCurrent->nDelta);
    if (size > 38) {
      MemClass(0);
      continue;
    }
    const std::string before = block;
    MemReplace(block.data(), size, nullptr, 0, nullptr, 0, MEM_APPLY);
    ASSERT_EQ(block.substr(size), before.substr(size));
    MemClass(0);
  }
}

TEST(Edit, TheObjectComesAndGoes) {
  EXPECT_EQ(MemClass(0), 0u);  // none
  MemObject* made = MemAttach(nullptr);
  EXPECT_EQ(made, MemCurrent);
  EXPECT_EQ(made->header.flags, INST_OWNED);
  EXPECT_EQ(made->header.classNumber, kMemClass);
  EXPECT_EQ(made->header.size, sizeof(MemObject));
  EXPECT_EQ(made->mbEdits.nAlign, 1024u);
  alignas(MemObject) char memory[sizeof(MemObject)] = {};
  MemObject* own = MemAttach(memory);
  EXPECT_EQ(static_cast<void*>(own), memory);
  MemReplace(memory, 8, memory, 0, nullptr, 1, MEM_RECORD);
  const auto* note = reinterpret_cast<MemEdit*>(own->mbEdits.pData);
  EXPECT_EQ(note->unusedOld + note->unusedNew, 0u);
  EXPECT_EQ(MemClass(reinterpret_cast<uintptr_t>(made)), 0u);  // which becomes the current one
  EXPECT_EQ(MemCurrent, nullptr);
  EXPECT_EQ(ClassLists[kMemClass], &own->header);
  EXPECT_EQ(MemClass(kCollectRequest), 0u);
  EXPECT_EQ(ClassLists[kMemClass], nullptr);
  EXPECT_EQ(std::string(memory, sizeof memory), std::string(sizeof memory, '\0'));
  uint32_t junk[64] = {1};
  EXPECT_EQ(MemAttach(junk), nullptr);
  EXPECT_EQ(ClearedTrail(), "1000.04");
}

TEST(Edit, BuffersNeedNoObject) {
  MemBuf buf = {16, 0, 0, nullptr};
  EXPECT_STREQ(MemBufReplace(&buf, "b", 1, "in", 2, 0), "in");
  EXPECT_EQ(MemCurrent, nullptr);
  MemAttach(nullptr);
  EXPECT_EQ(MemBufReplace(&buf, "b", 1, "", 0, 0), buf.pData);
  EXPECT_EQ(MemCurrent->nReplaced, 1u);
  MemBufFree(&buf);
}

TEST(Edit, TheirTrueSizeCounts) {
  char block[] = "01234567";
  MemBuf buf = {16, 0, 0, nullptr};
  MemBufSet(&buf, "x", 1);
  MemReplace(block, 8, block + 4, 0, nullptr, 4000, MEM_RECORD);
  MemBufReplace(&buf, "zz", 2, nullptr, 0, 0);  // reports over the sum of the notes
  EXPECT_EQ(MemReplace(block, 8, nullptr, 0, nullptr, 0, MEM_APPLY), 0u);
  EXPECT_EQ(ErrLast, 6);
  MemClass(0);
  for (int i : {2, 4}) MemReplace(block, 8, block + i, 0, nullptr, 0x80000000, MEM_RECORD);
  EXPECT_EQ(MemCurrent->nDelta, 0);
  EXPECT_EQ(MemReplace(block, 8, nullptr, 0, nullptr, 0, MEM_APPLY), 0u);
  EXPECT_EQ(ErrLast, 6);
  EXPECT_STREQ(block, "01234567");
  MemBufFree(&buf);
}

}  // namespace
}  // namespace quern

// Replacing bytes of a block, at once and deferred.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::Choices;
using tavrix_test::ClearedTrail;

uint32_t Size(const std::string& text) { return static_cast<uint32_t>(text.size()); }
uint32_t Apply(void* block, uint32_t length) {
  ErrLast = 0;
  return MemReplace(block, length, nullptr, 0, nullptr, 0, MEM_APPLY);
}

TEST(Edit, ReplacesAtOnce) {
  char memory[20] = "....12345678";
  char* block = memory + 4;
  EXPECT_EQ(MemReplace(block, 8, block, 2, "abcde", 5, 0), 3u);
  EXPECT_STREQ(block, "abcde345678");
  EXPECT_EQ(MemReplace(block, 11, block + 2, 9, "", 0, 0), static_cast<uint32_t>(-9));
  EXPECT_EQ(MemReplace(block, 3, block + 2, 0, nullptr, 2, 0), 2u);
  EXPECT_STREQ(block, "abcdc345678");  // the gap keeps what the move left there
  for (auto [at, length] : {std::pair(9, 0u), {4, 5u}, {-1, 1u}})
    EXPECT_EQ(MemReplace(block, 8, block + at, length, "x", 1, 0), 0u);
  EXPECT_EQ(ClearedTrail(), "02.02.02");
  EXPECT_EQ(MemReplace(block, 8, block + 8, 0, "y", 1, 0), 1u);
}

TEST(Edit, NotesAreKeptUntilTheyApply) {
  char block[] = "0123456789..", other[] = "0123456789";
  EXPECT_TRUE(Apply(block, 10) == 0 && ErrLast == 5);
  auto note = [](char* of, uint32_t size, int at, uint32_t old, const char* text) {
    ErrLast = 0;
    return MemReplace(of, size, of + at, old, text, Size(text), MEM_RECORD) + uint32_t(ErrLast);
  };
  EXPECT_EQ(note(block, 10, 2, 1, "abc") + note(block, 10, 5, 2, ""), 0u);
  EXPECT_EQ(note(block, 10, 9, 2, "") + note(block, 9, 5, 2, "") + note(other, 10, 5, 2, ""), 8u);
  EXPECT_TRUE(Apply(block, 9) == 0 && ErrLast == 6);
  EXPECT_EQ(Apply(block, 11), 0u);
  EXPECT_STREQ(block, "01abc34789..");
  EXPECT_EQ(MemCurrent->pBlock, nullptr);
  // Their true size counts: the sum of these wraps.
  for (int at : {2, 4}) MemReplace(block, 8, block + at, 0, nullptr, 0x80000000, MEM_RECORD);
  EXPECT_TRUE(MemCurrent->nDelta == 0 && Apply(block, 8) == 0 && ErrLast == 6);
}

// Lists applied to the noted block, to another, and to one that the noted block lies in.
std::string EditTrial(Choices& choices) {
  const std::string text = choices.Text("abcdefgh", 60) + (choices.OneIn(20) ? "long" : "");
  std::string memory = std::string(16, '~') + text + std::string(400, '~');
  std::string elsewhere(memory.size(), '#');
  char* noted = memory.data() + 16;
  char* out = choices.One({noted, elsewhere.data(), noted - choices.Below(17)});
  const std::string before(out, 400);  // gaps keep what was there
  std::deque<std::string> pieces;
  std::string wanted;
  uint32_t read = 0;
  for (uint32_t count = choices.Below(20); count > 0; --count) {
    const uint32_t at = read + choices.Below(Size(text) - read + 1);
    const uint32_t old = choices.Below(std::min(Size(text) - at, 9u) + 1);
    const std::string& piece = pieces.emplace_back(choices.Text("ABC", 11));
    const bool gap = choices.OneIn(5);
    wanted += text.substr(read, at - read);
    wanted += gap ? before.substr(wanted.size(), piece.size()) : piece;
    MemReplace(noted, Size(text), noted + at, old, gap ? nullptr : piece.data(), Size(piece),
               MEM_RECORD);
    choices.Log("%u %u %s%s\n", at, old, piece.c_str(), gap ? "?" : "");
    read = at + old;
  }
  if (pieces.empty()) return "";
  wanted += text.substr(read) + before[wanted.size() + text.size() - read];
  const uint32_t grown = Apply(out, Size(wanted) - 1);
  choices.Log("%s into %d\n", text.c_str(), static_cast<int>(out - noted));
  return grown + Size(text) + 1 == Size(wanted) && wanted == std::string(out, wanted.size())
             ? ""
             : wanted + "\n" + std::string(out, wanted.size());
}

TEST(Edit, RandomListsAgreeWithAString) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 20000, EditTrial), "");
}

// Of lists without an order, bytes that were passed are left out; the block's own bytes are read
// when it is their turn.
TEST(Edit, KnowsWhatCannotBeMadeInPlace) {
  char block[] = "0123456789....", own[] = "0123456789....";
  for (int at : {6, 2, 7}) MemReplace(block, 10, block + at, 2, "abc", 3, MEM_RECORD);
  EXPECT_EQ(Apply(block, 13), 3u);
  EXPECT_STREQ(block, "012345abcabca.");
  for (int at : {2, 6}) MemReplace(own, 10, own + at, 2, own + 8 - at, 3, MEM_RECORD);
  EXPECT_EQ(Apply(own, 12), 2u);
  EXPECT_STREQ(own, "016784567889..");
}

}  // namespace
}  // namespace quern

// Trees: what each call leaves in every link, and the order of large ones.

#include "quern/cmem/tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/alloc.h"
#include "tests/support/traced.h"
#include "tests/support/transcript.h"

namespace quern {
namespace {

using tavrix_test::Line;
using tavrix_test::Number;
using tavrix_test::Traced;

// Of a size at which a deletion by an offset that counts whole links hits the next element's link.
constexpr size_t kStride = (sizeof(TreeLink) - 1) * sizeof(void*);
constexpr int kElements = 20;
alignas(16) char memory[kStride * (kElements + 1)];
Tree tree;

char* Element(int i) { return i < 0 ? nullptr : memory + kStride * static_cast<size_t>(i); }
TreeLink* Link(int i) {
  return i < 0 ? nullptr : reinterpret_cast<TreeLink*>(Element(i) + tree.nOffset);
}
uintptr_t Word(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }
std::string Name(const void* link) {
  return tavrix_test::Name(link, memory + tree.nOffset, kStride);
}
// Elements are ordered by the last digit of their numbers.
int Value(const void* link) { return std::stoi(Name(link)) % 10; }
int32_t Compare(const void* a, const void* b) { return Value(a) - Value(b); }

tavrix_test::State Read() {
  tavrix_test::State state = {{"root=", Name(tree.pRoot)}, {"count=", std::to_string(tree.nCount)}};
  for (int i = 0; i < kElements; ++i) {
    const std::string name = std::to_string(i);
    state[name + "^"] = Name(Link(i)->pPrev);
    state[name + "+"] = Name(Link(i)->pHigh);
    state[name + "-"] = Name(Link(i)->pLow);
  }
  return state;
}

Tree* given;  // what the calls get

std::string Step(const tavrix_test::Words& words) {
  const std::string& call = words[0];
  const int i = words.size() > 1 ? Number(words.back()) : -1;
  const int parent = words.size() > 2 && call != "get" && call != "del" ? Number(words[1]) : -1;
  const uint32_t code = words.size() > 2 ? MemOperator(words[1].c_str()) : 0;
  auto element = [](void* at) { return tavrix_test::Name(at, memory, kStride); };
  if (call == "root") tree.pRoot = Link(i);
  if (call == "uncompared") tree.cbfCmpr = nullptr;
  if (call == "treeless") given = nullptr;
  if (call == "add") return element(MemTreeAdd(given, Element(i)));
  if (call == "get") return element(MemTreeGet(given, Element(i), code));
  if (call == "del") return element(MemTreeDel(given, Element(i), code));
  if (call == "high") return Name(MemTreeLinkHigh(given, Link(parent), Link(i)));
  if (call == "low") return Name(MemTreeLinkLow(given, Link(parent), Link(i)));
  if (call == "unlink") return Name(MemTreeUnlink(given, Link(i)));
  if (call == "last+") return Name(MemTreeLastHigh(Link(i)));
  if (call == "last-") return Name(MemTreeLastLow(Link(i)));
  return "";
}

// Plays it on a tree to which elements were added, with links at an offset and without one.
void Plant(uint32_t offset, const std::vector<int>& elements) {
  tree = {offset, 77, Compare, nullptr};
  given = &tree;
  for (int i = 0; i < kElements; ++i) *Link(i) = {};
  if (!elements.empty()) tree.pRoot = Link(elements[0]);
  for (size_t i = 1; i < elements.size(); ++i) MemTreeAdd(&tree, Element(elements[i]));
}
void Expect(const std::vector<int>& elements, const std::string& transcript) {
  for (uint32_t offset : {uint32_t{0}, uint32_t{sizeof(void*)}}) {
    Plant(offset, elements);
    EXPECT_EQ(tavrix_test::Played(transcript, Step, Read), transcript) << offset;
  }
}

// Compat: nothing goes to an empty tree, an equal element takes the high side of the parent, and
// the parent of one that equals the root is that of the last call.
TEST(Tree, AddsBelowTheLastParent) {
  Plant(0, {});
  const std::string first =
      "add 5 : . !3\n"
      "root 5 : ; root=5\n"
      "add 15 : . !3 ; root=15\n";
  EXPECT_EQ(tavrix_test::Played(first, Step, Read), first);
  Expect({},
         "root 5 : ; root=5\n"
         "add 2 : 5 ; 2^5 5+2\n"
         "add 8 : 5 ; 5-8 8^5\n"
         "add 1 : 2 ; 1^2 2+1\n"
         "add 3 : 2 ; 2-3 3^2\n"
         "add 12 : 5 ; 12^5 2^12 5+12\n"
         "add 18 : 5 ; 12^18 18^5 5+18\n"
         "add 15 : 5 ; 15^5 18^15 5+15\n"
         "root 9 : ; root=9\n"
         "add 19 : 5 ; 15^19 19^5 5+19\n"
         "root . : ; root=.\n"
         "add 2 : 5 ; 2+. 2-.\n");
}

TEST(Tree, NamesElements) {
  Expect({5, 2, 8, 1, 3},
         "get = 3 : 3\nget == 13 : 3\nget = 4 : .\n"
         "get ! 5 : 2\nget != 5 : 2\nget ! 3 : 5\nget != 3 : 5\n"
         "get < 5 : 2\nget < 6 : 5\nget < 1 : .\n"
         "get > 5 : .\nget > 3 : 5\nget > 7 : 8\n"
         "get <= 5 : 5\nget <= 2 : 2\nget <= 8 : 5\n"
         "get >= 5 : 5\nget >= 8 : 8\nget >= 1 : 5\n"
         "get << 3 : 2\nget << 5 : .\nget >+ 2 : 1\nget >- 2 : 3\nget >+ 8 : .\n"
         "get |< 9 : 8\nget >| 9 : 1\n"
         "last+ 2 : 1\nlast- 2 : 3\nlast+ . : .\nlast- . : .\n"
         "get ?? 5 : . =02@1241\nget >< 5 : . =02@1241\ndel =! 5 : . =02@1241\n"
         "get |< . : . !1\ndel |< . : . !1\nadd . : . !1\n"
         "unlink . : . !1\nhigh 1 . : . !1\nlow 1 . : . !1\n"
         "uncompared :\n"
         "get |< 5 : . =01@1224\nget ?? 5 : . =01@1224\ndel = 5 : . =01@1224\nadd 9 : . !2\n"
         "treeless :\n"
         "get |< 5 : . !1\ndel |< 5 : . !1\nadd 5 : . !1\n"
         "unlink 1 : . !1\nhigh 1 2 : . !1\nlow 1 2 : . !1\n");
}

TEST(Tree, LinksBetweenAParentAndItsChild) {
  Expect({},
         "high . 5 : 5 ; root=5\n"
         "high . 4 : 4 ; 4+5 root=4\n"
         "low . 3 : 3 ; 3-4 root=3\n"
         "high 3 6 : 6 ; 3+6 6^3\n"
         "high 3 7 : 7 ; 3+7 6^7 7+6 7^3\n"
         "low 3 8 : 8 ; 3-8 4^8 8-4 8^3\n"
         "low 7 1 : 1 ; 1^7 7-1\n"
         "high 8 7 : 7 ; 7+. 7-. 7^8 8+7\n"
         "low 5 7 : 7 ; 5-7 7^5\n"
         "high 7 2 : 2 ; 2^7 7+2\n"
         "low 1 7 : 7 ; 1-7 7+. 7^1\n");
}

// Compat: parent and children go on pointing at the node; its own pPrev names what replaces it.
TEST(Tree, UnlinksAndLeavesTheNeighbours) {
  const std::vector<int> large = {5, 2, 8, 1, 3, 0, 4, 7, 9, 6};
  Expect(large, "unlink 0 : 0 ; 0^.\n");
  Expect(large, "unlink 4 : 4 ; 4^.\n");
  Expect(large, "unlink 1 : 1 ; 0^2 1^0\n");
  Expect(large, "unlink 2 : 2 ; 2^3 3+1 3^5\n");
  Expect(large, "unlink 3 : 3 ; 3^4 4^2\n");
  Expect(large, "unlink 5 : 5 ; 6+2 6-8 6^. 7+. root=6\n");
  Expect(large, "unlink 8 : 8 ; 7-9 7^5 8^7\nunlink 8 : 8 ; 7^7\n");
  Expect({2, 8, 4, 6, 7, 9}, "unlink 8 : 8 ; 6-. 7+4 7-9 7^2 8^7\n");
  Expect({8, 2, 6, 5, 4, 1}, "unlink 2 : 2 ; 2^4 4+1 4-6 4^8 5+.\n");
  Expect({5}, "unlink 5 : 5 ; root=.\n");
  Expect({5, 2}, "unlink 5 : 5 ; 2^. root=2\n");
  Expect({5, 8}, "unlink 5 : 5 ; 8^. root=8\n");
  Expect({5}, "low . 3 : 3 ; 3-5 root=3\nunlink 3 : 3 ; 5-5 root=5\n");  // 5 names no parent
  // Compat: a deletion counts the offset in whole links, and so takes out another node.
  const std::string taken = "del = 8 : 8 ; 7-9 7^5 8^7\ndel = 19 : 9 ; 9^.\ndel << 5 : .\n";
  Plant(0, large);
  EXPECT_EQ(tavrix_test::Played(taken, Step, Read), taken);
  const std::string others = "del = 8 : 8 ; 9^.\ndel < 5 : 2 ; 3^4 4^2\n";
  Plant(sizeof(void*), large);
  EXPECT_EQ(tavrix_test::Played(others, Step, Read), others);
}

TEST(Tree, OrdersRandomElements) {
  constexpr int kCount = 2000;
  static TreeLink links[kCount];
  Tree large = {0, 0, nullptr, links};
  large.cbfCmpr = [](const void* a, const void* b) {
    return static_cast<int32_t>(static_cast<const TreeLink*>(a) - static_cast<const TreeLink*>(b));
  };
  std::vector<int> order(kCount);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(44));
  large.pRoot = &links[order[0]];
  for (int i = 1; i < kCount; ++i) {
    TreeLink* link = &links[order[static_cast<size_t>(i)]];
    const TreeLink* parent = static_cast<TreeLink*>(MemTreeAdd(&large, link));
    ASSERT_TRUE(parent == link->pPrev && (parent > link ? parent->pHigh : parent->pLow) == link);
  }
  int next = kCount;  // the low side holds the larger ones
  auto walk = [&](auto& self, const TreeLink* at) -> void {
    if (!at) return;
    self(self, at->pLow);
    ASSERT_EQ(at, &links[--next]);
    self(self, at->pHigh);
  };
  walk(walk, large.pRoot);
  EXPECT_EQ(next, 0);
  for (TreeLink& link : links) ASSERT_EQ(MemTreeGet(&large, &link, MemOperator("=")), &link);
}

TEST(Tree, Dumps) {
  for (uint32_t offset : {uint32_t{0}, uint32_t{sizeof(void*)}}) {
    Plant(offset, {5, 2, 8});
    auto node = [](int number, int i, int parent, int high, int low) {
      return Line("%04d Node (0x%08" PRIXPTR "): pPrev=0x%08" PRIXPTR "; pHigh=0x%08" PRIXPTR
                  "; pLow=0x%08" PRIXPTR "; Cmpr=%d;\n",
                  number, Word(Link(i)), Word(Link(parent)), Word(Link(high)), Word(Link(low)),
                  i - 3);
    };
    auto dumped = [](const Tree* of) {
      return Traced([of] { EXPECT_EQ(MemTreeDump(of, Link(13)), 0); });
    };
    EXPECT_EQ(dumped(&tree),
              Line("Tree (0x%08" PRIXPTR "): pRoot=0x%08" PRIXPTR
                   "; nCount=0x0000004D; nOffset=0x%08X; cbfCmpr=0x%08" PRIXPTR ";\n",
                   Word(&tree), Word(Link(5)), offset, reinterpret_cast<uintptr_t>(&Compare)));
    for (int number : {1, 4})
      EXPECT_EQ(dumped(nullptr), node(number, 8, 5, -1, -1) + node(number + 1, 5, -1, 2, 8) +
                                     node(number + 2, 2, 5, -1, -1));
    MemTreeUnlink(&tree, Link(2));  // from it the walk finds no way up, and ends
    dumped(&tree);
    EXPECT_EQ(dumped(nullptr),
              node(1, 8, 5, -1, -1) + node(2, 5, -1, 2, 8) + node(3, 2, -1, -1, -1));
    EXPECT_EQ(dumped(nullptr), "");
  }
}

// The walk takes a byte a level; without memory for the next one it ends.
TEST(Tree, DumpsAHundredThousandLevelsAndMayFail) {
  static std::vector<TreeLink> links(100000);
  Tree deep = {0, 0, nullptr, nullptr};
  for (size_t i = 0; i < links.size(); ++i)
    MemTreeLinkLow(&deep, i ? &links[i - 1] : nullptr, &links[i]);
  ErrStackAttach(nullptr);
  int64_t number = 1, kept = 0;
  for (bool failed = true; failed; ++number) {
    MemTreeDump(&deep, nullptr);
    std::string lines = Traced([&] {
      kept -= tavrix_test::LiveBlocks();
      tavrix_test::AllocationFault fault(number, 1);
      MemTreeDump(nullptr, nullptr);
      failed = fault.Hit();
      kept += tavrix_test::LiveBlocks();
    });
    EXPECT_EQ(tavrix_test::ClearedTrail(), !failed ? "" : number == 1 ? "02.01" : "02.02");
    EXPECT_EQ(kept, 0);
    const std::string last = Line("\n100000 Node (0x%08" PRIXPTR ")", Word(&links.front()));
    EXPECT_EQ(lines.find(last) != lines.npos, !failed);
    EXPECT_TRUE(failed ? lines.empty() : lines.ends_with(" Cmpr=0;\n"));
  }
  EXPECT_GT(number, 5);
}

}  // namespace
}  // namespace quern

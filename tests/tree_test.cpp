// Trees against their link words as plain numbers, in whatever state calls may bring them.

#include "quern/cmem/tree.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/alloc.h"
#include "tests/support/traced.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Line;

// Of a size at which a deletion by an offset that counts whole links hits the next element's link.
constexpr size_t kStride = (sizeof(TreeLink) - 1) * sizeof(void*);
constexpr int kElements = 10;
alignas(16) char memory[kStride * (kElements + 1)];
uint32_t offset;
int values[kElements];

char* Element(int i) { return i < 0 ? nullptr : memory + kStride * static_cast<size_t>(i); }
TreeLink* Link(int i) { return i < 0 ? nullptr : reinterpret_cast<TreeLink*>(Element(i) + offset); }
uintptr_t Word(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }
int Value(const void* link) { return values[(static_cast<const char*>(link) - memory) / kStride]; }
int32_t Compare(const void* a, const void* b) { return Value(a) - Value(b); }

struct Endless {};  // a walk in a circle, or from nowhere: not a call to make

// Links are numbers, -1 is none.
struct Model {
  struct Node {
    int prev = -1, high = -1, low = -1;
  };
  Node nodes[kElements];
  int root = -1, last = -1, cursor = -1;
  int number = 0;

  int Known(int i) const { return i < 0 || i >= kElements ? throw Endless() : i; }
  Node& At(int i) { return nodes[Known(i)]; }
  using Side = int Node::*;
  static Side Other(Side side) { return side == &Node::high ? &Node::low : &Node::high; }

  void Put(Side side, int parent, int i) {
    At(i).prev = parent;
    At(i).*Other(side) = -1;
    int& place = parent < 0 ? root : At(parent).*side;
    if (parent >= 0 && place >= 0) At(place).prev = i;
    At(i).*side = place;
    place = i;
  }
  int End(Side side, int i) {
    for (int steps = 0; i >= 0 && At(i).*side >= 0; i = At(i).*side)
      if (++steps > kElements) throw Endless();
    return i;
  }
  // The one that may stand for a node, from one of its sides; the node's other side goes to it.
  int Stand(Side side, int i) {
    int r = End(Other(side), At(i).*side);
    if (r < 0) return At(i).*Other(side);
    if (At(r).prev != i) {
      if (At(r).prev >= 0) At(At(r).prev).*Other(side) = -1;
      At(r).*side = At(i).*side;
    }
    At(r).*Other(side) = At(i).*Other(side);
    return r;
  }
  int Unlink(int i) {
    Node& node = At(i);
    int r = node.prev;
    if (r < 0 || At(r).high == i) r = Stand(&Node::low, i);
    if (r < 0 || At(r).low == i) r = Stand(&Node::high, i);
    if (r >= 0)
      At(r).prev = node.prev;
    else if (node.high >= 0 || node.low >= 0)
      return -1;
    (node.prev >= 0 ? node.prev : root) = r;
    return i;
  }
  int Add(int i) {
    int steps = 0;
    for (int cur = root; cur >= 0;) {
      if (++steps > kElements) throw Endless();
      int r = values[cur] - values[i];
      Side side = r < 0 ? &Node::low : &Node::high;
      if (r == 0) {
        Put(side, last, i);
        break;
      }
      last = cur;
      cur = At(cur).*side;
      if (cur < 0) Put(side, last, i);
    }
    At(i).high = At(i).low = -1;
    return last;
  }
  int Get(const std::string& code, int key) {
    if (code == "<<") return At(key).prev;
    if (code == ">+") return At(key).high;
    if (code == ">-") return At(key).low;
    if (code == ">|") return End(&Node::high, root);
    if (code == "|<") return End(&Node::low, root);
    int cur = root;
    for (int steps = 0; cur >= 0; ++steps) {
      if (steps > kElements) throw Endless();
      int r = values[cur] - values[key];
      bool equal = code == "=" || code == "==" || code == "<=" || code == ">=";
      bool found = r == 0  ? equal
                   : r < 0 ? code[0] == '<' || code[0] == '!'
                           : code[0] == '>' || code[0] == '!';
      if (found) break;
      cur = r < 0 ? At(cur).low : At(cur).high;
    }
    return cur;
  }
  // False when there is no node any more.
  bool Dump(std::string* lines, int key, int depth) {
    if (depth > 20 || number > 50) throw Endless();
    if (cursor < 0) return false;
    for (Side side : {&Node::low, &Node::high}) {
      if (At(cursor).*side >= 0) {
        cursor = At(cursor).*side;
        if (!Dump(lines, key, depth + 1)) return false;
        cursor = At(cursor).prev;
        if (cursor < 0) return false;
      }
      if (side == &Node::high) continue;
      const Node& node = At(cursor);
      *lines += Line("%04d Node (0x%08" PRIXPTR "): pPrev=0x%08" PRIXPTR "; pHigh=0x%08" PRIXPTR
                     "; pLow=0x%08" PRIXPTR "; Cmpr=%d;\n",
                     ++number, Word(Link(cursor)), Word(Link(node.prev)), Word(Link(node.high)),
                     Word(Link(node.low)), values[cursor] - values[key]);
    }
    return true;
  }
};

std::string Dumped(const Tree* tree, const void* key) {
  return tavrix_test::Traced([&] { EXPECT_EQ(MemTreeDump(tree, key), 0); });
}

TEST(Tree, AgreesWithAModelOverRandomCalls) {
  std::mt19937 random(44);
  auto below = [&](size_t n) { return static_cast<int>(random() % n); };
  int last = -1, calls = 0, dumped = 0;
  for (int round = 0; round < 8000; ++round) {
    offset = round < 4000 ? 0 : sizeof(void*);
    if (round == 4000) last = -1;
    Tree tree = {offset, 77, Compare, nullptr};
    Model model;
    model.last = last;
    for (int i = 0; i < kElements; ++i) {
      *Link(i) = {};
      values[i] = below(12);
    }
    if (below(8)) {
      model.root = below(kElements);
      tree.pRoot = Link(model.root);
    }
    for (int step = 0; step < 60; ++step) {
      const int i = below(kElements), other = below(kElements + 1) - 1;
      const char* text = (const char*[]){
          "=", "==", "!", "!=", "<", ">", "<=", ">=", "<<", ">+", ">-", ">|", "|<"}[below(13)];
      Model before = model;
      int wanted = -1, error = 0;
      std::string lines;
      void* result = nullptr;
      ErrLast = 0;
      try {
        switch (below(round % 2 ? 4 : 9)) {
          default:
            wanted = model.Add(i);
            error = wanted < 0 ? 3 : 0;
            result = MemTreeAdd(&tree, Element(i));
            break;
          case 1:
            wanted = model.Get(text, i);
            result = MemTreeGet(&tree, Element(i), MemOperator(text));
            break;
          case 2:
            if (below(500)) continue;
            model.number = 0;
            model.cursor = model.root;
            if (!model.Dump(&lines, i, 0) && model.root >= 0) ++dumped;
            EXPECT_NE(Dumped(&tree, Link(i)), "");
            ASSERT_EQ(Dumped(nullptr, Link(i)), lines);
            if (!model.Dump(&lines, i, 0)) continue;
            ASSERT_NE(Dumped(nullptr, Link(i)), "");
            continue;
          case 4: {
            bool high = below(2);
            model.Put(high ? &Model::Node::high : &Model::Node::low, other, i);
            wanted = i;
            result = reinterpret_cast<char*>(
                         (high ? MemTreeLinkHigh : MemTreeLinkLow)(&tree, Link(other), Link(i))) -
                     offset;
            break;
          }
          case 5: {
            wanted = model.Unlink(i);
            TreeLink* link = MemTreeUnlink(&tree, Link(i));
            result = link ? reinterpret_cast<char*>(link) - offset : nullptr;
            break;
          }
          case 6:
            wanted = model.Get(text, i);
            if (wanted >= 0) model.Unlink(wanted + (offset != 0));
            result = MemTreeDel(&tree, Element(i), MemOperator(text));
            break;
          case 7:
            ASSERT_EQ(MemTreeLastHigh(Link(other)), Link(model.End(&Model::Node::high, other)));
            ASSERT_EQ(MemTreeLastLow(Link(i)), Link(model.End(&Model::Node::low, i)));
            break;
        }
      } catch (Endless) {
        model = before;
        continue;
      }
      ++calls;
      ASSERT_EQ(result, Element(wanted)) << round << " " << step << text;
      ASSERT_EQ(ErrLast, error);
      bool same = tree.pRoot == Link(model.root);
      for (int n = 0; n < kElements; ++n)
        same = same && Link(n)->pPrev == Link(model.nodes[n].prev) &&
               Link(n)->pHigh == Link(model.nodes[n].high) &&
               Link(n)->pLow == Link(model.nodes[n].low);
      ASSERT_TRUE(same) << round << " " << step;
    }
    ASSERT_EQ(tree.nCount, 77u);
    last = model.last;
  }
  EXPECT_GT(calls, 200000);
  EXPECT_GT(dumped, 0);
  EXPECT_EQ(ErrCurrent, nullptr);
}

TEST(Tree, RefusesWhatItDoesNotKnow) {
  offset = 0;
  Tree tree = {0, 1, Compare, Link(0)};
  auto quiet = [](const void* result) {
    EXPECT_EQ(result, nullptr);
    return std::exchange(ErrLast, 0);
  };
  for (Tree* of : {static_cast<Tree*>(nullptr), &tree}) {  // without a tree, without anything else
    TreeLink* link = of ? nullptr : Link(1);
    EXPECT_EQ(quiet(MemTreeLinkHigh(of, Link(0), link)), 1);
    EXPECT_EQ(quiet(MemTreeLinkLow(of, nullptr, link)), 1);
    EXPECT_EQ(quiet(MemTreeUnlink(of, link)), 1);
    EXPECT_EQ(quiet(MemTreeAdd(of, link)), 1);
    EXPECT_EQ(quiet(MemTreeGet(of, link, 0)), 1);
    EXPECT_EQ(quiet(MemTreeDel(of, link, 0)), 1);
  }
  for (auto* call : {MemTreeGet, MemTreeDel}) {
    tree.cbfCmpr = Compare;
    for (const char* text : {"", "??", "><", "=!"})
      EXPECT_EQ(quiet(call(&tree, Element(0), MemOperator(text))), 2);
    EXPECT_EQ(ClearedTrail(), "02.02.02.02");
    tree.cbfCmpr = nullptr;
    for (const char* text : {"|<", "??"})
      EXPECT_EQ(quiet(call(&tree, Element(0), MemOperator(text))), 1);
    EXPECT_EQ(ClearedTrail(), "01.01");
  }
  EXPECT_EQ(quiet(MemTreeAdd(&tree, Element(1))), 2);
  tree = {0, 1, Compare, nullptr};
  EXPECT_EQ(quiet(MemTreeAdd(&tree, Element(0))), 3);
  EXPECT_EQ(quiet(MemTreeLastHigh(nullptr)), 0);
  EXPECT_EQ(Dumped(nullptr, nullptr), "");
  EXPECT_EQ(
      Dumped(&tree, nullptr),
      Line("Tree (0x%08" PRIXPTR "): pRoot=0x00000000; nCount=0x00000001; nOffset=0x00000000; "
           "cbfCmpr=0x%08" PRIXPTR ";\n",
           Word(&tree), reinterpret_cast<uintptr_t>(&Compare)));
  EXPECT_EQ(Dumped(nullptr, nullptr), "");
}

// The walk takes a byte a level; without memory for the next one it ends.
TEST(Tree, DumpsAHundredThousandLevelsAndMayFail) {
  static std::vector<TreeLink> links(100000);
  Tree tree = {0, 0, nullptr, nullptr};
  for (size_t i = 0; i < links.size(); ++i)
    MemTreeLinkLow(&tree, i ? &links[i - 1] : nullptr, &links[i]);
  ErrStackAttach(nullptr);
  int64_t number = 1, kept = 0;
  for (bool failed = true; failed; ++number) {
    MemTreeDump(&tree, nullptr);
    std::string lines = tavrix_test::Traced([&] {
      kept -= tavrix_test::LiveBlocks();
      tavrix_test::AllocationFault fault(number, 1);
      MemTreeDump(nullptr, nullptr);
      failed = fault.Hit();
      kept += tavrix_test::LiveBlocks();
    });
    EXPECT_EQ(ClearedTrail(), !failed ? "" : number == 1 ? "02.01" : "02.02");
    EXPECT_EQ(kept, 0);
    const char* node = "%04d Node (0x%08" PRIXPTR ")";
    EXPECT_EQ(lines.starts_with(Line(node, 1, Word(&links.back()))), !failed);
    EXPECT_EQ(lines.find("\n" + Line(node, 100000, Word(&links.front()))) != lines.npos, !failed);
    EXPECT_TRUE(failed ? lines.empty() : lines.ends_with(" Cmpr=0;\n"));
  }
  EXPECT_GT(number, 5);
}

}  // namespace
}  // namespace quern

// Chains against a plain sequence of elements, with links at an offset and without one.

#include "quern/cmem/chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/deadline.h"
#include "tests/support/traced.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Line;

// Of a size at which a deletion by an offset that counts whole links hits the next element's link.
constexpr size_t kStride = (sizeof(ChainLink) - 1) * sizeof(void*);
constexpr int kElements = 9;
alignas(16) char memory[kStride * (kElements + 1)];

int compared;
int32_t Compare(const void* a, const void* b) {
  ++compared;
  return static_cast<int32_t>((static_cast<const char*>(a) - static_cast<const char*>(b)) /
                              static_cast<ptrdiff_t>(kStride));
}

// Elements are numbers, -1 is none.
struct Model {
  Chain chain;
  std::vector<int> order;
  uint32_t count = 0;
  int before[kElements], behind[kElements];  // the words of elements that are not in the chain

  explicit Model(bool offset)
      : chain{offset ? static_cast<uint32_t>(sizeof(void*)) : 0, 0, Compare, nullptr, nullptr} {
    for (int i = 0; i < kElements; ++i) {
      before[i] = behind[i] = -1;
      *Link(i) = {};
    }
  }
  char* Element(int i) const { return i < 0 ? nullptr : memory + i * kStride; }
  ChainLink* Link(int i) const {
    return i < 0 ? nullptr : reinterpret_cast<ChainLink*>(Element(i) + chain.nOffset);
  }
  int Place(int i) const {
    return static_cast<int>(std::find(order.begin(), order.end(), i) - order.begin());
  }
  bool Has(int i) const { return Place(i) < static_cast<int>(order.size()); }
  int At(int place) const {
    return place < 0 || place >= static_cast<int>(order.size()) ? -1
                                                                : order[static_cast<size_t>(place)];
  }
  int Last() const { return At(static_cast<int>(order.size()) - 1); }
  int Where(int i) const { return Has(i) ? At(Place(i) - 1) : before[i]; }
  int Next(int i) const { return Has(i) ? At(Place(i) + 1) : behind[i]; }

  void PutBehind(int i, int other) {
    order.insert(other < 0 ? order.end() : order.begin() + Place(other) + 1, i);
    ++count;
  }
  void PutBefore(int i, int other) {
    order.insert(other < 0 ? order.begin() : order.begin() + Place(other), i);
    ++count;
  }
  void Take(int i) {
    order.erase(order.begin() + Place(i));
    before[i] = behind[i] = -1;
    --count;
  }

  // The element that an operator names.
  int Named(const std::string& text, int key) const {
    if (text == "|<") return At(0);
    if (text == ">|") return Last();
    if (text == "<<") return Where(key);
    if (text == ">>") return Next(key);
    return -1;
  }

  bool Agrees() const {
    bool same = chain.nCount == count && chain.pFirst == Link(At(0)) && chain.pLast == Link(Last());
    for (int i = 0; i < kElements; ++i)
      same = same && Link(i)->pWhere == Link(Where(i)) && Link(i)->pNext == Link(Next(i));
    return same;
  }
};

TEST(Chain, AgreesWithAModelOverRandomCalls) {
  std::mt19937 random(12);
  auto below = [&](size_t n) { return static_cast<int>(random() % n); };
  for (int round = 0; round < 4000; ++round) {
    Model model(round % 2);
    Chain* chain = &model.chain;
    for (int step = 0; step < 100; ++step) {
      int i = below(kElements);
      bool in = model.Has(i);
      int other = below(3) ? model.At(below(kElements)) : -1;
      ErrLast = 0;
      const char* text = (const char*[]){"|<", ">|", "<<", ">>", "=", "<="}[below(6)];
      uint32_t code = MemOperator(text);
      switch (below(8)) {
        case 0:
          if (in) break;
          ASSERT_EQ(MemChainLinkAfter(chain, model.Link(i), model.Link(other)), model.Link(i));
          model.PutBehind(i, other);
          break;
        case 1: {
          if (in) break;
          auto* link = below(2) ? MemChainAddAfter : MemChainAddBefore;
          ASSERT_EQ(link(chain, model.Element(i), model.Element(other)), model.Element(i));
          model.PutBefore(i, other);
          break;
        }
        case 2:
          if (in || other < 0) break;  // between two, for neighbours only
          if (model.Next(other) >= 0) {
            MemChainLinkAfter(nullptr, model.Link(i), model.Link(other));
            model.PutBehind(i, other);
            --model.count;
          } else {
            MemChainLinkBefore(model.Where(other) < 0 ? chain : nullptr, model.Link(i),
                               model.Link(other));
            model.count -= model.Where(other) >= 0;
            model.PutBefore(i, other);
          }
          break;
        case 3:
          if (!in) break;
          if (model.Where(i) >= 0 && model.Next(i) >= 0 && below(2)) {
            ASSERT_EQ(MemChainUnlink(nullptr, model.Link(i)), model.Link(i));
            ++model.count;
          } else {
            ASSERT_EQ(MemChainRemove(chain, model.Element(i)), model.Element(i));
          }
          model.Take(i);
          break;
        case 4: {  // the link that is taken out may be another's
          int named = model.Named(text, i);
          int taken = named < 0 ? -1 : named + round % 2;
          if (taken >= 0 && !model.Has(taken)) break;
          if (named >= 0 && taken < 0) break;
          ASSERT_EQ(MemChainDel(chain, model.Element(i), code), model.Element(named));
          if (taken >= 0) model.Take(taken);
          break;
        }
        case 5:
          ASSERT_EQ(MemChainGet(chain, model.Element(i), code),
                    model.Element(model.Named(text, i)));
          ASSERT_EQ(MemChainGet(chain, model.Element(i), MEM_INDEX), model.Element(model.Last()));
          break;
        default: {
          if (in) break;
          // The words of one that is not linked name others, too.
          model.before[i] = other;
          model.behind[i] = model.At(below(kElements));
          *model.Link(i) = {model.Link(other), model.Link(model.behind[i])};
          uint32_t side =
              (const uint32_t[]){0, MEM_AFTER, MEM_BEFORE, MEM_AFTER | MEM_BEFORE}[below(4)];
          int named = model.Named(text, i);
          if (below(2)) {
            code = MEM_INDEX | static_cast<uint32_t>(below(3));
            named = side & MEM_AFTER ? model.At(0) : side || code == MEM_INDEX ? model.Last() : -1;
          }
          void* result = MemChainAdd(chain, model.Element(i), code | side);
          if (side == MEM_BEFORE)
            model.PutBefore(i, named);
          else
            model.PutBehind(i, named);
          int gone = side ? i : model.Where(i);  // what it replaces
          ASSERT_EQ(result, model.Element(gone)) << text << side;
          ASSERT_EQ(ErrLast, gone < 0 ? 3 : 0);
          if (!side && gone >= 0) model.Take(gone);
          ErrLast = 0;
        }
      }
      ASSERT_TRUE(model.Agrees()) << round << " " << step;
      ASSERT_EQ(ErrLast, 0);
    }
  }
  EXPECT_EQ(compared, 0);
  EXPECT_EQ(ErrCurrent, nullptr);  // nothing was raised
}

TEST(Chain, RefusesWhatItDoesNotKnow) {
  Model model(true);
  for (int i = 0; i < 2; ++i) MemChainLinkAfter(&model.chain, model.Link(i), nullptr);
  model.order = {0, 1};
  model.count = 2;
  void* element = model.Element(2);
  auto* add = MemChainAdd;
  auto* get = MemChainGet;
  auto* del = MemChainDel;
  auto refused = [&](auto* call, const char* text, uint32_t side) {
    EXPECT_EQ(call(&model.chain, element, MemOperator(text) | side), nullptr) << text;
    EXPECT_TRUE(model.Agrees());
  };
  for (const char* text : {"", "?", "==", "<>", "|"}) {
    for (uint32_t side : {0u, MEM_AFTER}) refused(add, text, side);
    refused(get, text, 0);
    refused(del, text, MEM_BEFORE);
    EXPECT_EQ(ClearedTrail(), "02.02.02.02");
  }
  model.chain.cbfCmpr = nullptr;
  for (const char* text : {"=", "!=", ">", "<", ">=", "<="}) {
    refused(add, text, MEM_BEFORE);
    refused(get, text, 0);
    refused(del, text, 0);
    EXPECT_EQ(ClearedTrail(), "10.10.10");
  }

  auto quiet = [](const void* result) {
    EXPECT_EQ(result, nullptr);
    return std::exchange(ErrLast, 0);
  };
  for (auto* call : {add, get, del}) {
    EXPECT_EQ(quiet(call(nullptr, element, MEM_INDEX)), 1);
    EXPECT_EQ(quiet(call(&model.chain, nullptr, MEM_INDEX)), 1);
  }
  for (auto* call : {MemChainAddAfter, MemChainAddBefore}) {
    EXPECT_EQ(quiet(call(nullptr, element, element)), 1);
    EXPECT_EQ(quiet(call(&model.chain, nullptr, element)), 1);
  }
  EXPECT_EQ(quiet(MemChainRemove(&model.chain, nullptr)), 1);
  EXPECT_EQ(quiet(MemChainLinkAfter(&model.chain, nullptr, model.Link(0))), 0);
  EXPECT_EQ(quiet(MemChainLinkBefore(nullptr, nullptr, nullptr)), 0);
  EXPECT_EQ(quiet(MemChainUnlink(&model.chain, nullptr)), 0);
  EXPECT_TRUE(model.Agrees());
  EXPECT_EQ(ErrCurrent->nCount, 0u);
  EXPECT_EQ(MemChainDump(nullptr, nullptr), -1);
  EXPECT_EQ(ClearedTrail(), "01");
}

TEST(Chain, LinksNeedNoChain) {
  Model model(false);
  ChainLink *first = model.Link(0), *second = model.Link(1);
  for (auto* link : {MemChainLinkAfter, MemChainLinkBefore}) {
    *first = {second, second};
    EXPECT_EQ(link(nullptr, first, nullptr), first);
    EXPECT_TRUE(!first->pWhere && !first->pNext);
  }
  MemChainLinkAfter(nullptr, second, first);
  EXPECT_EQ(MemChainRemove(nullptr, first), first);  // its own link
  EXPECT_EQ(second->pWhere, nullptr);
  MemChainLinkBefore(nullptr, first, second);
  EXPECT_EQ(MemChainUnlink(nullptr, second), second);
  EXPECT_EQ(first->pNext, nullptr);
}

TEST(Chain, Dumps) {
  Model model(true);
  auto word = [](auto pointer) { return reinterpret_cast<uintptr_t>(pointer); };
  for (int i = 0; i < 3; ++i) MemChainLinkAfter(&model.chain, model.Link(i), nullptr);
  for (MemCompare compare : {&Compare, MemCompare()}) {
    model.chain.cbfCmpr = compare;
    std::string wanted =
        Line("Chain (0x%08" PRIXPTR "): pFirst=0x%08" PRIXPTR "; pLast=0x%08" PRIXPTR
             "; nCount=0x00000003; nOffset=0x%08X; cbfCmpr=0x%08" PRIXPTR ";\n",
             word(&model.chain), word(model.Link(0)), word(model.Link(2)), model.chain.nOffset,
             word(compare));
    for (int i = 0; i < 3; ++i) {
      wanted += Line("%04d Node (0x%08" PRIXPTR "): pWhere=0x%08" PRIXPTR "; pNext=0x%08" PRIXPTR
                     "; Cmpr=%d;\n",
                     i + 1, word(model.Link(i)), word(i ? model.Link(i - 1) : nullptr),
                     word(i < 2 ? model.Link(i + 1) : nullptr), compare ? i - 1 : 0);
    }
    EXPECT_EQ(tavrix_test::Traced([&] { EXPECT_EQ(MemChainDump(&model.chain, model.Link(1)), 0); }),
              wanted);
  }
}

// Whether the walk off the end of the chain faults is the system's; it never comes back.
TEST(ChainDeathTest, CountsRunOffTheChain) {
  Model model(false);
  for (int i = 0; i < 5; ++i) MemChainLinkAfter(&model.chain, model.Link(i), nullptr);
  auto get = [&](uint32_t mode) {
    tavrix_test::EndAfter(5000, 0);
    MemChainGet(&model.chain, model.Element(0), mode);
    exit(0);
  };
  EXPECT_DEATH(get(MEM_INDEX | 2), "");
  model.Link(4)->pNext = model.Link(0);  // a ring has no end
  auto running = [&] {
    tavrix_test::EndAfter(200, 42);
    MemChainGet(&model.chain, model.Element(0), MEM_INDEX | 2);
    exit(0);
  };
  EXPECT_EXIT(running(), testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace quern

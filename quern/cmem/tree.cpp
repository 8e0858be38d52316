#include "quern/cmem/tree.h"

#include <cinttypes>
#include <cstddef>

#include "quern/cerr.h"
#include "quern/cmem/buffer.h"
#include "quern/csys.h"

namespace quern {
namespace {

constexpr char kModule[] = "cmem";

TreeLink* lastParent;  // of MemTreeAdd

// Of the dump that is under way.
const TreeLink* cursor;
int32_t counter;
MemCompare compare;

std::nullptr_t Fail(int32_t code) {  // without a raise
  ErrLast = code;
  return nullptr;
}

TreeLink* LinkOf(const Tree* tree, void* element) {
  return reinterpret_cast<TreeLink*>(static_cast<char*>(element) + tree->nOffset);
}

void* ElementOf(const Tree* tree, TreeLink* link) {
  return link ? reinterpret_cast<char*>(link) - tree->nOffset : nullptr;
}

using Side = TreeLink* TreeLink::*;

Side Other(Side side) { return side == &TreeLink::pHigh ? &TreeLink::pLow : &TreeLink::pHigh; }

TreeLink* Link(Tree* tree, TreeLink* parent, TreeLink* link, Side side) {
  if (!tree || !link) return Fail(1);
  link->pPrev = parent;
  link->*Other(side) = nullptr;
  TreeLink*& place = parent ? parent->*side : tree->pRoot;
  link->*side = place;
  if (parent && place) place->pPrev = link;
  place = link;
  return link;
}

TreeLink* Last(TreeLink* link, Side side) {
  while (link && link->*side) link = link->*side;
  return link;
}

// What takes the place of a node: the end of `side` below its other child, or its child there.
TreeLink* Replacement(TreeLink* node, Side side) {
  Side other = Other(side);
  TreeLink* last = Last(node->*other, side);
  if (!last) return node->*side;
  if (last->pPrev != node) {
    if (last->pPrev) last->pPrev->*side = nullptr;
    last->*other = node->*other;
  }
  last->*side = node->*side;
  return last;
}

// Whether the comparison of a node with the key is what an operator asks for. False in `*known` for
// operators that do not compare.
bool Holds(uint32_t code, int32_t result, bool* known) {
  *known = true;
  switch (code) {
    case MemOperator("="):
    case MemOperator("=="):
      return result == 0;
    case MemOperator("!"):
    case MemOperator("!="):
      return result != 0;
    case MemOperator("<"):
      return result < 0;
    case MemOperator(">"):
      return result > 0;
    case MemOperator("<="):
      return result <= 0;
    case MemOperator(">="):
      return result >= 0;
    default:
      return *known = false;
  }
}

// What is under way on a level of the walk through a tree.
enum class Stage : char { kNothing, kLow, kHigh };

void DumpNode(const void* key) {
  auto number = [](const TreeLink* link) { return reinterpret_cast<uintptr_t>(link); };
  Trace(0,
        "%04d Node (0x%08" PRIXPTR "): pPrev=0x%08" PRIXPTR "; pHigh=0x%08" PRIXPTR
        "; pLow=0x%08" PRIXPTR "; Cmpr=%d;\n",
        ++counter, number(cursor), number(cursor->pPrev), number(cursor->pHigh),
        number(cursor->pLow), compare ? compare(cursor, key) : 0);
}

// Writes the nodes from the cursor downwards. The cursor goes up by pPrev; where that is null, the
// walk ends. A level takes a byte of `levels`, not of the stack: a tree may be as deep as it is
// large.
void DumpNodes(const void* key, MemBuf* levels) {
  auto enter = [levels](const TreeLink* node) {
    constexpr Stage kFresh = Stage::kNothing;
    cursor = node;
    return MemBufAdd(levels, &kFresh, 1) != nullptr;
  };
  bool good = enter(cursor);
  while (good && levels->nSize != 0) {
    auto* top = reinterpret_cast<Stage*>(levels->pData + levels->nSize - 1);
    Stage stage = *top;
    if (stage != Stage::kNothing) cursor = cursor->pPrev;
    if (!cursor) return;
    if (stage == Stage::kNothing && cursor->pLow) {
      *top = Stage::kLow;
      good = enter(cursor->pLow);
      continue;
    }
    if (stage != Stage::kHigh) {
      DumpNode(key);
      if (cursor->pHigh) {
        *top = Stage::kHigh;
        good = enter(cursor->pHigh);
        continue;
      }
    }
    --levels->nSize;
  }
}

}  // namespace

TreeLink* MemTreeLinkHigh(Tree* tree, TreeLink* parent, TreeLink* link) {
  return Link(tree, parent, link, &TreeLink::pHigh);
}

TreeLink* MemTreeLinkLow(Tree* tree, TreeLink* parent, TreeLink* link) {
  return Link(tree, parent, link, &TreeLink::pLow);
}

TreeLink* MemTreeUnlink(Tree* tree, TreeLink* node) {
  if (!tree || !node) return Fail(1);
  TreeLink* parent = node->pPrev;
  TreeLink* place = parent;
  if (!parent || parent->pHigh == node) place = Replacement(node, &TreeLink::pHigh);
  if (!place || place->pLow == node) place = Replacement(node, &TreeLink::pLow);
  if (place) place->pPrev = parent;  // without one the node has no children
  (parent ? node->pPrev : tree->pRoot) = place;
  return node;
}

TreeLink* MemTreeLastHigh(TreeLink* link) { return Last(link, &TreeLink::pHigh); }
TreeLink* MemTreeLastLow(TreeLink* link) { return Last(link, &TreeLink::pLow); }

void* MemTreeAdd(Tree* tree, void* element) {
  if (!tree || !element) return Fail(1);
  if (!tree->cbfCmpr) return Fail(2);
  TreeLink* link = LinkOf(tree, element);
  TreeLink* at = tree->pRoot;
  while (at) {
    int32_t result = tree->cbfCmpr(at, link);
    if (result == 0) {
      Link(tree, lastParent, link, &TreeLink::pHigh);
      break;
    }
    Side side = result > 0 ? &TreeLink::pHigh : &TreeLink::pLow;
    lastParent = at;
    at = at->*side;
    if (!at) Link(tree, lastParent, link, side);
  }
  link->pHigh = nullptr;
  link->pLow = nullptr;
  return lastParent ? ElementOf(tree, lastParent) : Fail(3);
}

void* MemTreeGet(Tree* tree, void* key, uint32_t code) {
  if (!tree || !key) return Fail(1);
  if (!tree->cbfCmpr) return ErrRaise(kModule, 1224, 1), nullptr;
  TreeLink* link = LinkOf(tree, key);
  bool walks;
  Holds(code, 0, &walks);
  if (walks) {
    TreeLink* at = tree->pRoot;
    while (at) {
      int32_t result = tree->cbfCmpr(at, link);
      if (Holds(code, result, &walks)) break;
      at = result < 0 ? at->pLow : at->pHigh;
    }
    return ElementOf(tree, at);
  }
  switch (code) {
    case MemOperator("<<"):
      return ElementOf(tree, link->pPrev);
    case MemOperator(">+"):
      return ElementOf(tree, link->pHigh);
    case MemOperator(">-"):
      return ElementOf(tree, link->pLow);
    case MemOperator(">|"):
      return ElementOf(tree, MemTreeLastHigh(tree->pRoot));
    case MemOperator("|<"):
      return ElementOf(tree, MemTreeLastLow(tree->pRoot));
    default:
      return ErrRaise(kModule, 1241, 2), nullptr;
  }
}

void* MemTreeDel(Tree* tree, void* key, uint32_t code) {
  void* element = MemTreeGet(tree, key, code);
  if (element) MemTreeUnlink(tree, static_cast<TreeLink*>(element) + tree->nOffset);
  return element;
}

int32_t MemTreeDump(const Tree* tree, const void* key) {
  if (!tree) {
    MemBuf levels = {64, 0, 0, nullptr};
    if (cursor) DumpNodes(key, &levels);
    MemBufFree(&levels);
    return 0;
  }
  counter = 0;
  cursor = tree->pRoot;
  compare = tree->cbfCmpr;
  auto number = [](auto pointer) { return reinterpret_cast<uintptr_t>(pointer); };
  Trace(0,
        "Tree (0x%08" PRIXPTR "): pRoot=0x%08" PRIXPTR
        "; nCount=0x%08X; nOffset=0x%08X; cbfCmpr=0x%08" PRIXPTR ";\n",
        number(tree), number(tree->pRoot), tree->nCount, tree->nOffset, number(tree->cbfCmpr));
  return 0;
}

}  // namespace quern

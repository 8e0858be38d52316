// A binary tree through the caller's elements, as the caller's comparison orders them. It is not
// balanced. Compat: some of its ways are particular; they stay.
#pragma once

#include <cstdint>

#include "quern/cmem/chain.h"

namespace quern {

// The three words that an element carries, at the tree's nOffset. Links point to links.
struct TreeLink {
  TreeLink* pPrev;  // the parent; null at the root
  TreeLink* pHigh;  // the side of elements for which cbfCmpr(this, element) is positive
  TreeLink* pLow;   // and negative
};
static_assert(sizeof(void*) != 4 || sizeof(TreeLink) == 12);

// The caller's record: zeroed, then nOffset and cbfCmpr set, and pRoot to the link of the first
// element.
struct Tree {
  uint32_t nOffset;  // bytes from an element to its link
  uint32_t nCount;   // the caller's
  MemCompare cbfCmpr;
  TreeLink* pRoot;
};
static_assert(sizeof(void*) != 4 || sizeof(Tree) == 16);

// All functions with a tree set ErrLast to 1 and return null for a null argument.

// Puts the link between a parent and its child on that side, or above the root without a parent.
TreeLink* MemTreeLinkHigh(Tree* tree, TreeLink* parent, TreeLink* link);
TreeLink* MemTreeLinkLow(Tree* tree, TreeLink* parent, TreeLink* link);

// Takes a node out. Parent and children go on pointing at it, so that it must outlive them; the
// link that takes its place stands in its pPrev, from where the caller may fetch it.
TreeLink* MemTreeUnlink(Tree* tree, TreeLink* node);

// The end of a side; null for null.
TreeLink* MemTreeLastHigh(TreeLink* link);
TreeLink* MemTreeLastLow(TreeLink* link);

// Adds an element as a leaf and returns its parent. One that compares equal to a node goes to the
// high side of that node's parent, and everything that stood there is dropped. To an empty tree
// nothing is added; an element equal to the root goes below the parent of the last call, of
// whatever tree, or becomes the root when there was none. So an element that was the last parent
// must live until a call has found another.
//
// Null after setting ErrLast to 2 (no cbfCmpr) or 3 (there is no last parent).
void* MemTreeAdd(Tree* tree, void* element);

// The element that an operator names: the first on the way down for which cbfCmpr(node, key) is
// "=" ("=="), "!=" ("!"), "<", ">", "<=", ">=" than 0; of the key itself "<<" its parent, ">+" its
// high child, ">-" its low child; "|<" the low end of the tree, ">|" its high end. Null when there
// is none, or after raising 1 (no cbfCmpr) or 2 (no such operator).
void* MemTreeGet(Tree* tree, void* key, uint32_t code);

// The same, and unlinks it: that is, the link that lies nOffset whole links behind the element, on
// purpose. Right for an nOffset of 0 only; with any other it writes to memory that is not its own.
void* MemTreeDel(Tree* tree, void* key, uint32_t code);

// Writes to the trace: with a tree the line of the tree, from which on a call without one writes a
// line for each node, in order from low to high, as long as the tree is. `key` is what cbfCmpr
// compares each with. In a tree from which nodes were unlinked the walk may come to the same nodes
// again and again: it goes up by pPrev.
int32_t MemTreeDump(const Tree* tree, const void* key);

}  // namespace quern

// A doubly linked list through the caller's elements, and the operators by which elements of it and
// of trees are named.
#pragma once

#include <cstdint>

namespace quern {

// The two words that an element carries, at the chain's nOffset. Links point to links.
struct ChainLink {
  ChainLink* pWhere;  // the one before; null at the first
  ChainLink* pNext;   // the one behind; null at the last
};
static_assert(sizeof(void*) != 4 || sizeof(ChainLink) == 8);

// Compares two links: negative, 0 (equal) or positive.
using MemCompare = int32_t (*)(const void* a, const void* b);

// The caller's record: zeroed, then nOffset and cbfCmpr set. Nothing here allocates.
struct Chain {
  uint32_t nOffset;  // bytes from an element to its link
  uint32_t nCount;
  MemCompare cbfCmpr;
  ChainLink* pFirst;
  ChainLink* pLast;
};
static_assert(sizeof(void*) != 4 || sizeof(Chain) == 20);

// Operators: their characters, the first one in the high byte.
constexpr uint32_t MemOperator(const char* text) {
  uint32_t code = 0;
  for (; *text; ++text) code = code << 8 | static_cast<unsigned char>(*text);
  return code;
}

// Modes of MemChainAdd, MemChainGet and MemChainDel: an operator, or MEM_INDEX and a count.
//   "|<" the first element, ">|" the last
//   "<<" the element before the given one, ">>" the one behind it
//   "<" "=" ">" "!=" "<=" ">=" none. Compat: nothing is compared, though cbfCmpr must be there
inline constexpr uint32_t MEM_INDEX = 0x10000;
inline constexpr uint32_t MEM_BEFORE = 0x20000;
inline constexpr uint32_t MEM_AFTER = 0x40000;

// Links, for callers that have no elements. `chain` may be null: then only neighbours are told. A
// null reference is the end of the chain, or its beginning. Null for a null link, else the link.
ChainLink* MemChainLinkAfter(Chain* chain, ChainLink* link, ChainLink* reference);
ChainLink* MemChainLinkBefore(Chain* chain, ChainLink* link, ChainLink* reference);
ChainLink* MemChainUnlink(Chain* chain, ChainLink* link);  // and clears it

// Both put the element in front of the reference, or of all without one. Return it, or null after
// setting ErrLast to 1 (null argument).
void* MemChainAddAfter(Chain* chain, void* element, void* reference);
void* MemChainAddBefore(Chain* chain, void* element, void* reference);

// Takes an element out. Without a chain it is its own link. Null after setting ErrLast to 1.
void* MemChainRemove(Chain* chain, void* element);

// Puts the element behind (MEM_AFTER) or before (MEM_BEFORE) the one that the mode names, and
// returns it; with neither it takes that one's place, and that one is returned. With MEM_INDEX the
// named one is the first (MEM_AFTER), the last (MEM_BEFORE, or a count of 0), else none. Where none
// is named, it goes to the end, to the beginning, or takes the place of the last.
//
// Null after setting ErrLast to 1 (null argument) or 3 (it is the only one now, in nobody's place),
// or after raising 10 (no cbfCmpr) or 2 (no such operator); raises change nothing.
void* MemChainAdd(Chain* chain, void* element, uint32_t mode);

// The element that the mode names: null when there is none, after setting ErrLast to 1 (null
// argument), or after raising 10 or 2. MEM_INDEX names the last with a count of 0; any other count
// runs through the chain and off its end, where the process faults.
void* MemChainGet(Chain* chain, void* key, uint32_t mode);

// The same, and takes it out. Compat: it takes out the link that lies nOffset whole links behind
// the element. That is right for an nOffset of 0 only; with any other it writes to memory that is
// not its own.
void* MemChainDel(Chain* chain, void* key, uint32_t mode);

// Writes the chain to the trace, a line for each link. `key` is what cbfCmpr compares each with.
// Returns 0, or minus ErrLast after raising 1 (no chain).
int32_t MemChainDump(const Chain* chain, const void* key);

}  // namespace quern

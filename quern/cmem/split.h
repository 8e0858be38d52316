// Walks a counted text as a list of tokens between separators.
//
// A record holds only addresses into the caller's text and separator, which must stay valid while
// it is used. Trimming removes blanks and tabs around a token. Compat: its two ends differ. A tab
// in front is passed over even where the text has ended, so the caller owns a byte behind the text
// that is not a tab.
#pragma once

#include <cstdint>

namespace quern {

struct MemSplit {
  const char* pSep;
  uint32_t nSep;  // bytes
  const char* pText;
  uint32_t nText;  // bytes
  uintptr_t unused[2];
  const char* pToken;  // null before the first step and after the end
  uint32_t nToken;     // bytes
};
static_assert(sizeof(void*) != 4 || sizeof(MemSplit) == 32);

// Flags of a step. The low 16 bits are a count of steps; 0 counts as 1.
inline constexpr uint32_t SPLIT_NEXT = 0x20000;  // forward from the current token
inline constexpr uint32_t SPLIT_PREV = 0x40000;  // backward: to the separator in front of it
inline constexpr uint32_t SPLIT_TRIM = 0x80000;  // tokens without blanks and tabs around them

// Sets a record up, with no current token, and returns it. Null makes one on the heap, which the
// caller frees; no memory for it raises 1.
MemSplit* MemSplitInit(MemSplit* split, const char* text, uint32_t length, const char* sep,
                       uint32_t sepLength);

// Steps to another token and returns its address; null when there is none, after which the next
// step forward begins at the first token again. Without a direction the walk begins anew: the first
// token, whatever the count. A step backward lands on the separator in front of the token and
// yields an empty token there. The two words in the middle are not used.
const char* MemSplitNext(MemSplit* split, uintptr_t, uintptr_t, uint32_t flags);

// Searches the text at `in` for each token of the list in turn and returns the first hit there,
// with the token that matched as the current one; null, and the current token as it was, when no
// token occurs. The flags are SPLIT_TRIM and those of MemFind.
const char* MemSplitFind(MemSplit* split, const char* in, uint32_t inLength, uint32_t flags);

// The same over a list without a record.
const char* MemSplitFindIn(const char* in, uint32_t inLength, const char* list, uint32_t listLength,
                           const char* sep, uint32_t sepLength, uint32_t flags);

}  // namespace quern

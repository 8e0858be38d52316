#include "quern/cmem/split.h"

#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cmem/search.h"

namespace quern {
namespace {

constexpr char kModule[] = "cmem";

const char* End(const MemSplit* split) { return split->pText + split->nText; }

// Whether a separator stands at `at`, whole.
bool AtSeparator(const MemSplit* split, const char* at) {
  if (split->nSep == 1) return *at == *split->pSep;
  if (at >= End(split)) return false;
  size_t left = static_cast<size_t>(End(split) - at);
  return split->nSep == 0 || (left >= split->nSep && memcmp(at, split->pSep, split->nSep) == 0);
}

// The next separator from `at` on, or the text's end.
const char* ToSeparator(const MemSplit* split, const char* at) {
  const char* end = End(split);
  while (at < end && !AtSeparator(split, at)) ++at;
  return at;
}

// The bound on blanks alone is deliberate.
const char* SkipLeading(const MemSplit* split, const char* at) {
  while ((at < End(split) && *at == ' ') || *at == '\t') ++at;
  return at;
}

// The length of the token that begins at `at`.
uint32_t TokenLength(const MemSplit* split, const char* at, uint32_t flags) {
  const char* end = ToSeparator(split, at);
  if (flags & SPLIT_TRIM) {
    const char* start = split->pText;
    // A blank that is the text's first byte stays, a tab there goes; both are deliberate.
    while (end > start && (end[-1] == '\t' || (end[-1] == ' ' && end - 1 > start))) --end;
  }
  return end > at ? static_cast<uint32_t>(end - at)
                  : 0;  // a token of blanks is trimmed past its start
}

const char* StepBack(const MemSplit* split) {
  if (split->pToken <= split->pText) return nullptr;
  const char* at = split->pToken;
  while (at > split->pText && !AtSeparator(split, at)) --at;
  return at;  // further steps would stay here
}

const char* StepForward(const MemSplit* split, uint32_t count, uint32_t flags) {
  if (!split->pToken) return split->pText;
  const char* at = split->pToken + split->nToken;
  if (flags & SPLIT_TRIM) at = SkipLeading(split, at);
  at += split->nSep;
  for (; count > 1 && at < End(split); --count) at = ToSeparator(split, at) + split->nSep;
  return at;
}

}  // namespace

MemSplit* MemSplitInit(MemSplit* split, const char* text, uint32_t length, const char* sep,
                       uint32_t sepLength) {
  if (!split) split = static_cast<MemSplit*>(malloc(sizeof(MemSplit)));
  if (!split) return ErrRaise(kModule, 712, 1), nullptr;
  *split = {sep, sepLength, text, length, {0, 0}, nullptr, 0};
  return split;
}

const char* MemSplitNext(MemSplit* split, uintptr_t, uintptr_t, uint32_t flags) {
  if (!split) return nullptr;
  uint32_t count = flags & 0xFFFF;
  if (!(flags & (SPLIT_NEXT | SPLIT_PREV))) split->pToken = nullptr;
  const char* start = flags & SPLIT_PREV ? StepBack(split) : StepForward(split, count, flags);
  split->nToken = 0;
  if (start && start < End(split)) {
    if (flags & SPLIT_TRIM) start = SkipLeading(split, start);
    split->nToken = TokenLength(split, start, flags);
  } else {
    start = nullptr;
  }
  return split->pToken = start;
}

const char* MemSplitFind(MemSplit* split, const char* in, uint32_t inLength, uint32_t flags) {
  if (!split || !split->pText || split->nText == 0) return nullptr;
  const char* at = split->pText;
  while (at < End(split)) {
    if (flags & SPLIT_TRIM) at = SkipLeading(split, at);
    uint32_t length = TokenLength(split, at, flags);
    const char* hit = MemFind(in, inLength, at, length, flags);
    if (hit) {
      split->pToken = at;
      split->nToken = length;
      return hit;
    }
    at = ToSeparator(split, at) + 1;  // one byte of the separator, however long it is
  }
  return nullptr;
}

const char* MemSplitFindIn(const char* in, uint32_t inLength, const char* list, uint32_t listLength,
                           const char* sep, uint32_t sepLength, uint32_t flags) {
  MemSplit split;
  MemSplitInit(&split, list, listLength, sep, sepLength);
  return MemSplitFind(&split, in, inLength, flags);
}

}  // namespace quern

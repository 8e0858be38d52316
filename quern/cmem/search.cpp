#include "quern/cmem/search.h"

#include <algorithm>
#include <cstring>

#include "quern/cmem/search_case.h"
#include "quern/cmem/search_scan.h"

namespace quern {
namespace {

const uint8_t* Bytes(const void* block) { return static_cast<const uint8_t*>(block); }
const char* Text(const uint8_t* hit) { return reinterpret_cast<const char*>(hit); }

// Barrier: the optimiser must keep a loop that never ends.
void StayInLoop() { asm volatile("" ::: "memory"); }

bool Same(uint8_t a, uint8_t b, const CaseTable* fold) {
  return fold ? fold->lower[a] == fold->lower[b] : a == b;
}

// --- sets ----------------------------------------------------------------------------------------

void AddToMap(uint8_t byte, bytes::ByteSet* set) {
  set->map[bytes::MapRow(byte)] |= bytes::MapBit(byte);
}

const uint8_t* FindInSet(const uint8_t* block, size_t size, const bytes::ByteSet& set,
                         uint32_t flags) {
  return flags & MEM_BACKWARD ? bytes::LastIn(block, size, set) : bytes::FirstIn(block, size, set);
}

// Lists the members with their other forms; 0 when there are more than kFew of them.
uint32_t ListForms(const uint8_t* members, uint32_t count, const CaseTable& fold,
                   uint8_t forms[bytes::ByteSet::kFew]) {
  if (!fold.pairs) return 0;
  uint32_t listed = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t member = members[i], twin = fold.twin[member];
    if (listed + 1 + (twin != member) > bytes::ByteSet::kFew) return 0;
    forms[listed++] = member;
    if (twin != member) forms[listed++] = twin;
  }
  return listed;
}

// The same for members of which any form counts.
const uint8_t* FindInFoldedSet(const uint8_t* block, size_t size, const uint8_t* members,
                               uint32_t count, uint32_t flags) {
  const CaseInForce in_force(true);
  const CaseTable& fold = *in_force.table();
  uint8_t forms[bytes::ByteSet::kFew];
  bytes::ByteSet set{
      forms, ListForms(members, count, fold, forms), (flags & MEM_NOTINSET) != 0, {}};
  if (set.count == 0) {
    bool wanted[256] = {};  // by lower form
    for (uint32_t i = 0; i < count; ++i) wanted[fold.lower[members[i]]] = true;
    for (unsigned byte = 0; byte < 256; ++byte)
      if (wanted[fold.lower[byte]]) AddToMap(static_cast<uint8_t>(byte), &set);
  }
  return FindInSet(block, size, set, flags);
}

// The first byte of the block that is in the set, or with MEM_BACKWARD the last one, or null.
const uint8_t* FindMember(const uint8_t* block, size_t size, const uint8_t* members, uint32_t count,
                          uint32_t flags) {
  if (flags & MEM_NOCASE) return FindInFoldedSet(block, size, members, count, flags);
  bytes::ByteSet set;
  set.inverted = (flags & MEM_NOTINSET) != 0;
  if (count <= bytes::ByteSet::kFew) {
    set.few = members;
    set.count = count;
  } else {
    set.count = 0;
    std::memset(set.map, 0, sizeof set.map);
    for (uint32_t i = 0; i < count; ++i) AddToMap(members[i], &set);
  }
  return FindInSet(block, size, set, flags);
}

// --- patterns ------------------------------------------------------------------------------------

const uint8_t* FindForward(const uint8_t* block, uint32_t length, const uint8_t* pattern,
                           uint32_t patternLength, uint32_t flags) {
  if (patternLength == 1) return FindMember(block, length, pattern, 1, flags & MEM_NOCASE);
  if (!(flags & MEM_NOCASE))
    return bytes::FindFirst(block, length, {pattern, patternLength, nullptr});
  const CaseInForce fold(true);
  return bytes::FindFirst(block, length, {pattern, patternLength, fold.table()});
}

// Compat: the places are one higher than forwards. The highest one reaches one byte past the block;
// the first byte is never tested.
const uint8_t* FindBackward(const uint8_t* block, uint32_t length, const uint8_t* pattern,
                            uint32_t patternLength, uint32_t flags) {
  const CaseInForce fold((flags & MEM_NOCASE) != 0);
  const uint8_t* const highest = block + length - patternLength + 1;
  // The byte behind the block is read only when all before it match.
  uint32_t same = 0;
  while (same < patternLength && Same(highest[same], pattern[same], fold.table())) ++same;
  if (same == patternLength) return highest;
  if (length == patternLength) return nullptr;
  return bytes::FindLast(block + 1, length - 1, {pattern, patternLength, fold.table()});
}

// --- wildcards -----------------------------------------------------------------------------------

bool EndsSegment(uint8_t byte) { return byte == '*' || byte == '?' || byte == 0; }

// The length of the segment at `segment`, its first byte included, when no more than `window` bytes
// belong to it. No byte behind the one that ends it is read.
uint32_t SegmentLength(const uint8_t* segment, uint32_t window) {
  uint32_t length = 1;
  while (length < window && !EndsSegment(segment[length])) ++length;
  return length;
}

// The length of the segment as above when the block begins with it, or 0. The walk stops at the
// first byte that differs.
uint32_t MatchSegment(const uint8_t* block, uint32_t length, const uint8_t* segment,
                      uint32_t window, const CaseTable* fold) {
  for (uint32_t i = 0; i < window; ++i) {
    if (i > 0 && EndsSegment(segment[i])) return i;
    if (i == length || !Same(block[i], segment[i], fold)) return 0;
  }
  return window;
}

// Each segment is tested against the start of the block or, behind a star, searched in all of it:
// the block's position is not carried on. A star is not counted off `rest`, so the walk goes on
// behind the pattern for one round a star. What bounds it there is the first zero byte at or behind
// the pattern's end, the last one that is read: it matches a block that begins with a zero byte,
// and then the rounds that are left would match in the same way. When `rest` has wrapped there is
// no end to them: no hit.
const uint8_t* FindWild(const uint8_t* block, uint32_t length, const uint8_t* pattern,
                        uint32_t patternLength, uint32_t flags) {
  const CaseInForce fold((flags & MEM_NOCASE) != 0);
  const uint8_t* const patternEnd = pattern + patternLength;
  const uint8_t *segment = pattern, *answer = nullptr;
  uint32_t rest = patternLength, window = patternLength;
  bool wrapped = false;
  while (rest != 0) {
    const uint8_t* hit = nullptr;
    if (*segment == '*') {
      window = SegmentLength(segment, window) - 1;
      ++segment;
      hit = Bytes(MemFind(block, length, segment, window, flags & ~MEM_WILDCARD));
    } else if (*segment == '?') {
      window = 1;
      if (*block != 0) hit = block;
    } else if (*segment == 0 && segment >= patternEnd) {
      return *block == 0 && !wrapped ? answer : nullptr;
    } else {
      window = MatchSegment(block, length, segment, window, fold.table());
      if (window != 0) hit = block;
    }
    if (!hit) return nullptr;
    if (!answer) answer = hit;
    segment += window;
    wrapped |= window > rest;
    rest -= window;
  }
  return answer;
}

}  // namespace

int32_t MemCmp(const void* a, const void* b, uint32_t count, uint32_t flags) {
  if (count == 0 || a == b) return 0;
  if (!a || !b) return a ? 1 : -1;
  if (!(flags & MEM_NOCASE)) return std::memcmp(a, b, count);
  const CaseInForce fold(true);
  const uint8_t* lower = fold.table()->lower;
  for (const uint8_t *at = Bytes(a), *other = Bytes(b), *end = at + count; at != end; ++at, ++other)
    if (lower[*at] != lower[*other]) return lower[*at] - lower[*other];
  return 0;
}

const char* MemFind(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                    uint32_t flags) {
  if (!block || length == 0 || !pattern || patternLength == 0) return nullptr;
  if (flags & MEM_WILDCARD)
    return Text(FindWild(Bytes(block), length, Bytes(pattern), patternLength, flags));
  if (length < patternLength) return nullptr;
  const auto find = flags & MEM_BACKWARD ? FindBackward : FindForward;
  return Text(find(Bytes(block), length, Bytes(pattern), patternLength, flags));
}

uint32_t MemFindOfs(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                    uint32_t flags) {
  const char* hit = MemFind(block, length, pattern, patternLength, flags);
  return hit ? static_cast<uint32_t>(hit - static_cast<const char*>(block)) : 0;
}

const char* MemFindAny(const void* block, int32_t length, const void* set, uint32_t setLength,
                       uint32_t flags) {
  if (!block || length == 0 || !set || setLength == 0) return nullptr;
  const uint8_t* start = Bytes(block);
  uint32_t size = static_cast<uint32_t>(length);
  if (length < 0) {
    size = 0 - size;
    start = start - size + 1;
    flags ^= MEM_BACKWARD;
  }
  return Text(FindMember(start, size, Bytes(set), setLength, flags));
}

uint32_t MemFindAnyOfs(const void* block, int32_t length, const void* set, uint32_t setLength,
                       uint32_t flags) {
  const char* hit = MemFindAny(block, length, set, setLength, flags);
  return hit ? static_cast<uint32_t>(hit - static_cast<const char*>(block)) : 0;
}

uint32_t MemReplaceAll(void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                       const void* replacement, uint32_t replacementLength, uint32_t flags) {
  if (!block || !pattern || patternLength == 0) return 0;
  uint8_t* at = static_cast<uint8_t*>(block);
  uint8_t* end = at + length;  // of the block or of what it has grown to: nothing behind is touched
  uint32_t remaining = length, total = 0;
  while (remaining >= patternLength) {
    StayInLoop();
    const uint8_t* hit =
        FindForward(at, remaining, Bytes(pattern), patternLength, flags & MEM_NOCASE);
    if (!hit) break;
    remaining -= static_cast<uint32_t>(hit - at);
    at += hit - at;
    std::memmove(at + replacementLength, at + patternLength, remaining - patternLength);
    if (replacement && replacementLength != 0) std::memmove(at, replacement, replacementLength);
    end += replacementLength - std::min(replacementLength, patternLength);
    at += replacementLength;
    // Compat: one more than is left, and what was just put in again: the scan runs on over bytes
    // that the move left behind.
    const uint64_t reach = uint64_t{remaining} - patternLength + replacementLength + 1;
    remaining = static_cast<uint32_t>(std::min<uint64_t>(reach, static_cast<size_t>(end - at)));
    total += patternLength - replacementLength;
  }
  return total;
}

uint32_t MemReplaceAny(void* block, uint32_t length, const void* set, uint32_t setLength,
                       const void* replacement, uint32_t replacementLength, uint32_t flags) {
  if (!block || !set || setLength == 0) return 0;
  uint8_t* at = static_cast<uint8_t*>(block);
  uint32_t remaining = length, total = 0;
  const bool copies = replacement && replacementLength != 0;
  while (remaining != 0) {
    const uint8_t* hit = FindMember(at, remaining, Bytes(set), setLength, flags);
    if (!hit) break;
    remaining -= static_cast<uint32_t>(hit - at) + 1;
    at += hit - at;
    std::memmove(at + replacementLength, at + 1, remaining);
    if (copies) {
      std::memmove(at, replacement, replacementLength);
      ++at;  // within the replacement when that is longer than a byte
    }
    total += replacementLength - 1;
  }
  return total;
}

uint32_t MemCount(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                  uint32_t flags) {
  uint32_t count = 0;
  while (const char* hit = MemFind(block, length, pattern, patternLength, flags)) {
    ++count;
    const uint64_t passed =
        static_cast<uint64_t>(hit - static_cast<const char*>(block)) + patternLength;
    if (passed > length) break;
    length -= static_cast<uint32_t>(passed);
  }
  return count;
}

uint32_t MemCountAny(const void* block, uint32_t length, const void* set, uint32_t setLength,
                     uint32_t flags) {
  if (!block || !set || setLength == 0) return 0;
  uint32_t count = 0;
  while (length != 0) {
    StayInLoop();
    const uint8_t* hit = FindMember(Bytes(block), length, Bytes(set), setLength, flags);
    if (!hit) break;
    ++count;
    length -= static_cast<uint32_t>(hit - Bytes(block));
  }
  return count;
}

}  // namespace quern

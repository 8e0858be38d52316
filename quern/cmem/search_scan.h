// The scans behind MemFind and MemFindAny: the same hits as a byte-by-byte walk, found many bytes
// at a time. Every read lies inside the block.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quern/cmem/search_case.h"

namespace quern::bytes {

// A set of bytes, or, when inverted, all bytes but these.
struct ByteSet {
  static constexpr uint32_t kFew = 8;

  const uint8_t* few;  // the bytes themselves, when there are 1 to kFew of them
  uint32_t count;      // how many; 0: they are in the map
  bool inverted;
  // A bit for each byte: the row is its low half and its top bit, the bit its other three.
  uint8_t map[32];

  bool Holds(uint8_t byte) const;
};

inline uint32_t MapRow(uint8_t byte) { return (byte & 15u) | (byte >> 3 & 16u); }
inline uint8_t MapBit(uint8_t byte) { return static_cast<uint8_t>(1u << (byte >> 4 & 7u)); }

// The first or the last byte of the block that the set holds, or null. `size` is not 0.
const uint8_t* FirstIn(const uint8_t* block, size_t size, const ByteSet& set);
const uint8_t* LastIn(const uint8_t* block, size_t size, const ByteSet& set);

struct Pattern {
  const uint8_t* data;
  size_t size;            // at least 1, at most the size of the block
  const CaseTable* fold;  // compare in lower case; null: as they are
};

// The first or the last occurrence that lies in the block, or null.
//
// The time is linear in the size of the block and of the pattern, whatever they hold.
const uint8_t* FindFirst(const uint8_t* block, size_t size, const Pattern& pattern);
const uint8_t* FindLast(const uint8_t* block, size_t size, const Pattern& pattern);

// --- between the scans and their kernels ---------------------------------------------------------

// The kernels of one instruction set. They take blocks of at least `width` bytes and, for patterns,
// of at least `width` places where the pattern can begin.
struct Kernels {
  using SetSearch = const uint8_t*(const uint8_t* block, size_t size, const ByteSet& set);
  using PatternSearch = const uint8_t*(const uint8_t* block, size_t size, const Pattern& pattern);

  size_t width;
  SetSearch* firstIn[ByteSet::kFew + 1];  // by the set's count
  SetSearch* lastIn[ByteSet::kFew + 1];
  PatternSearch* findFirst[2];  // as they are, in lower case
  PatternSearch* findLast[2];
};

extern const Kernels kBaseKernels;  // what every machine of the target has
extern const Kernels kAvx2Kernels;  // x86 alone, for processors that have it

// Three positions in the pattern that other text is least likely to match; all of them when it has
// no more.
void ChooseSpots(const Pattern& pattern, size_t spots[3]);

// Where to cut a pattern so that a mismatch tells how far to move on (a critical factorisation).
struct Cut {
  size_t right;   // start of the right part, which is compared first
  size_t period;  // how far to move on when the right part matches and the left part does not
  bool periodic;  // `period` is the period of the whole pattern
};
Cut CutPattern(const Pattern& pattern);

}  // namespace quern::bytes

// The scanning loops, written once over a vector type and compiled once per instruction set.
//
// Everything here is local to the file that includes it, templates and inline functions as well,
// and nothing of the standard library's is used: two files compile it with different instructions,
// and the linker must not take one for the other.
//
// A vector type V has kWidth bytes, V::Half, Load, All, ==, &, |, ^, Any and Bits (one bit a byte,
// the first byte lowest), InLowerAscii, and Mapped, the class for sets of any size.
#pragma once

#include "quern/cmem/search_scan.h"

#define QUERN_INLINE [[gnu::always_inline]] inline

namespace quern::bytes {
namespace {

template <class T>
QUERN_INLINE T Less(T a, T b) {
  return b < a ? b : a;
}
template <class T>
QUERN_INLINE T More(T a, T b) {
  return a < b ? b : a;
}
QUERN_INLINE int LowestBit(uint32_t bits) { return __builtin_ctz(bits); }
QUERN_INLINE int LowestBit(uint64_t bits) { return __builtin_ctzll(bits); }
QUERN_INLINE int HighestBit(uint32_t bits) { return 31 - __builtin_clz(bits); }

// --- sets ----------------------------------------------------------------------------------------

// kCount bytes, each compared.
template <class V, uint32_t kCount>
class OneOf {
 public:
  QUERN_INLINE explicit OneOf(const ByteSet& set) : inverted_(V::All(set.inverted ? 255 : 0)) {
    for (uint32_t i = 0; i < kCount; ++i) value_[i] = V::All(set.few[i]);
  }
  QUERN_INLINE V Hits(V text) const {
    V hits = text == value_[0];
    for (uint32_t i = 1; i < kCount; ++i) hits = hits | (text == value_[i]);
    return hits ^ inverted_;
  }

 private:
  V value_[kCount];
  V inverted_;
};

// Any bytes, looked up one by one, for instructions that cannot look up a vector.
template <class V>
class MappedByByte {
 public:
  explicit MappedByByte(const ByteSet& set) : set_(set) {}
  V Hits(V text) const {
    uint8_t part[V::kWidth];
    __builtin_memcpy(part, &text, sizeof part);
    for (uint8_t& byte : part) byte = set_.Holds(byte) ? 255 : 0;
    return V::Load(part);
  }

 private:
  const ByteSet& set_;
};

// The bits of two vectors that follow each other.
template <class V>
QUERN_INLINE uint64_t PairBits(V low, V high) {
  return low.Bits() | static_cast<uint64_t>(high.Bits()) << V::kWidth;
}

template <class V, class Set>
const uint8_t* FirstHit(const uint8_t* at, size_t size, const ByteSet& bytes) {
  constexpr ptrdiff_t kWidth = V::kWidth;
  const uint8_t* const end = at + size;
  const Set set(bytes);
  // Two vectors alone: most callers look for something near.
  if (end - at >= 2 * kWidth) {
    const uint64_t near = PairBits(set.Hits(V::Load(at)), set.Hits(V::Load(at + kWidth)));
    if (near) return at + LowestBit(near);
    at += 2 * kWidth;
  }
  for (; end - at >= 4 * kWidth; at += 4 * kWidth) {
    const V a = set.Hits(V::Load(at)), b = set.Hits(V::Load(at + kWidth));
    const V c = set.Hits(V::Load(at + 2 * kWidth)), d = set.Hits(V::Load(at + 3 * kWidth));
    if (((a | b) | (c | d)).Any()) {
      const uint64_t low = PairBits(a, b), high = PairBits(c, d);
      return low ? at + LowestBit(low) : at + 2 * kWidth + LowestBit(high);
    }
  }
  for (; at < end; at += kWidth) {
    at = Less(at, end - kWidth);  // what is passed over again has no hit
    const uint32_t bits = set.Hits(V::Load(at)).Bits();
    if (bits) return at + LowestBit(bits);
  }
  return nullptr;
}

template <class V, class Set>
const uint8_t* LastHit(const uint8_t* block, size_t size, const ByteSet& bytes) {
  constexpr ptrdiff_t kWidth = V::kWidth;
  const Set set(bytes);
  for (const uint8_t* end = block + size; end != block; end -= kWidth) {
    if (end - block < kWidth) end = block + kWidth;
    const uint32_t bits = set.Hits(V::Load(end - kWidth)).Bits();
    if (bits) return end - kWidth + HighestBit(bits);
  }
  return nullptr;
}

// --- patterns ------------------------------------------------------------------------------------

// The first i in [from, to) where the text does not match the pattern, or `to`.
template <class V, bool kFold>
size_t Mismatch(const uint8_t* text, const Pattern& pattern, size_t from, size_t to) {
  constexpr size_t kWidth = V::kWidth;
  size_t i = from;
  if (!kFold || pattern.fold->ascii) {
    while (i < to && to - from >= kWidth) {
      i = Less(i, to - kWidth);  // what is compared again matches
      V a = V::Load(text + i), b = V::Load(pattern.data + i);
      if (kFold) a = a.InLowerAscii(), b = b.InLowerAscii();
      const uint32_t same = (a == b).Bits();
      if (same != V::kAllBits) return i + LowestBit(~same);
      i += kWidth;
    }
  }
  for (; i < to; ++i) {
    if (kFold ? pattern.fold->lower[text[i]] != pattern.fold->lower[pattern.data[i]]
              : text[i] != pattern.data[i])
      break;
  }
  return i;
}

// How many spots the filter of a pattern search uses, by level.
inline constexpr int kSpotCounts[] = {3, 8, 16, 24};
inline constexpr int kTopLevel = 3;
inline constexpr int kFewSpots = kSpotCounts[0], kMostSpots = kSpotCounts[kTopLevel];

// One search for a pattern of at least one byte.
//
// A filter compares whole vectors of places with the pattern at a few spots, at first the three
// that are rarest in usual text; the places that are left are compared in full. Each place that
// fails there teaches the filter the spot where it failed, and when this happens often, more spots
// are used. Text made to defeat the spots as well gets the comparison by a critical cut of the
// pattern, whose mismatches rule out as many places as bytes were compared, which keeps the whole
// linear.
template <class V, bool kFold>
class PatternScan {
 public:
  // `places` (at least V::kWidth) are where the pattern can begin: from `text` on.
  PatternScan(const uint8_t* text, size_t places, const Pattern& pattern)
      : pattern_(pattern), highest_(text + places - V::kWidth) {
    ChooseSpots(pattern, spot_);
    for (int i = 0; i < kFewSpots; ++i) SetSpot(i, spot_[i]);
  }

  // The first occurrence that begins in [at, last), or null. Whoever goes on from a hit calls Went.
  const uint8_t* Next(const uint8_t* at, const uint8_t* last) {
    settled_ = at;
    while (at < last) {
      const Group group = level_ == 0 ? NextGroup<kFewSpots>(at, last) : NextDense(at, last);
      at = group.end;
      for (uint64_t left = group.left; left;) {
        const uint8_t* const place = group.base + LowestBit(left);
        const Verdict verdict = Compare(place);
        if (verdict.mismatch == pattern_.size) return place;
        const uint8_t* const next = place + verdict.skip;
        // A way to go on has paid for the comparison, unless the filter can come to know it all.
        if ((verdict.skip < kPaid || pattern_.size <= kMostSpots) &&
            Teaches(place, verdict.mismatch)) {
          at = next;  // the filter knows better now
          break;
        }
        at = More(at, next);
        const size_t done = static_cast<size_t>(next - group.base);
        left = done < 64 ? left >> done << done : 0;
      }
    }
    return nullptr;
  }

  void Went(const uint8_t* hit) { Charge(hit, pattern_.size); }

 private:
  static constexpr ptrdiff_t kWidth = V::kWidth;
  static constexpr size_t kPaid = 8;
  static constexpr int kLessons = 8;            // before more spots are used
  static constexpr int kMostLessons = 64;       // of the most spots: what they miss now, they miss
  static constexpr ptrdiff_t kQuiet = 1 << 16;  // bytes without a place to compare: fewer will do
  static constexpr int64_t kCredit = 256, kMostCredit = 4096;

  // Places that passed the filter: a bit for each, counted from `base`. All before `end` are dealt
  // with.
  struct Group {
    const uint8_t* base;
    const uint8_t* end;
    uint64_t left;
  };

  struct Verdict {
    size_t mismatch;  // the pattern's size: none
    size_t skip;      // the next place that can match lies so many bytes on
  };

  void SetSpot(int i, size_t spot) {
    const uint8_t byte = pattern_.data[spot];
    const uint8_t spread = kFold ? pattern_.fold->spread[byte] : 0;
    spot_[i] = spot;
    value_[i] = V::All(byte | spread);
    if (kFold) spread_[i] = V::All(spread);
  }

  template <int kSpots>
  QUERN_INLINE V Survivors(const uint8_t* at) const {
    V all = Same(at, 0);
#pragma GCC unroll 24
    for (int i = 1; i < kSpots; ++i) all = all & Same(at, i);
    return all;
  }

  // Without case a few other letters pass as well: those that differ in the same bits only.
  QUERN_INLINE V Same(const uint8_t* at, int i) const {
    const V text = V::Load(at + spot_[i]);
    return (kFold ? text | spread_[i] : text) == value_[i];
  }

  template <int kSpots>
  QUERN_INLINE Group NextGroup(const uint8_t* at, const uint8_t* last) const {
    for (; kSpots <= kSpotCounts[1] && last - at >= 2 * kWidth; at += 2 * kWidth) {
      const V low = Survivors<kSpots>(at), high = Survivors<kSpots>(at + kWidth);
      if ((low | high).Any()) return {at, at + 2 * kWidth, PairBits(low, high)};
    }
    while (at < last) {
      const uint8_t* const base = Less(at, highest_);
      const uint8_t* const end = Less(base + kWidth, last);
      uint64_t left = Survivors<kSpots>(base).Bits();
      left = left >> (at - base) << (at - base);
      left &= ~uint64_t{0} >> (64 - (end - base));
      if (left) return {base, end, left};
      at = end;
    }
    return {last, last, 0};
  }

  [[gnu::noinline]] Group NextDense(const uint8_t* at, const uint8_t* last) {
    last = at + Less(last - at, kQuiet);
    const Group group = level_ == 1   ? NextGroup<kSpotCounts[1]>(at, last)
                        : level_ == 2 ? NextGroup<kSpotCounts[2]>(at, last)
                                      : NextGroup<kMostSpots>(at, last);
    if (!group.left && last - at == kQuiet) UseLevel(level_ - 1);
    return group;
  }

  QUERN_INLINE Verdict Compare(const uint8_t* place) {
    using Step = typename V::Half;
    const size_t size = pattern_.size;
    if (!kFold && size <= kFewSpots) return {size, 1};  // the spots are all there is
    if (!cut_.period) return {Mismatch<Step, kFold>(place, pattern_, 0, size), 1};
    const size_t known = place == known_place_ ? known_ : 0;
    const size_t right = Mismatch<Step, kFold>(place, pattern_, More(known, cut_.right), size);
    if (right < size) return {right, right - cut_.right + 1};
    const size_t left = Mismatch<Step, kFold>(place, pattern_, known, cut_.right);
    if (left < cut_.right) return {left, cut_.period};
    if (cut_.periodic) known_place_ = place + cut_.period, known_ = size - cut_.period;
    return {size, 1};
  }

  // When comparisons have the upper hand, each failure teaches the filter, and when that does not
  // help, more spots are used.
  bool Teaches(const uint8_t* place, size_t mismatch) {
    Charge(place, mismatch);
    if (balance_ >= 0 || (level_ == kTopLevel && lessons_ == kMostLessons)) return false;
    SetSpot(next_spot_, mismatch);
    if (++next_spot_ == kSpotCounts[level_]) next_spot_ = 0;
    if (++lessons_ >= kLessons && level_ != kTopLevel) UseLevel(level_ + 1);
    return true;
  }

  // Sets what a comparison cost against what the filter has passed over.
  void Charge(const uint8_t* place, size_t compared) {
    constexpr int64_t kEach = 32;
    balance_ = Less(balance_ + (place - settled_), kMostCredit);
    balance_ -= kEach + static_cast<int64_t>(compared);
    settled_ = place;
    if (!cut_.period && balance_ / 8 < -static_cast<int64_t>(pattern_.size))
      cut_ = CutPattern(pattern_);
    if (cut_.period) balance_ = More(balance_, -kMostCredit);
  }

  // Spots that no failure has taught yet are spread over the pattern. As many as it has bytes are
  // all of them: then nothing passes that does not match.
  void UseLevel(int level) {
    const int count = kSpotCounts[level];
    if (pattern_.size <= static_cast<size_t>(count)) {
      for (int i = 0; i < count; ++i) SetSpot(i, static_cast<size_t>(i) % pattern_.size);
      ready_ = More(ready_, count);
    }
    for (; ready_ < count; ++ready_)
      SetSpot(ready_, static_cast<size_t>(uint64_t{pattern_.size} * ready_ / kMostSpots));
    next_spot_ = level > level_ ? kSpotCounts[level_] : 0;
    level_ = level;
    lessons_ = 0;
  }

  const Pattern& pattern_;
  const uint8_t* const highest_;  // the last place from which a whole vector of places can be read

  int level_ = 0;
  int ready_ = kFewSpots;  // spots that are set
  int next_spot_ = 0;      // which one the next lesson replaces
  int lessons_ = 0;        // since the level was chosen
  size_t spot_[kMostSpots];
  V value_[kMostSpots];   // the byte there, repeated
  V spread_[kMostSpots];  // the bits in which its forms differ

  int64_t balance_ = kCredit;  // bytes passed over, less the cost of comparisons
  const uint8_t* settled_ = nullptr;

  Cut cut_{};  // a period of 0: not made
  const uint8_t* known_place_ = nullptr;
  size_t known_ = 0;  // so many bytes are known to match at known_place_
};

template <class V, bool kFold>
const uint8_t* FirstPlace(const uint8_t* block, size_t size, const Pattern& pattern) {
  const size_t places = size - pattern.size + 1;
  PatternScan<V, kFold> scan(block, places, pattern);
  return scan.Next(block, block + places);
}

// Walks backwards over stretches that grow, each searched forwards.
template <class V, bool kFold>
const uint8_t* LastPlace(const uint8_t* block, size_t size, const Pattern& pattern) {
  const size_t places = size - pattern.size + 1, most = More<size_t>(4096, pattern.size / 8);
  PatternScan<V, kFold> scan(block, places, pattern);
  const uint8_t *last = block + places, *hit = nullptr;
  for (size_t stretch = 64; last != block; stretch = Less(stretch * 2, most)) {
    const uint8_t* const from = last - Less(stretch, static_cast<size_t>(last - block));
    for (const uint8_t* at = from; (at = scan.Next(at, last)) != nullptr; ++at) {
      hit = at;
      scan.Went(at);
    }
    if (hit) return hit;
    last = from;
  }
  return nullptr;
}

template <class V>
constexpr Kernels kKernelsOf = {
    V::kWidth,
    {FirstHit<V, typename V::Mapped>, FirstHit<V, OneOf<V, 1>>, FirstHit<V, OneOf<V, 2>>,
     FirstHit<V, OneOf<V, 3>>, FirstHit<V, OneOf<V, 4>>, FirstHit<V, OneOf<V, 5>>,
     FirstHit<V, OneOf<V, 6>>, FirstHit<V, OneOf<V, 7>>, FirstHit<V, OneOf<V, 8>>},
    {LastHit<V, typename V::Mapped>, LastHit<V, OneOf<V, 1>>, LastHit<V, OneOf<V, 2>>,
     LastHit<V, OneOf<V, 3>>, LastHit<V, OneOf<V, 4>>, LastHit<V, OneOf<V, 5>>,
     LastHit<V, OneOf<V, 6>>, LastHit<V, OneOf<V, 7>>, LastHit<V, OneOf<V, 8>>},
    {FirstPlace<V, false>, FirstPlace<V, true>},
    {LastPlace<V, false>, LastPlace<V, true>}};

}  // namespace
}  // namespace quern::bytes

#include "quern/cmem/search_scan.h"

#include <algorithm>

namespace quern::bytes {
namespace {

// How common a byte is in program text, prose and binaries: its rank among the 256, 255 being the
// most common one.
// clang-format off
constexpr uint8_t kRank[256] = {
    251, 172, 154, 140, 151, 150, 128, 137, 166, 213, 244, 127, 115, 102, 158, 174,
    155, 126, 138,  52, 103, 110,  86,  78, 143,  20,  49,  13,  88,  51,  47, 146,
    255, 141, 181, 202, 210, 152, 176, 179, 233, 231, 218, 161, 227, 203, 225, 220,
    234, 208, 209, 186, 182, 187, 184, 180, 189, 188, 212, 217, 194, 199, 206, 132,
    173, 230, 195, 224, 207, 235, 198, 193, 215, 229, 148, 169, 221, 197, 216, 214,
    211, 133, 219, 228, 232, 190, 171, 162, 185, 170, 147, 177, 165, 178, 129, 252,
    135, 246, 222, 242, 241, 254, 238, 223, 236, 250, 153, 196, 243, 237, 249, 245,
    240, 164, 248, 247, 253, 239, 204, 200, 205, 226, 175, 192, 156, 191, 125,  60,
    136,  76,  33, 160, 149, 157,  71,  32, 100, 183,  39, 168, 111, 163,  57,  42,
    121,  77,  17,  23,  81,  59,  41,  14,  90,  11,   5,  31,  45,  24,   4,   1,
     63,   0,  80,  53,  44,  10,   6,   8,  21,  22,  12,  36,  35,  19,  16,   9,
    101,   3,   7,  40,  46,  25, 114,  38,  97,  66, 117,  55,  75,  73, 105, 109,
    159, 130, 112, 144, 108,  93, 123, 139,  79,  89,  43,  65,  28,  30,  56,  26,
    118,  64,  99,  72,   2,  50,  18,  34, 107,  48,  27,  95,  15,  29,  92, 116,
    124,  74,  87,  62,  61,  68,  83,  98, 167, 142,  69, 131, 104,  91,  85, 119,
    122,  37,  67,  84,  70,  58, 120,  96, 134,  54,  82, 106,  94, 113, 145, 201,
};
// clang-format on

constexpr size_t kLooked = 64;  // bytes of a pattern from which its spots are chosen

const Kernels& KernelsFor(size_t places) {
#if defined(__x86_64__) || defined(__i386__)
  if (places >= kAvx2Kernels.width && __builtin_cpu_supports("avx2")) return kAvx2Kernels;
#else
  static_cast<void>(places);
#endif
  return kBaseKernels;
}

bool Matches(const uint8_t* at, const Pattern& pattern) {
  if (!pattern.fold) return std::equal(at, at + pattern.size, pattern.data);
  const uint8_t* lower = pattern.fold->lower;
  return std::equal(at, at + pattern.size, pattern.data,
                    [lower](uint8_t a, uint8_t b) { return lower[a] == lower[b]; });
}

// Where the greatest suffix of the pattern starts, and its period. `sign` is 1, or -1 for the
// reverse order of the bytes.
struct Suffix {
  size_t start;
  size_t period;
};
Suffix GreatestSuffix(const Pattern& pattern, int sign) {
  const auto byte = [&pattern](size_t i) {
    return pattern.fold ? pattern.fold->lower[pattern.data[i]] : pattern.data[i];
  };
  Suffix best{0, 1};
  size_t rival = 1, matched = 0;
  while (rival + matched < pattern.size) {
    const int order = sign * (byte(rival + matched) - byte(best.start + matched));
    if (order < 0) {
      rival += matched + 1;
      matched = 0;
      best.period = rival - best.start;
    } else if (order == 0) {
      if (++matched == best.period) rival += matched, matched = 0;
    } else {
      best = {rival, 1};
      rival = best.start + 1;
      matched = 0;
    }
  }
  return best;
}

}  // namespace

bool ByteSet::Holds(uint8_t byte) const {
  if (count == 0) return ((map[MapRow(byte)] & MapBit(byte)) != 0) != inverted;
  for (uint32_t i = count; i-- > 0;)
    if (few[i] == byte) return !inverted;
  return inverted;
}

const uint8_t* FirstIn(const uint8_t* block, size_t size, const ByteSet& set) {
  const Kernels& kernels = KernelsFor(size);
  if (size >= kernels.width) return kernels.firstIn[set.count](block, size, set);
  for (const uint8_t* at = block; at != block + size; ++at)
    if (set.Holds(*at)) return at;
  return nullptr;
}

const uint8_t* LastIn(const uint8_t* block, size_t size, const ByteSet& set) {
  const Kernels& kernels = KernelsFor(size);
  if (size >= kernels.width) return kernels.lastIn[set.count](block, size, set);
  for (const uint8_t* at = block + size; at-- != block;)
    if (set.Holds(*at)) return at;
  return nullptr;
}

const uint8_t* FindFirst(const uint8_t* block, size_t size, const Pattern& pattern) {
  const size_t places = size - pattern.size + 1;
  const Kernels& kernels = KernelsFor(places);
  if (places >= kernels.width)
    return kernels.findFirst[pattern.fold != nullptr](block, size, pattern);
  for (const uint8_t* at = block; at != block + places; ++at)
    if (Matches(at, pattern)) return at;
  return nullptr;
}

const uint8_t* FindLast(const uint8_t* block, size_t size, const Pattern& pattern) {
  const size_t places = size - pattern.size + 1;
  const Kernels& kernels = KernelsFor(places);
  if (places >= kernels.width)
    return kernels.findLast[pattern.fold != nullptr](block, size, pattern);
  for (const uint8_t* at = block + places; at-- != block;)
    if (Matches(at, pattern)) return at;
  return nullptr;
}

void ChooseSpots(const Pattern& pattern, size_t spots[3]) {
  const auto rank = [&pattern](size_t i) {
    const uint8_t byte = pattern.data[i];
    return pattern.fold ? std::max(kRank[byte], kRank[pattern.fold->twin[byte]]) : kRank[byte];
  };
  if (pattern.size <= 3) {
    for (size_t i = 0; i < 3; ++i) spots[i] = std::min(i, pattern.size - 1);
    return;
  }
  unsigned ranks[3] = {256, 256, 256};
  for (size_t i = 0, looked = std::min(pattern.size, kLooked); i < looked; ++i) {
    const unsigned here = rank(i);
    if (here >= ranks[2]) continue;
    int place = 2;
    for (; place > 0 && here < ranks[place - 1]; --place) {
      ranks[place] = ranks[place - 1];
      spots[place] = spots[place - 1];
    }
    ranks[place] = here;
    spots[place] = i;
  }
}

// The later of the two greatest suffixes begins at a critical position: there the local period is
// the period of the whole, so that no occurrence begins within it once the right part has matched.
Cut CutPattern(const Pattern& pattern) {
  const Suffix up = GreatestSuffix(pattern, 1), down = GreatestSuffix(pattern, -1);
  const Suffix cut = up.start > down.start ? up : down;
  const Pattern left{pattern.data, cut.start, pattern.fold};
  if (Matches(pattern.data + cut.period, left)) return {cut.start, cut.period, true};
  return {cut.start, std::max(cut.start, pattern.size - cut.start) + 1, false};
}

}  // namespace quern::bytes

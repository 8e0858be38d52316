// The kernels for processors with AVX2, 32 bytes at a time. Nothing in this file may run on others:
// it is compiled with -mavx2, and what it includes from the library is local to it.
#if defined(__x86_64__) || defined(__i386__)
#ifndef __AVX2__
#error "compile this file with -mavx2"
#endif

#include <immintrin.h>

#include "quern/cmem/search_kernel.h"
#include "quern/cmem/search_sse2.h"

namespace quern::bytes {
namespace {

struct Avx2Bytes {
  static constexpr size_t kWidth = 32;
  using Half = Sse2Bytes;

  QUERN_INLINE static Avx2Bytes Load(const uint8_t* at) {
    return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at))};
  }
  QUERN_INLINE static Avx2Bytes All(int byte) {
    return {_mm256_set1_epi8(static_cast<char>(byte))};
  }
  QUERN_INLINE bool Any() const { return Bits() != 0; }
  QUERN_INLINE uint32_t Bits() const { return static_cast<uint32_t>(_mm256_movemask_epi8(v)); }

  QUERN_INLINE friend Avx2Bytes operator==(Avx2Bytes a, Avx2Bytes b) {
    return {_mm256_cmpeq_epi8(a.v, b.v)};
  }
  QUERN_INLINE friend Avx2Bytes operator&(Avx2Bytes a, Avx2Bytes b) {
    return {_mm256_and_si256(a.v, b.v)};
  }
  QUERN_INLINE friend Avx2Bytes operator|(Avx2Bytes a, Avx2Bytes b) {
    return {_mm256_or_si256(a.v, b.v)};
  }
  QUERN_INLINE friend Avx2Bytes operator^(Avx2Bytes a, Avx2Bytes b) {
    return {_mm256_xor_si256(a.v, b.v)};
  }

  class Mapped;

  __m256i v;
};

// The map of a set in registers. The shuffle takes a row by the low half of a byte and gives 0
// where the top bit is set, so that two of them cover both halves of the map.
class Avx2Bytes::Mapped {
 public:
  QUERN_INLINE explicit Mapped(const ByteSet& set)
      : low_(Rows(set.map)),
        high_(Rows(set.map + 16)),
        bit_(_mm256_set1_epi64x(static_cast<int64_t>(UINT64_C(0x8040201008040201)))),
        inverted_(All(set.inverted ? 255 : 0)) {}
  QUERN_INLINE Avx2Bytes Hits(Avx2Bytes text) const {
    const __m256i flipped = (text ^ All(128)).v;
    const __m256i row =
        _mm256_or_si256(_mm256_shuffle_epi8(low_, text.v), _mm256_shuffle_epi8(high_, flipped));
    const __m256i half = _mm256_and_si256(_mm256_srli_epi16(text.v, 4), _mm256_set1_epi8(15));
    const __m256i bit = _mm256_shuffle_epi8(bit_, half);
    return Avx2Bytes{_mm256_cmpeq_epi8(_mm256_and_si256(row, bit), bit)} ^ inverted_;
  }

 private:
  QUERN_INLINE static __m256i Rows(const uint8_t* rows) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows)));
  }

  __m256i low_, high_;
  __m256i bit_;  // the bit of a byte by its upper half
  Avx2Bytes inverted_;
};

}  // namespace

const Kernels kAvx2Kernels = kKernelsOf<Avx2Bytes>;

}  // namespace quern::bytes
#endif

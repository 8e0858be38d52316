// Sixteen bytes in an SSE2 register, local to the file that includes it as the kernels are.
#pragma once

#include <emmintrin.h>

#include "quern/cmem/search_kernel.h"

namespace quern::bytes {
namespace {

struct Sse2Bytes {
  static constexpr size_t kWidth = 16;
  static constexpr uint32_t kAllBits = 0xFFFF;
  using Half = Sse2Bytes;
  using Mapped = MappedByByte<Sse2Bytes>;

  QUERN_INLINE static Sse2Bytes Load(const uint8_t* at) {
    return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))};
  }
  QUERN_INLINE static Sse2Bytes All(int byte) { return {_mm_set1_epi8(static_cast<char>(byte))}; }
  QUERN_INLINE bool Any() const { return Bits() != 0; }
  QUERN_INLINE uint32_t Bits() const { return static_cast<uint32_t>(_mm_movemask_epi8(v)); }
  QUERN_INLINE Sse2Bytes InLowerAscii() const {
    const __m128i capital = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8('A' - 1)),
                                          _mm_cmplt_epi8(v, _mm_set1_epi8('Z' + 1)));
    return {_mm_or_si128(v, _mm_and_si128(capital, _mm_set1_epi8('a' - 'A')))};
  }

  QUERN_INLINE friend Sse2Bytes operator==(Sse2Bytes a, Sse2Bytes b) {
    return {_mm_cmpeq_epi8(a.v, b.v)};
  }
  QUERN_INLINE friend Sse2Bytes operator&(Sse2Bytes a, Sse2Bytes b) {
    return {_mm_and_si128(a.v, b.v)};
  }
  QUERN_INLINE friend Sse2Bytes operator|(Sse2Bytes a, Sse2Bytes b) {
    return {_mm_or_si128(a.v, b.v)};
  }
  QUERN_INLINE friend Sse2Bytes operator^(Sse2Bytes a, Sse2Bytes b) {
    return {_mm_xor_si128(a.v, b.v)};
  }

  __m128i v;
};

}  // namespace
}  // namespace quern::bytes

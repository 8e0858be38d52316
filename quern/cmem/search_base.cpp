// The kernels with what every machine of the target has: 16 bytes at a time on x86, one elsewhere.
#include "quern/cmem/search_kernel.h"

#if defined(__SSE2__)
#include "quern/cmem/search_sse2.h"
#endif

namespace quern::bytes {
#if !defined(__SSE2__)
namespace {

struct SingleByte {
  static constexpr size_t kWidth = 1;
  static constexpr uint32_t kAllBits = 1;
  using Half = SingleByte;
  using Mapped = MappedByByte<SingleByte>;

  static SingleByte Load(const uint8_t* at) { return {*at}; }
  static SingleByte All(int byte) { return {static_cast<uint8_t>(byte)}; }
  bool Any() const { return v != 0; }
  uint32_t Bits() const { return v & 1u; }
  SingleByte InLowerAscii() const { return v >= 'A' && v <= 'Z' ? All(v + ('a' - 'A')) : *this; }

  friend SingleByte operator==(SingleByte a, SingleByte b) { return All(a.v == b.v ? 255 : 0); }
  friend SingleByte operator&(SingleByte a, SingleByte b) { return All(a.v & b.v); }
  friend SingleByte operator|(SingleByte a, SingleByte b) { return All(a.v | b.v); }
  friend SingleByte operator^(SingleByte a, SingleByte b) { return All(a.v ^ b.v); }

  uint8_t v;
};

}  // namespace

const Kernels kBaseKernels = kKernelsOf<SingleByte>;
#else
const Kernels kBaseKernels = kKernelsOf<Sse2Bytes>;
#endif

}  // namespace quern::bytes

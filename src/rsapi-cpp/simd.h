// What the delta engine does in vector registers, in one version for each kind of processor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven::simd {

// Bytes x1 to xn: their sum, and the sum of (n - i + 1) times xi, both modulo 2^32.
struct ByteSums {
  std::uint32_t plain = 0, weighted = 0;
};

// `size` is a multiple of kByteSumStep.
inline constexpr std::size_t kByteSumStep = 64;
using ByteSumsFunction = ByteSums (*)(const std::uint8_t* data, std::size_t size);

// The MD4 of `lanes` messages of `size` bytes each, 16 bytes a message one after the other.
using Md4Function = void (*)(const std::uint8_t* const* messages, std::size_t size,
                             std::uint8_t* digests);

inline constexpr std::size_t kMaxLanes = 16;

struct Kernels {
  const char* name;
  std::size_t lanes;
  Md4Function md4;
  ByteSumsFunction byte_sums;
};

// The kernels that this processor can run, the best first; the last works everywhere and hashes
// one message at a time.
struct KernelList {
  Kernels items[4];
  std::size_t count = 0;
};
const KernelList& Available();

inline const Kernels& Best() {
  static const Kernels& best = Available().items[0];
  return best;
}

// The MD4 of `count` messages of the same size, in lanes where that pays.
void Md4Many(const Kernels& kernels, const std::uint8_t* const* messages, std::size_t count,
             std::size_t size, std::uint8_t* digests);
void Md4One(const std::uint8_t* message, std::size_t size, std::uint8_t* digest);

// One each in simd-sse2.cpp, simd-avx2.cpp and simd-avx512.cpp.
extern const Kernels kSse2Kernels, kAvx2Kernels, kAvx512Kernels;

}  // namespace tolven::simd

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

// A filter of weak sums: each has its word, chosen by the upper bits of a product, and in it three
// bits, chosen by bits of its own.
inline constexpr std::uint32_t kFilterFactor = 0x9E3779B1;
constexpr std::uint32_t FilterWord(std::uint32_t weak_sum, unsigned shift) {
  return (weak_sum * kFilterFactor) >> shift;
}
constexpr std::uint32_t FilterBits(std::uint32_t weak_sum) {
  return std::uint32_t{1} << (weak_sum & 31) | std::uint32_t{1} << (weak_sum >> 16 & 31) |
         std::uint32_t{1} << (weak_sum >> 21 & 31);
}

// Windows that follow each other by one byte.
struct Roll {
  const std::uint8_t* outgoing;  // the byte that each window begins with
  const std::uint8_t* incoming;  // the byte behind each window
  std::uint32_t block;           // length of a window
  std::uint32_t a, b;            // in: sums of the first window, out: of the one behind the last
  const std::uint32_t* filter;
  unsigned filter_shift;
};
inline constexpr std::size_t kMaxRoll = 256, kRollStep = 32;

// `count` windows, a multiple of kRollStep and at most kMaxRoll. `digests` gets the weak sum of
// each, `likely`, which has room for kMaxLanes more than `count`, the numbers of those that the
// filter lets through; returns how many.
using RollFunction = std::size_t (*)(Roll& roll, std::size_t count, std::uint32_t* digests,
                                     std::uint32_t* likely);

struct Kernels {
  const char* name;
  std::size_t lanes;
  Md4Function md4;
  ByteSumsFunction byte_sums;
  RollFunction roll;
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
std::size_t RollPlain(Roll& roll, std::size_t count, std::uint32_t* digests, std::uint32_t* likely);
void Md4One(const std::uint8_t* message, std::size_t size, std::uint8_t* digest);

// Each index is replaced by its word of the table: in plain code, since gathering instructions are
// slower on many processors.
void LoadWords(const std::uint32_t* table, std::uint32_t* indexes, std::size_t count);

// One each in simd-sse2.cpp, simd-avx2.cpp and simd-avx512.cpp.
extern const Kernels kSse2Kernels, kAvx2Kernels, kAvx512Kernels;

}  // namespace tolven::simd

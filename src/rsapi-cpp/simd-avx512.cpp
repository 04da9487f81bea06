// Sixteen lanes. Compiled for AVX-512 F and BW, and called only where they are.
#include <immintrin.h>

#include "rsapi-cpp/md4-lanes.h"
#include "rsapi-cpp/simd.h"

namespace tolven::simd {
namespace {

struct V16 {
  static constexpr std::size_t kLanes = 16;
  __m512i v;

  static V16 Fill(std::uint32_t word) { return {_mm512_set1_epi32(static_cast<int>(word))}; }
  void Store(std::uint32_t* to) const { _mm512_storeu_si512(to, v); }

  // One row of 16 words for each message, transposed: words, pairs and then quarters change places.
  static void Load16(const std::uint8_t* const* messages, std::size_t offset, V16* words) {
    __m512i r[16], t[16];
    for (std::size_t i = 0; i < 16; ++i) r[i] = _mm512_loadu_si512(messages[i] + offset);
    for (std::size_t i = 0; i < 16; i += 2) {
      t[i] = _mm512_unpacklo_epi32(r[i], r[i + 1]);
      t[i + 1] = _mm512_unpackhi_epi32(r[i], r[i + 1]);
    }
    for (std::size_t i = 0; i < 16; i += 4) {
      r[i] = _mm512_unpacklo_epi64(t[i], t[i + 2]);
      r[i + 1] = _mm512_unpackhi_epi64(t[i], t[i + 2]);
      r[i + 2] = _mm512_unpacklo_epi64(t[i + 1], t[i + 3]);
      r[i + 3] = _mm512_unpackhi_epi64(t[i + 1], t[i + 3]);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      const __m512i low0 = _mm512_shuffle_i32x4(r[i], r[i + 4], 0x88);
      const __m512i high0 = _mm512_shuffle_i32x4(r[i], r[i + 4], 0xDD);
      const __m512i low1 = _mm512_shuffle_i32x4(r[i + 8], r[i + 12], 0x88);
      const __m512i high1 = _mm512_shuffle_i32x4(r[i + 8], r[i + 12], 0xDD);
      words[i].v = _mm512_shuffle_i32x4(low0, low1, 0x88);
      words[i + 8].v = _mm512_shuffle_i32x4(low0, low1, 0xDD);
      words[i + 4].v = _mm512_shuffle_i32x4(high0, high1, 0x88);
      words[i + 12].v = _mm512_shuffle_i32x4(high0, high1, 0xDD);
    }
  }
};

inline V16 Add(V16 x, V16 y) { return {_mm512_add_epi32(x.v, y.v)}; }
template <int kShift>
inline V16 Rotate(V16 x) {
  return {_mm512_rol_epi32(x.v, kShift)};
}
inline V16 Choose(V16 x, V16 y, V16 z) { return {_mm512_ternarylogic_epi32(x.v, y.v, z.v, 0xCA)}; }
inline V16 Majority(V16 x, V16 y, V16 z) {
  return {_mm512_ternarylogic_epi32(x.v, y.v, z.v, 0xE8)};
}
inline V16 Parity(V16 x, V16 y, V16 z) { return {_mm512_ternarylogic_epi32(x.v, y.v, z.v, 0x96)}; }

std::uint32_t Sum(__m512i v) {
  std::uint32_t parts[16], sum = 0;
  _mm512_storeu_si512(parts, v);
  for (const std::uint32_t part : parts) sum += part;
  return sum;
}

ByteSums ByteSumsOf(const std::uint8_t* data, std::size_t size) {
  alignas(64) std::int8_t weight_bytes[64];
  for (int i = 0; i < 64; ++i) weight_bytes[i] = static_cast<std::int8_t>(64 - i);
  const __m512i weights = _mm512_load_si512(weight_bytes);
  const __m512i ones = _mm512_set1_epi16(1), zero = _mm512_setzero_si512();
  __m512i plain = zero, before = zero, inside = zero;
  for (std::size_t i = 0; i < size; i += kByteSumStep) {
    const __m512i bytes = _mm512_loadu_si512(data + i);
    before = _mm512_add_epi32(before, plain);
    plain = _mm512_add_epi32(plain, _mm512_sad_epu8(bytes, zero));
    inside =
        _mm512_add_epi32(inside, _mm512_madd_epi16(_mm512_maddubs_epi16(bytes, weights), ones));
  }
  return {Sum(plain), 64 * Sum(before) + Sum(inside)};
}

}  // namespace

const Kernels kAvx512Kernels{"AVX-512", V16::kLanes, Md4Lanes<V16>::Hash, ByteSumsOf};

}  // namespace tolven::simd

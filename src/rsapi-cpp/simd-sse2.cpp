// Four lanes, for every 64-bit x86 processor.
#include <emmintrin.h>

#include "rsapi-cpp/md4-lanes.h"
#include "rsapi-cpp/simd.h"

namespace tolven::simd {
namespace {

inline __m128i LoadAt(const void* data) {
  return _mm_loadu_si128(static_cast<const __m128i*>(data));
}

struct V4 {
  static constexpr std::size_t kLanes = 4;
  __m128i v;

  static V4 Fill(std::uint32_t word) { return {_mm_set1_epi32(static_cast<int>(word))}; }
  void Store(std::uint32_t* to) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), v); }

  // Four words of each message at a time, transposed.
  static void Load16(const std::uint8_t* const* messages, std::size_t offset, V4* words) {
    for (std::size_t i = 0; i < 16; i += 4) {
      const std::size_t at = offset + 4 * i;
      const __m128i r0 = LoadAt(messages[0] + at), r1 = LoadAt(messages[1] + at);
      const __m128i r2 = LoadAt(messages[2] + at), r3 = LoadAt(messages[3] + at);
      const __m128i low0 = _mm_unpacklo_epi32(r0, r1), high0 = _mm_unpackhi_epi32(r0, r1);
      const __m128i low1 = _mm_unpacklo_epi32(r2, r3), high1 = _mm_unpackhi_epi32(r2, r3);
      words[i].v = _mm_unpacklo_epi64(low0, low1);
      words[i + 1].v = _mm_unpackhi_epi64(low0, low1);
      words[i + 2].v = _mm_unpacklo_epi64(high0, high1);
      words[i + 3].v = _mm_unpackhi_epi64(high0, high1);
    }
  }
};

inline V4 Add(V4 x, V4 y) { return {_mm_add_epi32(x.v, y.v)}; }
template <int kShift>
inline V4 Rotate(V4 x) {
  return {_mm_or_si128(_mm_slli_epi32(x.v, kShift), _mm_srli_epi32(x.v, 32 - kShift))};
}
inline V4 Choose(V4 x, V4 y, V4 z) {
  return {_mm_xor_si128(z.v, _mm_and_si128(x.v, _mm_xor_si128(y.v, z.v)))};
}
inline V4 Majority(V4 x, V4 y, V4 z) {
  return {_mm_or_si128(_mm_and_si128(x.v, y.v), _mm_and_si128(z.v, _mm_or_si128(x.v, y.v)))};
}
inline V4 Parity(V4 x, V4 y, V4 z) { return {_mm_xor_si128(x.v, _mm_xor_si128(y.v, z.v))}; }

std::uint32_t Sum(__m128i v) {
  std::uint32_t parts[4];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(parts), v);
  return parts[0] + parts[1] + parts[2] + parts[3];
}

ByteSums ByteSumsOf(const std::uint8_t* data, std::size_t size) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i first = _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9);
  const __m128i second = _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1);
  __m128i plain = zero, before = zero, inside = zero;
  for (std::size_t i = 0; i < size; i += 16) {
    const __m128i bytes = LoadAt(data + i);
    before = _mm_add_epi32(before, plain);
    plain = _mm_add_epi32(plain, _mm_sad_epu8(bytes, zero));
    inside = _mm_add_epi32(inside, _mm_madd_epi16(_mm_unpacklo_epi8(bytes, zero), first));
    inside = _mm_add_epi32(inside, _mm_madd_epi16(_mm_unpackhi_epi8(bytes, zero), second));
  }
  return {Sum(plain), 16 * Sum(before) + Sum(inside)};
}

}  // namespace

const Kernels kSse2Kernels{"SSE2", V4::kLanes, Md4Lanes<V4>::Hash, ByteSumsOf, RollPlain};

}  // namespace tolven::simd

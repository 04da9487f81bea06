// Eight lanes. Compiled for AVX2, and called only where it is.
#include <immintrin.h>

#include "rsapi-cpp/md4-lanes.h"
#include "rsapi-cpp/simd.h"

namespace tolven::simd {
namespace {

inline __m256i LoadAt(const std::uint8_t* data) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data));
}

struct V8 {
  static constexpr std::size_t kLanes = 8;
  __m256i v;

  static V8 Fill(std::uint32_t word) { return {_mm256_set1_epi32(static_cast<int>(word))}; }
  void Store(std::uint32_t* to) const { _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), v); }

  static void Load16(const std::uint8_t* const* messages, std::size_t offset, V8* words) {
    Load8(messages, offset, words);
    Load8(messages, offset + 32, words + 8);
  }

 private:
  // One row of eight words for each message, transposed: words, pairs and then halves change
  // places.
  static void Load8(const std::uint8_t* const* messages, std::size_t offset, V8* words) {
    __m256i r[8], t[8];
    for (std::size_t i = 0; i < 8; ++i) r[i] = LoadAt(messages[i] + offset);
    for (std::size_t i = 0; i < 8; i += 2) {
      t[i] = _mm256_unpacklo_epi32(r[i], r[i + 1]);
      t[i + 1] = _mm256_unpackhi_epi32(r[i], r[i + 1]);
    }
    for (std::size_t i = 0; i < 8; i += 4) {
      r[i] = _mm256_unpacklo_epi64(t[i], t[i + 2]);
      r[i + 1] = _mm256_unpackhi_epi64(t[i], t[i + 2]);
      r[i + 2] = _mm256_unpacklo_epi64(t[i + 1], t[i + 3]);
      r[i + 3] = _mm256_unpackhi_epi64(t[i + 1], t[i + 3]);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      words[i].v = _mm256_permute2x128_si256(r[i], r[i + 4], 0x20);
      words[i + 4].v = _mm256_permute2x128_si256(r[i], r[i + 4], 0x31);
    }
  }
};

inline V8 Add(V8 x, V8 y) { return {_mm256_add_epi32(x.v, y.v)}; }
template <int kShift>
inline V8 Rotate(V8 x) {
  return {_mm256_or_si256(_mm256_slli_epi32(x.v, kShift), _mm256_srli_epi32(x.v, 32 - kShift))};
}
inline V8 Choose(V8 x, V8 y, V8 z) {
  return {_mm256_xor_si256(z.v, _mm256_and_si256(x.v, _mm256_xor_si256(y.v, z.v)))};
}
inline V8 Majority(V8 x, V8 y, V8 z) {
  return {_mm256_or_si256(_mm256_and_si256(x.v, y.v),
                          _mm256_and_si256(z.v, _mm256_or_si256(x.v, y.v)))};
}
inline V8 Parity(V8 x, V8 y, V8 z) { return {_mm256_xor_si256(x.v, _mm256_xor_si256(y.v, z.v))}; }

std::uint32_t Sum(__m256i v) {
  std::uint32_t parts[8], sum = 0;
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(parts), v);
  for (const std::uint32_t part : parts) sum += part;
  return sum;
}

ByteSums ByteSumsOf(const std::uint8_t* data, std::size_t size) {
  std::uint8_t weight_bytes[32];
  for (std::size_t i = 0; i < 32; ++i) weight_bytes[i] = static_cast<std::uint8_t>(32 - i);
  const __m256i weights = LoadAt(weight_bytes);
  const __m256i ones = _mm256_set1_epi16(1), zero = _mm256_setzero_si256();
  __m256i plain = zero, before = zero, inside = zero;
  for (std::size_t i = 0; i < size; i += 32) {
    const __m256i bytes = LoadAt(data + i);
    before = _mm256_add_epi32(before, plain);
    plain = _mm256_add_epi32(plain, _mm256_sad_epu8(bytes, zero));
    inside =
        _mm256_add_epi32(inside, _mm256_madd_epi16(_mm256_maddubs_epi16(bytes, weights), ones));
  }
  return {Sum(plain), 32 * Sum(before) + Sum(inside)};
}

}  // namespace

const Kernels kAvx2Kernels{"AVX2", V8::kLanes, Md4Lanes<V8>::Hash, ByteSumsOf};

}  // namespace tolven::simd

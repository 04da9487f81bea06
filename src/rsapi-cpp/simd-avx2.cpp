// Eight lanes. Compiled for AVX2, and called only where it is.
#include <immintrin.h>

#include "rsapi-cpp/md4-lanes.h"
#include "rsapi-cpp/simd.h"

namespace tolven::simd {
namespace {

inline __m256i LoadAt(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void StoreAt(void* to, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(to), v); }

struct V8 {
  static constexpr std::size_t kLanes = 8;
  __m256i v;

  static V8 Fill(std::uint32_t word) { return {_mm256_set1_epi32(static_cast<int>(word))}; }
  void Store(std::uint32_t* to) const { StoreAt(to, v); }

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
  StoreAt(parts, v);
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

// Lane i becomes the sum of lanes 0 to i.
__m256i RunningSum(__m256i v) {
  v = _mm256_add_epi32(v, _mm256_slli_si256(v, 4));
  v = _mm256_add_epi32(v, _mm256_slli_si256(v, 8));
  // The low half's whole sum goes to every lane of the high half.
  const __m256i sums = _mm256_shuffle_epi32(v, 0xFF);
  return _mm256_add_epi32(v, _mm256_permute2x128_si256(sums, sums, 0x08));
}

__m256i Bytes(const std::uint8_t* from) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}

// The numbers of the windows whose bits are all set in their words.
std::size_t Pick(const std::uint32_t* digests, const std::uint32_t* words, std::size_t count,
                 std::uint32_t* likely) {
  const __m256i five = _mm256_set1_epi32(31);
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; i += 8) {
    const __m256i digest = LoadAt(digests + i), word = LoadAt(words + i);
    // Each bit goes to the top, where the mask is taken from.
    const auto bit = [&](__m256i place) {
      return _mm256_sllv_epi32(word, _mm256_andnot_si256(place, five));
    };
    const __m256i all = _mm256_and_si256(
        bit(digest),
        _mm256_and_si256(bit(_mm256_srli_epi32(digest, 16)), bit(_mm256_srli_epi32(digest, 21))));
    auto known = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(all)));
    for (; known != 0; known &= known - 1) {
      likely[found++] =
          static_cast<std::uint32_t>(i) + static_cast<std::uint32_t>(__builtin_ctz(known));
    }
  }
  return found;
}

std::size_t RollOver(Roll& roll, std::size_t count, std::uint32_t* digests, std::uint32_t* likely) {
  const __m256i last = _mm256_set1_epi32(7), offset = _mm256_set1_epi32(31);
  // Only 16 bits of `b` count, and so of each product.
  const __m256i block = _mm256_set1_epi32(static_cast<int>(roll.block & 0xFFFF));
  const __m256i low = _mm256_set1_epi32(0xFFFF);
  const __m256i factor = _mm256_set1_epi32(static_cast<int>(kFilterFactor));
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(roll.filter_shift));
  __m256i a = _mm256_set1_epi32(static_cast<int>(roll.a));
  __m256i b = _mm256_set1_epi32(static_cast<int>(roll.b));
  std::uint32_t words[kMaxRoll];
  for (std::size_t i = 0; i < count; i += 8) {
    const __m256i out = Bytes(roll.outgoing + i);
    const __m256i change = _mm256_sub_epi32(Bytes(roll.incoming + i), out);
    const __m256i a_next = _mm256_add_epi32(a, RunningSum(change));
    const __m256i loss = _mm256_madd_epi16(_mm256_add_epi32(out, offset), block);
    const __m256i gain = _mm256_sub_epi32(a_next, loss);
    const __m256i b_next = _mm256_add_epi32(b, RunningSum(gain));
    const __m256i digest = _mm256_or_si256(_mm256_slli_epi32(_mm256_sub_epi32(b_next, gain), 16),
                                           _mm256_and_si256(_mm256_sub_epi32(a_next, change), low));
    StoreAt(digests + i, digest);
    StoreAt(words + i, _mm256_srl_epi32(_mm256_mullo_epi32(digest, factor), shift));
    a = _mm256_permutevar8x32_epi32(a_next, last);
    b = _mm256_permutevar8x32_epi32(b_next, last);
  }
  roll.a = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(a)));
  roll.b = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(b)));
  LoadWords(roll.filter, words, count);
  return Pick(digests, words, count, likely);
}

}  // namespace

const Kernels kAvx2Kernels{"AVX2", V8::kLanes, Md4Lanes<V8>::Hash, ByteSumsOf, RollOver};

}  // namespace tolven::simd

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

// Where lanes of 16 bits come from when all move up by so many; those that nothing moves into are
// cleared by the mask.
struct Moves {
  __m512i from[5];
};
constexpr __mmask32 kMoveMasks[5] = {~0u << 1, ~0u << 2, ~0u << 4, ~0u << 8, ~0u << 16};

Moves MakeMoves() {
  Moves moves;
  for (int step = 0; step < 5; ++step) {
    std::uint16_t from[32];
    for (int lane = 0; lane < 32; ++lane) {
      from[lane] = static_cast<std::uint16_t>((lane - (1 << step)) & 31);
    }
    moves.from[step] = _mm512_loadu_si512(from);
  }
  return moves;
}

// Lane i becomes the sum of lanes 0 to i, modulo 2^16.
__m512i RunningSum(const Moves& moves, __m512i v) {
  for (int step = 0; step < 5; ++step) {
    v = _mm512_add_epi16(v, _mm512_maskz_permutexvar_epi16(kMoveMasks[step], moves.from[step], v));
  }
  return v;
}

__m512i Bytes(const std::uint8_t* from) {
  return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
}

// The numbers of the windows whose bits are all set in their words.
std::size_t Pick(const std::uint32_t* digests, const std::uint32_t* words, std::size_t count,
                 std::uint32_t* likely) {
  const __m512i one = _mm512_set1_epi32(1), five = _mm512_set1_epi32(31);
  __m512i number = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; i += 16) {
    const __m512i digest = _mm512_loadu_si512(digests + i);
    const __m512i word = _mm512_loadu_si512(words + i);
    const auto bit = [&](__m512i place) {
      return _mm512_sllv_epi32(one, _mm512_and_si512(place, five));
    };
    const __m512i bits = _mm512_or_si512(
        bit(digest),
        _mm512_or_si512(bit(_mm512_srli_epi32(digest, 16)), bit(_mm512_srli_epi32(digest, 21))));
    const __mmask16 known = _mm512_cmpeq_epi32_mask(_mm512_and_si512(word, bits), bits);
    _mm512_storeu_si512(likely + found, _mm512_maskz_compress_epi32(known, number));
    found += static_cast<std::size_t>(__builtin_popcount(known));
    number = _mm512_add_epi32(number, _mm512_set1_epi32(16));
  }
  return found;
}

// 32 windows at a time: of both sums only 16 bits count.
std::size_t RollOver(Roll& roll, std::size_t count, std::uint32_t* digests, std::uint32_t* likely) {
  const Moves moves = MakeMoves();
  const __m512i last = _mm512_set1_epi16(31), offset = _mm512_set1_epi16(31);
  const __m512i block = _mm512_set1_epi16(static_cast<short>(roll.block));
  const __m512i factor = _mm512_set1_epi32(static_cast<int>(kFilterFactor));
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(roll.filter_shift));
  // The sums of 32 windows, paired within each quarter, back in their order.
  const __m512i first_half =
      _mm512_setr_epi32(0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23);
  const __m512i second_half =
      _mm512_setr_epi32(8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31);
  __m512i a = _mm512_set1_epi16(static_cast<short>(roll.a));
  __m512i b = _mm512_set1_epi16(static_cast<short>(roll.b));
  std::uint32_t words[kMaxRoll];
  for (std::size_t i = 0; i < count; i += 32) {
    const __m512i out = Bytes(roll.outgoing + i);
    const __m512i change = _mm512_sub_epi16(Bytes(roll.incoming + i), out);
    const __m512i a_next = _mm512_add_epi16(a, RunningSum(moves, change));
    const __m512i loss = _mm512_mullo_epi16(_mm512_add_epi16(out, offset), block);
    const __m512i gain = _mm512_sub_epi16(a_next, loss);
    const __m512i b_next = _mm512_add_epi16(b, RunningSum(moves, gain));
    const __m512i a_now = _mm512_sub_epi16(a_next, change);
    const __m512i b_now = _mm512_sub_epi16(b_next, gain);
    const __m512i low = _mm512_unpacklo_epi16(a_now, b_now);
    const __m512i high = _mm512_unpackhi_epi16(a_now, b_now);
    const __m512i sums[2] = {_mm512_permutex2var_epi32(low, first_half, high),
                             _mm512_permutex2var_epi32(low, second_half, high)};
    for (std::size_t half = 0; half < 2; ++half) {
      const std::size_t at = i + 16 * half;
      _mm512_storeu_si512(digests + at, sums[half]);
      _mm512_storeu_si512(words + at,
                          _mm512_srl_epi32(_mm512_mullo_epi32(sums[half], factor), shift));
    }
    a = _mm512_permutexvar_epi16(last, a_next);
    b = _mm512_permutexvar_epi16(last, b_next);
  }
  roll.a = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm512_castsi512_si128(a))) & 0xFFFF;
  roll.b = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm512_castsi512_si128(b))) & 0xFFFF;
  LoadWords(roll.filter, words, count);
  return Pick(digests, words, count, likely);
}

}  // namespace

const Kernels kAvx512Kernels{"AVX-512", V16::kLanes, Md4Lanes<V16>::Hash, ByteSumsOf, RollOver};

}  // namespace tolven::simd

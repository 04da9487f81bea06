// MD4 of several messages at once: lane k of each vector holds a word of message k. The type `V`
// is a vector of 32-bit words with what the rounds need:
//   V::kLanes, V::Fill(word), V::Load16(messages, offset, words) which reads 64 bytes from each
//   message and gives word i of all of them in words[i], V::Store(to) for kLanes words,
//   Add(x, y), Rotate<s>(x), Choose(x, y, z), Majority(x, y, z), Parity(x, y, z).
// Included by the files that are compiled for one processor each: everything here has internal
// linkage, so that no version can take another's place.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven::simd {
namespace {

constexpr std::uint32_t kMd4Start[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

template <class V>
struct Md4Lanes {
  static constexpr std::size_t kBlock = 64;

  static void Hash(const std::uint8_t* const* messages, std::size_t size, std::uint8_t* digests) {
    V state[4] = {V::Fill(kMd4Start[0]), V::Fill(kMd4Start[1]), V::Fill(kMd4Start[2]),
                  V::Fill(kMd4Start[3])};
    V words[16];
    const std::size_t whole = size - size % kBlock;
    for (std::size_t offset = 0; offset < whole; offset += kBlock) {
      V::Load16(messages, offset, words);
      Rounds(state, words);
    }
    HashRest(messages, whole, size, state, words);

    std::uint32_t out[4][V::kLanes];
    for (std::size_t i = 0; i < 4; ++i) state[i].Store(out[i]);
    for (std::size_t lane = 0; lane < V::kLanes; ++lane) {
      for (std::size_t i = 0; i < 4; ++i) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
          *digests++ = static_cast<std::uint8_t>(out[i][lane] >> shift);
        }
      }
    }
  }

 private:
  // The last bytes, the mark behind them and the length in bits.
  static void HashRest(const std::uint8_t* const* messages, std::size_t whole, std::size_t size,
                       V* state, V* words) {
    const std::size_t rest = size - whole;
    const std::size_t padded = rest < kBlock - 8 ? kBlock : 2 * kBlock;
    std::uint8_t blocks[V::kLanes][2 * kBlock];
    const std::uint8_t* pointers[V::kLanes];
    for (std::size_t lane = 0; lane < V::kLanes; ++lane) {
      std::uint8_t* const block = blocks[lane];
      pointers[lane] = block;
      for (std::size_t i = 0; i < padded; ++i) block[i] = 0;
      for (std::size_t i = 0; i < rest; ++i) block[i] = messages[lane][whole + i];
      block[rest] = 0x80;
      const std::uint64_t bits = std::uint64_t{size} * 8;
      for (std::size_t i = 0; i < 8; ++i) {
        block[padded - 8 + i] = static_cast<std::uint8_t>(bits >> (8 * i));
      }
    }
    for (std::size_t offset = 0; offset < padded; offset += kBlock) {
      V::Load16(pointers, offset, words);
      Rounds(state, words);
    }
  }

  template <int kShift>
  static void Step(V& a, V mixed, V word_and_constant) {
    a = Rotate<kShift>(Add(Add(a, word_and_constant), mixed));
  }

  static inline __attribute__((always_inline)) void Rounds(V* state, const V* w) {
    V a = state[0], b = state[1], c = state[2], d = state[3];
    for (std::size_t i = 0; i < 16; i += 4) {
      Step<3>(a, Choose(b, c, d), w[i]);
      Step<7>(d, Choose(a, b, c), w[i + 1]);
      Step<11>(c, Choose(d, a, b), w[i + 2]);
      Step<19>(b, Choose(c, d, a), w[i + 3]);
    }
    const V second = V::Fill(0x5A827999);
    for (std::size_t i = 0; i < 4; ++i) {
      Step<3>(a, Majority(b, c, d), Add(w[i], second));
      Step<5>(d, Majority(a, b, c), Add(w[i + 4], second));
      Step<9>(c, Majority(d, a, b), Add(w[i + 8], second));
      Step<13>(b, Majority(c, d, a), Add(w[i + 12], second));
    }
    const V third = V::Fill(0x6ED9EBA1);
    constexpr std::size_t kOrder[4] = {0, 2, 1, 3};
    for (const std::size_t i : kOrder) {
      Step<3>(a, Parity(b, c, d), Add(w[i], third));
      Step<9>(d, Parity(a, b, c), Add(w[i + 8], third));
      Step<11>(c, Parity(d, a, b), Add(w[i + 4], third));
      Step<15>(b, Parity(c, d, a), Add(w[i + 12], third));
    }
    state[0] = Add(state[0], a);
    state[1] = Add(state[1], b);
    state[2] = Add(state[2], c);
    state[3] = Add(state[3], d);
  }
};

}  // namespace
}  // namespace tolven::simd

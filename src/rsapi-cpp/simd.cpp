#include "rsapi-cpp/simd.h"

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md4.h>

#include <algorithm>

namespace tolven::simd {

namespace {

void Md4Plain(const std::uint8_t* const* messages, std::size_t size, std::uint8_t* digests) {
  Md4One(messages[0], size, digests);
}

ByteSums ByteSumsPlain(const std::uint8_t* data, std::size_t size) {
  ByteSums sums;
  for (std::size_t i = 0; i < size; ++i) {
    sums.plain += data[i];
    sums.weighted += sums.plain;
  }
  return sums;
}

KernelList Detect() {
  KernelList list;
  const auto add = [&list](const Kernels& kernels) { list.items[list.count++] = kernels; };
#ifdef TOLVEN_X86_KERNELS
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")) {
    add(kAvx512Kernels);
  }
  if (__builtin_cpu_supports("avx2")) add(kAvx2Kernels);
  if (__builtin_cpu_supports("sse2")) add(kSse2Kernels);
#endif
  add({"plain", 1, Md4Plain, ByteSumsPlain, RollPlain});
  return list;
}

}  // namespace

const KernelList& Available() {
  static const KernelList list = Detect();
  return list;
}

std::size_t RollPlain(Roll& roll, std::size_t count, std::uint32_t* digests,
                      std::uint32_t* likely) {
  constexpr std::uint32_t kCharOffset = 31;
  std::uint32_t a = roll.a, b = roll.b;
  for (std::size_t i = 0; i < count; ++i) {
    digests[i] = (b << 16) | (a & 0xFFFF);
    const std::uint32_t out = roll.outgoing[i];
    a += roll.incoming[i] - out;
    b += a - roll.block * (out + kCharOffset);
  }
  roll.a = a;
  roll.b = b;
  // Without a jump on what the filter says, so that its lookups overlap.
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t bits = FilterBits(digests[i]);
    const std::uint32_t word = roll.filter[FilterWord(digests[i], roll.filter_shift)];
    likely[found] = static_cast<std::uint32_t>(i);
    found += (word & bits) == bits ? 1 : 0;
  }
  return found;
}

void LoadWords(const std::uint32_t* table, std::uint32_t* indexes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) indexes[i] = table[indexes[i]];
}

void Md4One(const std::uint8_t* message, std::size_t size, std::uint8_t* digest) {
  MD4(message, size, digest);
}

void Md4Many(const Kernels& kernels, const std::uint8_t* const* messages, std::size_t count,
             std::size_t size, std::uint8_t* digests) {
  constexpr std::size_t kDigest = 16;
  while (count >= kernels.lanes) {
    kernels.md4(messages, size, digests);
    messages += kernels.lanes;
    digests += kernels.lanes * kDigest;
    count -= kernels.lanes;
  }
  if (count == 0) return;
  if (count == 1) return Md4One(messages[0], size, digests);
  // Lanes without a message of their own repeat the first one.
  const std::uint8_t* padded[kMaxLanes];
  std::uint8_t results[kMaxLanes * kDigest];
  std::fill(std::copy_n(messages, count, padded), padded + kernels.lanes, messages[0]);
  kernels.md4(padded, size, results);
  std::copy_n(results, count * kDigest, digests);
}

}  // namespace tolven::simd

// The vector kernels beside plain arithmetic, each that this processor has.

#include <gtest/gtest.h>

#include "rsapi-cpp/rs-rolling-checksum.h"
#include "rsapi-cpp/simd.h"
#include "workbench.h"

namespace tolven::test {
namespace {

const std::uint8_t* Bytes(const std::string& text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

TEST(SumsTest, EveryKernelAgreesWithThePlainOne) {
  Random random(5);
  for (std::size_t k = 0; k < simd::Available().count; ++k) {
    const simd::Kernels& kernels = simd::Available().items[k];
    SCOPED_TRACE(kernels.name);
    for (const std::size_t size : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 700u, 2048u}) {
      for (std::size_t count = 0; count <= 2 * simd::kMaxLanes + 1; ++count) {
        std::vector<std::string> texts;
        std::vector<const std::uint8_t*> messages;
        std::string expected, sums(16 * count, '\0');
        for (std::size_t i = 0; i < count; ++i) texts.push_back(RandomText(random, size));
        for (const std::string& text : texts) {
          std::uint8_t sum[16];
          messages.push_back(Bytes(text));
          simd::Md4One(Bytes(text), size, sum);
          expected.append(reinterpret_cast<char*>(sum), 16);
        }
        simd::Md4Many(kernels, messages.data(), count, size,
                      reinterpret_cast<std::uint8_t*>(sums.data()));
        ASSERT_EQ(sums, expected) << size << " bytes, " << count << " messages";
      }
    }
    for (const std::string& text :
         {RandomText(random, 64), RandomText(random, 6400), std::string(1 << 20, '\xFF')}) {
      std::uint32_t plain = 0, weighted = 0;
      for (const char c : text) weighted += plain += static_cast<std::uint8_t>(c);
      const simd::ByteSums sums = kernels.byte_sums(Bytes(text), text.size());
      EXPECT_EQ(sums.plain, plain);
      EXPECT_EQ(sums.weighted, weighted);
    }
    const std::string text = RandomText(random, 1000);
    const std::vector<std::uint32_t> filter = {0x80000001, 0, 0x12345678, 0xFFFFFFFF,
                                               0xFF,       1, 0x7FFFFFFE, 3};
    constexpr std::size_t kCount = simd::kMaxRoll - simd::kRollStep;
    for (const std::uint32_t block : {3u, 300u, 0x28001u}) {
      simd::Roll ours{Bytes(text), Bytes(text) + 500, block, 77, 0xFFFE, filter.data(), 29};
      simd::Roll plain = ours;
      std::vector<std::uint32_t> got[2], likely[2];
      for (int i : {0, 1}) {
        got[i].resize(kCount);
        likely[i].resize(kCount + simd::kMaxLanes);
        likely[i].resize((i == 0 ? kernels.roll : simd::RollPlain)(
            i == 0 ? ours : plain, kCount, got[i].data(), likely[i].data()));
      }
      EXPECT_EQ(got[0], got[1]);
      EXPECT_EQ(likely[0], likely[1]);
      EXPECT_EQ(ours.a & 0xFFFF, plain.a & 0xFFFF);
      EXPECT_EQ(ours.b & 0xFFFF, plain.b & 0xFFFF);
    }
  }
}

TEST(SumsTest, TheWeakSumRollsAsItIsDefined) {
  Random random(6);
  const std::string text = RandomText(random, 1000);
  RSRollingChecksum rolling;
  const auto defined = [&](std::size_t from, std::size_t to) {
    std::uint32_t a = 0, b = 0;
    for (std::size_t i = from; i < to; ++i) {
      a += Bytes(text)[i] + 31u;
      b += static_cast<std::uint32_t>(to - i) * (Bytes(text)[i] + 31u);
    }
    return (b & 0xFFFF) << 16 | (a & 0xFFFF);
  };
  rolling.update(Bytes(text), 100);
  rolling.update(Bytes(text) + 100, 230);
  EXPECT_EQ(rolling.digest(), defined(0, 330));
  for (std::size_t i = 0; i < 600; ++i) {
    rolling.rotate(Bytes(text)[i], Bytes(text)[i + 330]);
    ASSERT_EQ(rolling.digest(), defined(i + 1, i + 331));
  }
  rolling.roll_out(Bytes(text)[600]);
  EXPECT_EQ(rolling.digest(), defined(601, 930));
  EXPECT_EQ(rolling.size(), 329u);
}

}  // namespace
}  // namespace tolven::test

#include "rsapi-cpp/rs-rolling-checksum.h"

#include "rsapi-cpp/simd.h"

namespace tolven {

void RSRollingChecksum::update(const std::uint8_t* data, std::size_t size) {
  // Plain sums of whole pieces come from vector code; the offset of each byte is added by formula.
  const std::size_t bulk = size - size % simd::kByteSumStep;
  if (bulk > 0) {
    const simd::ByteSums sums = simd::Best().byte_sums(data, bulk);
    const auto n = static_cast<std::uint32_t>(bulk);
    // n (n + 1) / 2, of which only the low 16 bits reach the digest.
    const auto weights = static_cast<std::uint32_t>(std::uint64_t{n} * (std::uint64_t{n} + 1) / 2);
    b_ += n * a_ + sums.weighted + CHAR_OFFSET * weights;
    a_ += sums.plain + CHAR_OFFSET * n;
    count_ += bulk;
  }
  for (std::size_t i = bulk; i < size; ++i) roll_in(data[i]);
}

}  // namespace tolven

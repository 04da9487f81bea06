// The weak sum of a block, which moves on by one byte in constant time. Over bytes x1 to xn, `a` is
// the sum of (xi + 31) and `b` the sum of (n - i + 1) times (xi + 31); the digest has the low 16
// bits of `a` in its low half and those of `b` in its high half.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven {

class RSRollingChecksum {
 public:
  static constexpr std::uint32_t CHAR_OFFSET = 31;

  void clear() { *this = RSRollingChecksum(); }
  // One byte more at the end of the window.
  void roll_in(std::uint8_t in) {
    a_ += in + CHAR_OFFSET;
    b_ += a_;
    ++count_;
  }
  // The first byte of the window goes.
  void roll_out(std::uint8_t out) {
    a_ -= out + CHAR_OFFSET;
    b_ -= static_cast<std::uint32_t>(count_) * (out + CHAR_OFFSET);
    --count_;
  }
  // Both at once.
  void rotate(std::uint8_t out, std::uint8_t in) {
    a_ += static_cast<std::uint32_t>(in) - out;
    b_ += a_ - static_cast<std::uint32_t>(count_) * (out + CHAR_OFFSET);
  }
  // Many bytes more at the end.
  void update(const std::uint8_t* data, std::size_t size);

  std::size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  std::uint32_t digest() const { return (b_ << 16) | (a_ & 0xFFFF); }

  static std::uint32_t of(const std::uint8_t* data, std::size_t size) {
    RSRollingChecksum sum;
    sum.update(data, size);
    return sum.digest();
  }

 private:
  std::size_t count_ = 0;
  std::uint32_t a_ = 0, b_ = 0;
};

}  // namespace tolven

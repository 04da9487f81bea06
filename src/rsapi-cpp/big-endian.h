// Integers of the signature and delta formats.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven {

inline std::uint32_t LoadBig32(const std::uint8_t* from) {
  return std::uint32_t{from[0]} << 24 | std::uint32_t{from[1]} << 16 | std::uint32_t{from[2]} << 8 |
         from[3];
}

// `size` is at most 8.
inline std::uint64_t LoadBig(const std::uint8_t* from, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | from[i];
  return value;
}

inline void StoreBig(std::uint8_t* to, std::uint64_t value, std::size_t size) {
  for (std::size_t i = size; i-- > 0; value >>= 8) to[i] = static_cast<std::uint8_t>(value);
}

}  // namespace tolven

// The drives that a Windows broadcast is about.
#pragma once

#include <cstdint>

namespace tolven::platform {

// The letter of the lowest bit, "A" for bit 0; "[", which no drive has, when no bit up to "Z" is
// set.
constexpr char LetterOfMask(std::uint32_t mask) {
  char letter = 'A';
  while (letter <= 'Z' && (mask & 1) == 0) {
    mask >>= 1;
    ++letter;
  }
  return letter;
}

}  // namespace tolven::platform

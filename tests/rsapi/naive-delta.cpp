#define OPENSSL_SUPPRESS_DEPRECATED
#include "naive-delta.h"

#include <openssl/md4.h>

#include <algorithm>
#include <vector>

namespace tolven::test {

namespace {

constexpr std::size_t kPiece = 0x100000;

// Weak and strong sum of a block.
std::string Sums(const std::string& text, std::size_t hash) {
  std::uint32_t a = 0, b = 0;
  for (const char c : text) b += a += static_cast<std::uint8_t>(c) + 31u;
  unsigned char strong[16];
  MD4(reinterpret_cast<const unsigned char*>(text.data()), text.size(), strong);
  return std::to_string((b & 0xFFFF) << 16 | (a & 0xFFFF)) + ":" +
         std::string(reinterpret_cast<char*>(strong), hash);
}

std::string Big(std::uint64_t value, int& code) {
  code = value < 256 ? 0 : value < 65536 ? 1 : 2;
  std::string text;
  for (int shift = 8 * (1 << code) - 8; shift >= 0; shift -= 8) {
    text += static_cast<char>(value >> shift);
  }
  return text;
}

std::string Literal(const std::string& data) {
  if (data.size() <= 64) return data.empty() ? "" : static_cast<char>(data.size()) + data;
  int code = 0;
  const std::string length = Big(data.size(), code);
  return static_cast<char>(0x41 + code) + length + data;
}

std::string Copy(std::size_t offset, std::size_t length) {
  if (length == 0) return "";
  int first = 0, second = 0;
  const std::string parameters = Big(offset, first) + Big(length, second);
  return static_cast<char>(0x45 + 4 * first + second) + parameters;
}

}  // namespace

std::string NaiveDelta(const std::string& basis, const std::string& content, std::size_t block,
                       std::size_t hash) {
  std::vector<std::string> sums;
  for (std::size_t i = 0; i < basis.size(); i += block) {
    sums.push_back(Sums(basis.substr(i, block), hash));
  }
  std::string out("rs\x02\x36"), window;
  for (std::size_t read = 0; read < content.size(); read += kPiece) {
    window += content.substr(read, kPiece);
    std::size_t at = 0, literal = 0, start = 0, count = 0;
    while (at + block <= window.size()) {
      const std::string sum = Sums(window.substr(at, block), hash);
      if (count > 0 && start + count < sums.size() && sums[start + count] == sum) {
        ++count;
        literal = at += block;
        continue;
      }
      out += Copy(start * block, count * block);
      count = 0;
      const auto found = std::find(sums.begin(), sums.end(), sum);
      if (found == sums.end()) {
        ++at;
        continue;
      }
      out += Literal(window.substr(literal, at - literal));
      start = static_cast<std::size_t>(found - sums.begin());
      count = 1;
      literal = at += block;
    }
    out += Copy(start * block, count * block) + Literal(window.substr(literal, at - literal));
    window.erase(0, at);
  }
  return out + Literal(window) + '\0';
}

}  // namespace tolven::test

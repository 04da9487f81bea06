#include "server/store/token.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>

namespace tolven::server {

namespace {

template <std::size_t Size>
std::string Hex(const std::array<unsigned char, Size>& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

std::string NewToken() {
  std::array<unsigned char, 32> bytes{};
  return RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1 ? Hex(bytes) : "";
}

std::string HashOfToken(const std::string& token) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
  SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), hash.data());
  return Hex(hash);
}

bool EqualInConstantTime(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace tolven::server

#include "server/store/sha256.h"

#include <array>

namespace tolven::server {

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
  if (context_ != nullptr && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
    context_.reset();
  }
}

void Sha256::Update(const void* data, std::size_t size) {
  if (context_ != nullptr && EVP_DigestUpdate(context_.get(), data, size) != 1) context_.reset();
}

std::string Sha256::Finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned count = 0;
  std::string text;
  if (context_ == nullptr || EVP_DigestFinal_ex(context_.get(), bytes.data(), &count) != 1) {
    return text;
  }
  for (unsigned i = 0; i < count; ++i) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
  }
  return text;
}

}  // namespace tolven::server

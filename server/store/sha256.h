// A SHA-256 that is made piece by piece.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tolven::server {

class Sha256 {
 public:
  Sha256();

  void Update(const void* data, std::size_t size);
  // 64 lowercase hexadecimal digits; empty when the library failed on the way. Once.
  std::string Finish();

 private:
  struct Deleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };

  std::unique_ptr<EVP_MD_CTX, Deleter> context_;  // null after a failure
};

}  // namespace tolven::server

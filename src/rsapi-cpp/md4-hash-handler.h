// The MD4 of all bytes of a pass.
#pragma once

#include <openssl/md4.h>

#include <cstdint>

#include "rsapi-cpp/handler.h"
#include "ustring/ustring.h"

namespace tolven {

class MD4HashHandler : public Handler {
 public:
  // end() stores the text of the sum in `result` unless that is null.
  explicit MD4HashHandler(ustring* result) : result_string_(result) {}

  int begin() override;
  int update(const void* data, std::size_t size) override;
  int wait() override { return 0; }
  int end() override;

  // 32 lowercase hexadecimal digits; after end().
  ustring getResult() const;

 private:
  ustring* const result_string_;
  MD4_CTX mdfour_{};
  std::uint8_t result_[MD4_DIGEST_LENGTH] = {};
};

}  // namespace tolven

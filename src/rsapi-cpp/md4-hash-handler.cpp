#define OPENSSL_SUPPRESS_DEPRECATED
#include "rsapi-cpp/md4-hash-handler.h"

namespace tolven {

int MD4HashHandler::begin() { return MD4_Init(&mdfour_) == 1 ? 0 : -1; }

int MD4HashHandler::update(const void* data, std::size_t size) {
  return MD4_Update(&mdfour_, data, size) == 1 ? 0 : -1;
}

int MD4HashHandler::end() {
  if (MD4_Final(result_, &mdfour_) != 1) return -1;
  if (result_string_ != nullptr) *result_string_ = getResult();
  return 0;
}

ustring MD4HashHandler::getResult() const {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : result_) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return ustring(text);
}

}  // namespace tolven

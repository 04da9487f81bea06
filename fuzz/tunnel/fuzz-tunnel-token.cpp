// Any bytes as a token, and as base64; and any target through a token and back.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "libzenttunnelclient/tunnel-crypto.h"

namespace {

void Require(bool held) {
  if (!held) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolven;
  const int length = static_cast<int>(size);
  std::vector<unsigned char> out(size + 1),
      token(static_cast<std::size_t>(ZENTCryptoEncryptLength(length)));
  const int held = ZENTCryptoDecrypt(out.data(), length, data, length);
  Require(held >= 0 && (held == 0 || held <= length - 27));
  Require(ZENTCryptoBase64Decode(out.data(), length, data, length) <= length);

  const int made = ZENTCryptoEncrypt(token.data(), static_cast<int>(token.size()), data, length);
  Require(made == 26 + (length / 8 + 1) * 8);
  Require(ZENTCryptoDecrypt(out.data(), length, token.data(), made) == length);
  Require(std::equal(data, data + size, out.begin()));
  std::vector<unsigned char> text(token.size() * 2);
  const int coded =
      ZENTCryptoBase64Encode(text.data(), static_cast<int>(text.size()), token.data(), made);
  std::vector<unsigned char> again(text.size());
  Require(ZENTCryptoBase64Decode(again.data(), static_cast<int>(again.size()), text.data(),
                                 coded) == made);
  Require(std::equal(token.begin(), token.begin() + made, again.begin()));
  return 0;
}

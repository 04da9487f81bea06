// The low-level cipher is used on purpose: the EVP form needs a provider that is not always there.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>

#include <array>
#include <utility>
#include <vector>

#include "lib/utility.h"

namespace tolven {
namespace {

// Shared with every peer.
constexpr std::array<unsigned char, 4> kKey = {0x5A, 0x65, 0x6E, 0x74};

void Crypt(const unsigned char* in, unsigned char* out, std::size_t size, int direction) {
  BF_KEY key;
  BF_set_key(&key, static_cast<int>(kKey.size()), kKey.data());
  std::array<unsigned char, 8> vector{};
  int position = 0;
  BF_cfb64_encrypt(in, out, static_cast<long>(size), &key, vector.data(), &position, direction);
}

}  // namespace

void SyncPassEnc(const ustring& in, ustring& out) {
  // `out` may be the same object as `in`, so it is written last.
  ustring result;
  if (!in.empty()) {
    std::vector<unsigned char> coded(in.size());
    Crypt(reinterpret_cast<const unsigned char*>(in.c_str_utf8()), coded.data(), coded.size(),
          BF_ENCRYPT);
    const auto base64 = SzBase64EncBuffer(coded.data(), coded.size());
    result = base64 == nullptr ? in : ustring(base64.get());
  }
  out = std::move(result);
}

void SyncPassDec(const ustring& in, ustring& out) {
  std::vector<unsigned char> coded(in.size() + 1);
  std::size_t size = coded.size();
  ustring result;
  if (EncBase64Dec(in.c_str_utf8(), in.size(), coded.data(), size) == 1) {
    std::vector<unsigned char> plain(size + 1);
    Crypt(coded.data(), plain.data(), size, BF_DECRYPT);
    result = reinterpret_cast<const char*>(plain.data());
  }
  out = std::move(result);
}

}  // namespace tolven

// The low-level cipher is used on purpose: the EVP form needs a provider that is not always there.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>

#include <array>
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
  const ustring text = in;  // `out` may be the same object
  out.clear();
  if (text.empty()) return;
  std::vector<unsigned char> coded(text.size());
  Crypt(reinterpret_cast<const unsigned char*>(text.c_str_utf8()), coded.data(), coded.size(),
        BF_ENCRYPT);
  const auto base64 = SzBase64EncBuffer(coded.data(), coded.size());
  out = base64 == nullptr ? text : ustring(base64.get());
}

void SyncPassDec(const ustring& in, ustring& out) {
  const ustring text = in;
  out.clear();
  std::vector<unsigned char> coded(text.size() + 1);
  std::size_t size = coded.size();
  if (EncBase64Dec(text.c_str_utf8(), text.size(), coded.data(), size) != 1) return;
  std::vector<unsigned char> plain(size + 1);
  Crypt(coded.data(), plain.data(), size, BF_DECRYPT);
  out = reinterpret_cast<const char*>(plain.data());
}

}  // namespace tolven

#include "libzenttunnelclient/tunnel-crypto.h"

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace tolven {

namespace {

constexpr std::uint16_t kMarker = 0xFFFF;
constexpr std::uint16_t kVersion = 1;
constexpr int kNonceAt = 10;
constexpr int kLengthAt = 20;
constexpr int kHeadSize = 24;
constexpr int kFrameSize = kHeadSize + 2;  // all but the cipher text
constexpr int kBlockSize = 8;

// What every relay and every client share.
constexpr std::uint32_t kFactor = 1103515245;
constexpr std::uint32_t kIncrement = 12345;
constexpr std::array<unsigned char, kBlockSize> kInitialVector = {0x54, 0x4F, 0x4C, 0x56,
                                                                  0x45, 0x4E, 0x48, 0x42};

constexpr int kKeySize = 24;
constexpr int kSha1Size = 20;
constexpr int kMd5Size = 16;
using KeyBuffer = std::array<unsigned char, kSha1Size + kMd5Size>;  // its first 24 are the key

using Cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;
using BioChain = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

std::uint32_t Get(const unsigned char* at, int bytes) {
  std::uint32_t value = 0;
  for (int i = 0; i < bytes; ++i) value = value << 8 | at[i];
  return value;
}

void Put(unsigned char* at, int bytes, std::uint32_t value) {
  for (int i = bytes; i-- > 0; value >>= 8) at[i] = static_cast<unsigned char>(value & 0xFF);
}

bool MakeKey(std::uint32_t nonce, KeyBuffer& key) {
  std::array<unsigned char, 4> word{};
  Put(word.data(), word.size(), nonce * kFactor + kIncrement);
  return EVP_Digest(word.data(), word.size(), key.data(), nullptr, EVP_sha1(), nullptr) == 1 &&
         EVP_Digest(word.data(), word.size(), key.data() + kSha1Size, nullptr, EVP_md5(),
                    nullptr) == 1;
}

// The length of the cipher text; `out` has room for `length` and one block. 0 when it fails.
int Encrypt(unsigned char* out, const KeyBuffer& key, const unsigned char* in, int length) {
  static_assert(kKeySize <= std::tuple_size_v<KeyBuffer>);
  const Cipher cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int done = 0, last = 0;
  if (cipher == nullptr ||
      EVP_EncryptInit_ex(cipher.get(), EVP_des_ede3_cbc(), nullptr, key.data(),
                         kInitialVector.data()) != 1 ||
      EVP_EncryptUpdate(cipher.get(), out, &done, in, length) != 1 ||
      EVP_EncryptFinal_ex(cipher.get(), out + done, &last) != 1) {
    return 0;
  }
  return done + last;
}

int Decrypt(unsigned char* out, const KeyBuffer& key, const unsigned char* in, int length) {
  const Cipher cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int done = 0, last = 0;
  if (cipher == nullptr ||
      EVP_DecryptInit_ex(cipher.get(), EVP_des_ede3_cbc(), nullptr, key.data(),
                         kInitialVector.data()) != 1 ||
      EVP_DecryptUpdate(cipher.get(), out, &done, in, length) != 1 ||
      EVP_DecryptFinal_ex(cipher.get(), out + done, &last) != 1) {
    return 0;
  }
  return done + last;
}

BioChain MakeBase64(BIO* memory) {
  BIO* const filter = BIO_new(BIO_f_base64());
  if (filter == nullptr || memory == nullptr) {
    BIO_free(filter);
    return {memory, &BIO_free_all};
  }
  BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
  return {BIO_push(filter, memory), &BIO_free_all};
}

}  // namespace

int ZENTCryptoEncryptLength(int length) { return length + kFrameSize + kBlockSize; }

int ZENTCryptoEncrypt(unsigned char* out, int out_size, const unsigned char* in, int in_length) {
  if (in_length < 0 || out_size < kFrameSize) return 0;
  std::vector<unsigned char> cipher_text(static_cast<std::size_t>(in_length) + kBlockSize);
  std::array<unsigned char, kFrameSize> frame{};
  KeyBuffer key{};
  if (RAND_bytes(frame.data(), kFrameSize) != 1) return 0;
  if (!MakeKey(Get(frame.data() + kNonceAt, 4), key)) return 0;
  const int cipher_length = Encrypt(cipher_text.data(), key, in, in_length);
  if (cipher_length == 0 || cipher_length > out_size - kFrameSize) return 0;
  Put(frame.data(), 2, kMarker);
  Put(frame.data() + 2, 2, kVersion);
  Put(frame.data() + kLengthAt, 4, static_cast<std::uint32_t>(cipher_length));
  unsigned char* end = std::copy_n(frame.data(), kHeadSize, out);
  end = std::copy_n(cipher_text.data(), cipher_length, end);
  std::copy(frame.begin() + kHeadSize, frame.end(), end);
  return cipher_length + kFrameSize;
}

int ZENTCryptoDecrypt(unsigned char* out, int out_size, const unsigned char* token,
                      int token_length) {
  if (token_length <= kFrameSize) return 0;
  if (Get(token, 2) < kMarker || Get(token + 2, 2) > kVersion) return 0;
  const std::uint32_t cipher_length = Get(token + kLengthAt, 4);
  if (cipher_length > static_cast<std::uint32_t>(token_length - kFrameSize)) return 0;
  KeyBuffer key{};
  if (!MakeKey(Get(token + kNonceAt, 4), key)) return 0;
  std::vector<unsigned char> plain(std::size_t{cipher_length} + kBlockSize);
  const int length = Decrypt(plain.data(), key, token + kHeadSize, static_cast<int>(cipher_length));
  if (length > out_size) return 0;
  std::copy_n(plain.data(), length, out);
  return length;
}

int ZENTCryptoBase64Encode(unsigned char* out, int out_size, const unsigned char* in,
                           int in_length) {
  const BioChain chain = MakeBase64(BIO_new(BIO_s_mem()));
  if (chain == nullptr || out_size < 0 || BIO_write(chain.get(), in, in_length) != in_length ||
      BIO_flush(chain.get()) != 1) {
    return 0;
  }
  const BUF_MEM* text = nullptr;
  BIO_get_mem_ptr(chain.get(), &text);
  if (text == nullptr) return 0;
  const int length =
      static_cast<int>(std::min<std::size_t>(text->length, static_cast<std::size_t>(out_size)));
  std::copy_n(text->data, length, out);
  return length;
}

int ZENTCryptoBase64Decode(unsigned char* out, int out_size, const unsigned char* in,
                           int in_length) {
  const BioChain chain = MakeBase64(BIO_new_mem_buf(in, in_length));
  if (chain == nullptr) return 0;
  int length = 0;
  while (length < out_size) {
    const int got = BIO_read(chain.get(), out + length, out_size - length);
    if (got <= 0) break;
    length += got;
  }
  return length;
}

}  // namespace tolven

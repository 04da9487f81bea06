// MD4 and DES are what the protocol is made of.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "zentproxy/lib/ntlm-hash.h"

#include <openssl/des.h>
#include <openssl/md4.h>
#include <openssl/md5.h>
#include <unicode/uchar.h>

#include <algorithm>

#include "ustring/ustring.h"

namespace tolven {

namespace {

using Digest = unsigned char* (*)(const unsigned char*, std::size_t, unsigned char*);

constexpr std::size_t kDigestBlock = 64;  // of MD4 and MD5
constexpr std::size_t kLmPasswordSize = 14;
constexpr DesKey kLmPlain = {'K', 'G', 'S', '!', '@', '#', '$', '%'};

NtlmBytes ToBytes(std::string_view text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

void Append(std::string& text, NtlmBytes bytes) { text.append(bytes.begin(), bytes.end()); }

NtlmHash Run(Digest digest, std::string_view text) {
  NtlmHash hash{};
  digest(ToBytes(text).data(), text.size(), hash.data());
  return hash;
}

// HMAC as everybody defines it.
NtlmHash Hmac(Digest digest, NtlmBytes key, NtlmBytes data) {
  std::array<unsigned char, kDigestBlock> block{};
  if (key.size() > block.size()) {
    digest(key.data(), key.size(), block.data());
  } else {
    std::copy(key.begin(), key.end(), block.begin());
  }
  std::string inner, outer;
  for (const unsigned char byte : block) {
    inner += static_cast<char>(byte ^ 0x36);
    outer += static_cast<char>(byte ^ 0x5C);
  }
  Append(inner, data);
  Append(outer, Run(digest, inner));
  return Run(digest, outer);
}

void EncryptBlock(std::span<const unsigned char, 7> bits, const DesKey& plain, unsigned char* out) {
  const DesKey key = _setup_des_key(bits);
  DES_key_schedule schedule;
  DES_cblock block, result;
  std::copy(key.begin(), key.end(), block);
  DES_set_key_unchecked(&block, &schedule);
  std::copy(plain.begin(), plain.end(), block);
  DES_ecb_encrypt(&block, &result, &schedule, DES_ENCRYPT);
  std::copy(std::begin(result), std::end(result), out);
}

}  // namespace

std::string StrToUnicode(std::string_view text) {
  const ustring source{std::string(text)};
  std::string result;
  for (const uchar16_t unit : std::u16string_view(source.c_str_utf16())) {
    result += static_cast<char>(unit & 0xFF);
    result += static_cast<char>(unit >> 8);
  }
  return result;
}

std::string StrToUpper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string StrToUpperUnicode(std::string text) {
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    const int unit = static_cast<unsigned char>(text[i]) | static_cast<unsigned char>(text[i + 1])
                                                               << 8;
    const UChar32 upper = u_toupper(unit);
    if (upper > 0xFFFF) continue;
    text[i] = static_cast<char>(upper & 0xFF);
    text[i + 1] = static_cast<char>(upper >> 8);
  }
  return text;
}

DesKey _setup_des_key(std::span<const unsigned char, 7> bits) {
  std::uint64_t all = 0;
  for (const unsigned char byte : bits) all = all << 8 | byte;
  DES_cblock key;
  for (std::size_t i = 0; i < sizeof key; ++i) {
    key[i] = static_cast<unsigned char>((all >> (49 - 7 * i) & 0x7F) << 1);
  }
  DES_set_odd_parity(&key);
  DesKey result;
  std::copy(std::begin(key), std::end(key), result.begin());
  return result;
}

NtlmHash _ntlm_hash_lm_password(std::string_view password) {
  const std::string upper = StrToUpper(std::string(password.substr(0, kLmPasswordSize)));
  std::array<unsigned char, kLmPasswordSize> bits{};
  std::copy(upper.begin(), upper.end(), bits.begin());
  const std::span<const unsigned char, kLmPasswordSize> all(bits);
  NtlmHash hash;
  EncryptBlock(all.first<7>(), kLmPlain, hash.data());
  EncryptBlock(all.last<7>(), kLmPlain, hash.data() + 8);
  return hash;
}

NtlmHash _ntlm_hash_nt_password(std::string_view password) {
  return Run(&MD4, StrToUnicode(password));
}

NtlmResponse _ntlm_calc_resp(const NtlmHash& hash, const NtlmChallenge& challenge) {
  std::array<unsigned char, 21> keys{};
  std::copy(hash.begin(), hash.end(), keys.begin());
  const std::span<const unsigned char, 21> all(keys);
  NtlmResponse response;
  EncryptBlock(all.first<7>(), challenge, response.data());
  EncryptBlock(all.subspan<7, 7>(), challenge, response.data() + 8);
  EncryptBlock(all.last<7>(), challenge, response.data() + 16);
  return response;
}

NtlmHash _hmac_md5(NtlmBytes key, NtlmBytes data) { return Hmac(&MD5, key, data); }

NtlmHash _hmac_md4(NtlmBytes key, NtlmBytes data) { return Hmac(&MD4, key, data); }

NtlmHash _ntlm2_hash_password(const NtlmHash& nt_hash, std::string_view user,
                              std::string_view domain) {
  const std::string name = StrToUpperUnicode(StrToUnicode(user) + StrToUnicode(domain));
  return _hmac_md5(nt_hash, ToBytes(name));
}

std::string Ntlm2Response(const NtlmHash& key, const NtlmChallenge& challenge,
                          const NtlmChallenge& nonce, std::uint64_t time,
                          std::string_view target_info) {
  std::string blob("\x01\x01\0\0\0\0\0\0", 8);
  for (int i = 0; i < 8; ++i, time >>= 8) blob += static_cast<char>(time & 0xFF);
  Append(blob, nonce);
  blob.append(4, '\0').append(target_info).append(4, '\0');
  std::string signed_text(challenge.begin(), challenge.end());
  signed_text += blob;
  std::string response;
  Append(response, _hmac_md5(key, ToBytes(signed_text)));
  return response + blob;
}

NtlmResponse Lm2Response(const NtlmHash& key, const NtlmChallenge& challenge,
                         const NtlmChallenge& nonce) {
  std::string signed_text(challenge.begin(), challenge.end());
  Append(signed_text, nonce);
  const NtlmHash proof = _hmac_md5(key, ToBytes(signed_text));
  NtlmResponse response;
  std::copy(nonce.begin(), nonce.end(), std::copy(proof.begin(), proof.end(), response.begin()));
  return response;
}

}  // namespace tolven

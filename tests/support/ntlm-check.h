// The proxy's side of NTLM, from the published formats and by arithmetic of its own: makes the
// challenge and says what is wrong with the client's messages.
#pragma once

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <bit>
#include <cctype>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace tolven::test {

struct NtlmAccount {
  std::string user, password, domain, host;
};

class NtlmCheck {
 public:
  NtlmCheck(NtlmAccount account, bool is_version2)
      : account_(std::move(account)), is_version2_(is_version2) {}

  static std::string Decode64(const std::string& text) {
    std::string bytes(text.size(), '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0) return {};
    bytes.resize(static_cast<std::size_t>(length));
    for (std::size_t i = text.size(); i > 0 && text[i - 1] == '='; --i) bytes.pop_back();
    return bytes;
  }
  static std::string Encode64(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                    reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    text.pop_back();
    return text;
  }

  // Empty when all is well.
  std::string JudgeOffer(const std::string& message) const {
    if (message.size() < 32) return "type 1 is short";
    if (Number(message, 8, 4) != 1) return "not type 1";
    if (Number(message, 12, 4) != (is_version2_ ? 0x00088205U : 0x00008201U)) return "flags";
    if (Number(message, 28, 4) != 32) return "the host is elsewhere";
    if (Field(message, 24) != account_.host) return "host";
    if (Number(message, 20, 4) != 32 + account_.host.size()) return "the domain is elsewhere";
    return Field(message, 16) == account_.domain ? "" : "domain";
  }

  std::string Challenge() const {
    const std::string name = Wide("PROXYDOM");
    std::string message("NTLMSSP\0\x02\0\0\0", 12);
    message += Buffer(name.size(), 48) + std::string("\x05\x82\x8a\xa2", 4);
    message += ServerChallenge() + std::string(8, '\0');
    message += Buffer(Info().size(), 48 + name.size());
    return message + name + Info();
  }

  std::string JudgeAnswer(const std::string& message) const {
    if (message.size() < 64 || message.substr(0, 8) != std::string("NTLMSSP\0", 8)) return "type 3";
    if (Number(message, 8, 4) != 3) return "not type 3";
    if (Field(message, 36) != Wide(account_.user)) return "user";
    const std::string domain = account_.domain.empty() ? "PROXYDOM" : account_.domain;
    if (Field(message, 28) != Wide(domain)) return "domain";
    if (Field(message, 44) != Wide(account_.host)) return "host";
    const std::string lm = Field(message, 12), nt = Field(message, 20);
    return is_version2_ ? JudgeVersion2(lm, nt, domain) : JudgeVersion1(lm, nt);
  }

 private:
  static std::string ServerChallenge() { return "\x01\x23\x45\x67\x89\xab\xcd\xef"; }
  // A domain, a server, and the end of the list.
  static std::string Info() {
    const std::string domain = Wide("PROXYDOM"), server = Wide("GATE");
    return std::string("\x02\0\x10\0", 4) + domain + std::string("\x01\0\x08\0", 4) + server +
           std::string(4, '\0');
  }
  static std::string Wide(std::string_view text) {
    std::string wide;
    for (const char c : text) (wide += c) += '\0';
    return wide;
  }
  static std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
  }
  static std::uint64_t Number(const std::string& message, std::size_t at, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes; i-- > 0;) {
      value = value * 256 + static_cast<unsigned char>(message.at(at + i));
    }
    return value;
  }
  static std::string Buffer(std::size_t length, std::size_t offset) {
    const auto low = static_cast<char>(length), at = static_cast<char>(offset);
    return {low, 0, low, 0, at, 0, 0, 0};
  }
  static std::string Field(const std::string& message, std::size_t at) {
    const std::uint64_t length = Number(message, at, 2), offset = Number(message, at + 4, 4);
    if (Number(message, at + 2, 2) != length || offset + length > message.size()) return "?";
    return message.substr(offset, length);
  }
  // RFC 1320.
  static std::string Md4(std::string text) {
    const std::uint64_t bits = text.size() * 8;
    text += '\x80';
    text.resize((text.size() + 8 + 63) / 64 * 64 - 8);
    for (int i = 0; i < 8; ++i) text += static_cast<char>(bits >> 8 * i);
    std::array<std::uint32_t, 4> sum = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    for (std::size_t block = 0; block < text.size(); block += 64) {
      Md4Block(text.substr(block, 64), sum);
    }
    std::string hash;
    for (const std::uint32_t word : sum) {
      for (int i = 0; i < 4; ++i) hash += static_cast<char>(word >> 8 * i);
    }
    return hash;
  }
  static void Md4Block(const std::string& block, std::array<std::uint32_t, 4>& sum) {
    constexpr std::size_t kOrder[3][16] = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
                                           {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15},
                                           {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15}};
    constexpr int kShifts[3][4] = {{3, 7, 11, 19}, {3, 5, 9, 13}, {3, 9, 11, 15}};
    constexpr std::uint32_t kAdded[3] = {0, 0x5a827999, 0x6ed9eba1};
    auto [a, b, c, d] = sum;
    for (std::size_t step = 0; step < 48; ++step) {
      const std::size_t round = step / 16;
      const std::uint32_t mixed = round == 0   ? (b & c) | (~b & d)
                                  : round == 1 ? (b & c) | (b & d) | (c & d)
                                               : b ^ c ^ d;
      const auto word = static_cast<std::uint32_t>(Number(block, kOrder[round][step % 16] * 4, 4));
      const std::uint32_t next =
          std::rotl(a + mixed + word + kAdded[round], kShifts[round][step % 4]);
      a = d;
      d = c;
      c = b;
      b = next;
    }
    sum = {sum[0] + a, sum[1] + b, sum[2] + c, sum[3] + d};
  }
  static std::string HmacMd5(const std::string& key, const std::string& text) {
    std::string hash(16, '\0');
    HMAC(EVP_md5(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(hash.data()), nullptr);
    return hash;
  }
  // One block under 7 bytes of key: triple DES with three equal keys is plain DES.
  static std::string Des(const std::string& seven, const std::string& block) {
    std::string bits, key;
    for (const char c : seven) {
      for (int bit = 7; bit >= 0; --bit) bits += (c >> bit & 1) != 0 ? '1' : '0';
    }
    for (std::size_t i = 0; i < 56; i += 7) {
      key += static_cast<char>(std::stoi(bits.substr(i, 7) + "0", nullptr, 2));
    }
    key = key + key + key;
    std::string out(16, '\0');
    int length = 0;
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(context, EVP_des_ede3_ecb(), nullptr,
                       reinterpret_cast<const unsigned char*>(key.data()), nullptr);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_EncryptUpdate(context, reinterpret_cast<unsigned char*>(out.data()), &length,
                      reinterpret_cast<const unsigned char*>(block.data()), 8);
    EVP_CIPHER_CTX_free(context);
    return out.substr(0, static_cast<std::size_t>(length));
  }
  static std::string UnderThreeKeys(std::string hash) {
    hash.resize(21);
    return Des(hash.substr(0, 7), ServerChallenge()) + Des(hash.substr(7, 7), ServerChallenge()) +
           Des(hash.substr(14, 7), ServerChallenge());
  }

  std::string JudgeVersion1(const std::string& lm, const std::string& nt) const {
    std::string upper = Upper(account_.password);
    upper.resize(14);
    const std::string magic = "KGS!@#$%";
    const std::string lm_hash = Des(upper.substr(0, 7), magic) + Des(upper.substr(7), magic);
    if (lm != UnderThreeKeys(lm_hash)) return "LM response";
    return nt == UnderThreeKeys(Md4(Wide(account_.password))) ? "" : "NT response";
  }
  std::string JudgeVersion2(const std::string& lm, const std::string& nt,
                            const std::string& domain) const {
    if (nt.size() < 16 + 32) return "NT response is short";
    const std::string blob = nt.substr(16), nonce = blob.substr(16, 8);
    if (blob.substr(0, 8) != std::string("\x01\x01\0\0\0\0\0\0", 8)) return "blob";
    const std::uint64_t since_1601 = Number(blob, 8, 8) / 10'000'000;
    const auto now = static_cast<std::uint64_t>(std::time(nullptr)) + 11'644'473'600U;
    if (since_1601 + 600 < now || since_1601 > now + 600) return "time";
    if (blob.substr(24) != std::string(4, '\0') + Info() + std::string(4, '\0')) return "info";
    const std::string key =
        HmacMd5(Md4(Wide(account_.password)), Wide(Upper(account_.user) + Upper(domain)));
    if (nt.substr(0, 16) != HmacMd5(key, ServerChallenge() + blob)) return "proof";
    return lm == HmacMd5(key, ServerChallenge() + nonce) + nonce ? "" : "LM response";
  }

  const NtlmAccount account_;
  const bool is_version2_;
};

}  // namespace tolven::test

// The arithmetic of NTLM: what becomes of a password, and of a challenge under it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tolven {

using NtlmHash = std::array<unsigned char, 16>;
using NtlmChallenge = std::array<unsigned char, 8>;
using NtlmResponse = std::array<unsigned char, 24>;
using DesKey = std::array<unsigned char, 8>;
using NtlmBytes = std::span<const unsigned char>;

// UTF-8 as UTF-16, little-endian; empty when it is not well-formed.
std::string StrToUnicode(std::string_view text);
// A to Z alone, as code pages agree on nothing else.
std::string StrToUpper(std::string text);
// UTF-16 as of StrToUnicode, one unit for one.
std::string StrToUpperUnicode(std::string text);

// 56 bits as a key with its odd parity bits.
DesKey _setup_des_key(std::span<const unsigned char, 7> bits);
// Of the first 14 bytes, in upper case.
NtlmHash _ntlm_hash_lm_password(std::string_view password);
NtlmHash _ntlm_hash_nt_password(std::string_view password);
// The challenge under the three keys that a hash gives.
NtlmResponse _ntlm_calc_resp(const NtlmHash& hash, const NtlmChallenge& challenge);

NtlmHash _hmac_md5(NtlmBytes key, NtlmBytes data);
NtlmHash _hmac_md4(NtlmBytes key, NtlmBytes data);
// The key of version 2. The domain counts in upper case like the user's name.
NtlmHash _ntlm2_hash_password(const NtlmHash& nt_hash, std::string_view user,
                              std::string_view domain);

// What is sent for version 2. `time`: tenths of microseconds since 1601; `target_info`: as the
// challenge had it.
std::string Ntlm2Response(const NtlmHash& key, const NtlmChallenge& challenge,
                          const NtlmChallenge& nonce, std::uint64_t time,
                          std::string_view target_info);
NtlmResponse Lm2Response(const NtlmHash& key, const NtlmChallenge& challenge,
                         const NtlmChallenge& nonce);

}  // namespace tolven

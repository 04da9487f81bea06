// The arithmetic and the messages of NTLM, by what is published of them.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <gtest/gtest.h>
#include <openssl/md4.h>

#include <string>

#include "support/ntlm-check.h"
#include "zentproxy/lib/ntlm-message.h"
#include "zentproxy/lib/proxy-types.h"

namespace tolven {
namespace {

template <class Container>
std::string Hex(const Container& bytes) {
  std::string text;
  for (const auto byte : bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

std::string FromHex(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

NtlmBytes View(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

constexpr NtlmChallenge kChallenge = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};

TEST(NtlmHashTest, GivesThePublishedValues) {
  const NtlmHash lm = _ntlm_hash_lm_password("Password");
  const NtlmHash nt = _ntlm_hash_nt_password("Password");
  EXPECT_EQ(Hex(lm), "e52cac67419a9a224a3b108f3fa6cb6d");
  EXPECT_EQ(Hex(nt), "a4f49c406510bdcab6824ee7c30fd852");
  EXPECT_EQ(Hex(_ntlm_calc_resp(lm, kChallenge)),
            "98def7b87f88aa5dafe2df779688a172def11c7d5ccdef13");
  EXPECT_EQ(Hex(_ntlm_calc_resp(nt, kChallenge)),
            "67c43011f30298a2ad35ece64f16331c44bdbed927841f94");

  EXPECT_EQ(Hex(_setup_des_key(View("SECRET0").first<7>())), "52a2516b252a5161");
  EXPECT_EQ(Hex(_ntlm_hash_lm_password("SecREt01")), "ff3750bcc2b22412c2265b23734e0dac");
  const NtlmHash other = _ntlm_hash_nt_password("SecREt01");
  EXPECT_EQ(Hex(other), "cd06ca7c7e10c99b1d33b7485a2ed808");
  const NtlmHash key = _ntlm2_hash_password(other, "user", "DOMAIN");
  EXPECT_EQ(Hex(key), "04b8e0ba74289cc540826bab1dee63ae");
  // The domain counts in upper case, too.
  EXPECT_EQ(key, _ntlm2_hash_password(other, "User", "Domain"));
  constexpr NtlmChallenge kNonce = {0xff, 0xff, 0xff, 0x00, 0x11, 0x22, 0x33, 0x44};
  EXPECT_EQ(Hex(Lm2Response(key, kChallenge, kNonce)),
            "d6e6152ea25d03b7c6ba6629c2d6aaf0ffffff0011223344");
  const std::string info =
      "02000c0044004f004d00410049004e0001000c005300450052005600450052000400140064006f006d0061006900"
      "6e002e0063006f006d00030022007300650072007600650072002e0064006f006d00610069006e002e0063006f00"
      "6d0000000000";
  EXPECT_EQ(Hex(Ntlm2Response(key, kChallenge, kNonce, 0x01c334b736d39000, FromHex(info))),
            "cbabbca713eb795d04c97abc01ee498301010000000000000090d336b734c301ffffff00112233440000"
            "0000" +
                info + "00000000");
}

TEST(NtlmHashTest, MakesTheStandardHmac) {
  const std::string text = "what do ya want for nothing?", key = "Jefe", large(80, '\xaa');
  EXPECT_EQ(Hex(_hmac_md5(View(key), View(text))), "750c783e6ab0b503eaa86e310a5db738");
  EXPECT_EQ(
      Hex(_hmac_md5(View(large), View("Test Using Larger Than Block-Size Key - Hash Key First"))),
      "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
  const auto md4 = [](const std::string& bytes) {
    std::string hash(16, '\0');
    MD4(View(bytes).data(), bytes.size(), reinterpret_cast<unsigned char*>(hash.data()));
    return hash;
  };
  std::string inner(64, '\x36'), outer(64, '\x5c');
  for (std::size_t i = 0; i < key.size(); ++i) {
    inner[i] = static_cast<char>(inner[i] ^ key[i]);
    outer[i] = static_cast<char>(outer[i] ^ key[i]);
  }
  EXPECT_EQ(Hex(_hmac_md4(View(key), View(text))), Hex(md4(outer + md4(inner + text))));
}

TEST(NtlmHashTest, FoldsTextOfEveryScript) {
  EXPECT_EQ(StrToUpperUnicode(StrToUnicode("j\xC3\xBCrgen \xD0\xB6")),
            StrToUnicode("J\xC3\x9CRGEN \xD0\x96"));
  EXPECT_EQ(Hex(StrToUpperUnicode(StrToUnicode("\xF0\x9F\x98\x80z"))), "3dd800de5a00");
  EXPECT_EQ(StrToUpper("pass\xC3\xBC"), "PASS\xC3\xBC");
}

const test::NtlmAccount kAccount{"User", "Password", "Domain", "COMPUTER"};

ZENT_PROXY_AUTH_DATA DataOf(const test::NtlmAccount& account, int version) {
  ZENT_PROXY_AUTH_DATA data{account.user, account.password, account.domain, account.host};
  data.hashntlm2 = version == 2 ? 1 : 0;
  data.hashnt = data.hashlm = version == 1 ? 1 : 0;
  return data;
}

TEST(NtlmMessageTest, OffersAndAnswersInBothVersions) {
  for (const int version : {1, 2}) {
    for (const char* domain : {"Domain", ""}) {
      SCOPED_TRACE(version);
      const test::NtlmAccount account{"User", "Password", domain, "COMPUTER"};
      const test::NtlmCheck check(account, version == 2);
      ZENT_PROXY_AUTH_DATA data = DataOf(account, version);
      std::string offer, answer, again;
      ASSERT_EQ(ZENTProxyClientPrepareNTLMRequest(data, offer), 0);
      EXPECT_EQ(check.JudgeOffer(offer), "");
      ASSERT_EQ(ZENTProxyClientNTLMResponseType3Cal(data, check.Challenge(), answer), 0);
      EXPECT_EQ(check.JudgeAnswer(answer), "");
      ASSERT_EQ(ZENTProxyClientNTLMResponseType3Cal(data, check.Challenge(), again), 0);
      EXPECT_EQ(answer == again, version == 1);  // version 2 has something random in it
    }
  }
  ZENT_PROXY_AUTH_DATA data = DataOf(kAccount, 1);
  data.hashlm = 0;
  std::string message;
  EXPECT_EQ(ZENTProxyClientPrepareNTLMRequest(data, message), kProxyInvalidParameters);
  data = DataOf(kAccount, 2);
  data.szHostName.assign(2017 - data.szDomainName.size(), 'h');
  EXPECT_EQ(ZENTProxyClientPrepareNTLMRequest(data, message), kProxyInvalidParameters);
  data.szUserName.assign(40'000, 'u');
  const std::string challenge = test::NtlmCheck(kAccount, true).Challenge();
  EXPECT_EQ(ZENTProxyClientNTLMResponseType3Cal(data, challenge, message), kProxyInvalidParameters);
}

TEST(NtlmMessageTest, RefusesChallengesThatAreCutOrPointOutside) {
  const std::string good = test::NtlmCheck(kAccount, true).Challenge();
  NtlmChallengeMessage read;
  ASSERT_EQ(ReadNtlmChallenge(good, read), 0);
  EXPECT_EQ(read.target_name, "PROXYDOM");
  EXPECT_EQ(read.challenge, kChallenge);
  EXPECT_EQ(good.substr(good.size() - read.target_info.size()), read.target_info);
  // Without a byte of its end nothing is whole, since the target info comes last.
  for (std::size_t size = 0; size < good.size(); ++size) {
    const std::string cut = good.substr(0, size);
    EXPECT_EQ(ReadNtlmChallenge({std::string(cut).data(), size}, read), size < 25 ? -5 : -1);
  }
  for (const std::size_t at : {12U, 40U}) {  // the security buffers
    for (const char* bytes : {"\1\0\1\0\xff\xff\xff\xff", "\xff\xff\xff\xff\0\0\0\0"}) {
      std::string bad = good;
      bad.replace(at, 8, bytes, 8);
      EXPECT_EQ(ReadNtlmChallenge(bad, read), -1);
    }
    std::string behind = good;
    behind[at + 4] = static_cast<char>(good.size() - 1);
    EXPECT_EQ(ReadNtlmChallenge(behind, read), -1);
    std::string unused = good;
    unused.replace(at, 8, "\0\0\0\0\xff\xff\xff\xff", 8);
    EXPECT_EQ(ReadNtlmChallenge(unused, read), 0);
  }
  for (const std::size_t at : {0U, 8U}) {  // signature and type
    std::string bad = good;
    bad[at] = '\3';
    EXPECT_EQ(ReadNtlmChallenge(bad, read), -1);
  }
  // An odd length is no UTF-16, but any other text; and the oldest have no target info.
  std::string odd = good;
  odd[12] = 7;
  EXPECT_EQ(ReadNtlmChallenge(odd, read), -1);
  odd[20] = '\2';
  odd[22] = 0;
  EXPECT_EQ(ReadNtlmChallenge(odd, read), 0);
  EXPECT_EQ(read.target_name, std::string("P\0R\0O\0X", 7));
  odd.replace(12, 8, std::string("\4\0\4\0\x20\0\0\0", 8));
  ASSERT_EQ(ReadNtlmChallenge(odd.substr(0, 32) + "NAME", read), 0);
  EXPECT_EQ(read.target_name, "NAME");
}

}  // namespace
}  // namespace tolven

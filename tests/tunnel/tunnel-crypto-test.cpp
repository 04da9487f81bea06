#include "libzenttunnelclient/tunnel-crypto.h"

#include <gtest/gtest.h>

#include <string>

namespace tolven {
namespace {

unsigned char* Out(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }
const unsigned char* In(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Encrypt(const std::string& text) {
  const int size = static_cast<int>(text.size());
  std::string token(static_cast<std::size_t>(ZENTCryptoEncryptLength(size)), '\0');
  const int length = ZENTCryptoEncrypt(Out(token), static_cast<int>(token.size()), In(text), size);
  token.resize(static_cast<std::size_t>(length));
  return token;
}

std::string Decrypt(const std::string& token) {
  std::string text(token.size(), '\0');
  const int length = ZENTCryptoDecrypt(Out(text), static_cast<int>(text.size()), In(token),
                                       static_cast<int>(token.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

TEST(TunnelTokenTest, ComesBackAsItWent) {
  for (std::size_t size = 1; size < 40; ++size) {
    const std::string text(size, 'a');
    const std::string token = Encrypt(text);
    EXPECT_EQ(token.size(), 26 + (size / 8 + 1) * 8);
    EXPECT_EQ(Decrypt(token), text);
    EXPECT_NE(Encrypt(text), token);
    std::string small(token.size() - 1, '\0');
    EXPECT_EQ(ZENTCryptoEncrypt(Out(small), static_cast<int>(small.size()), In(text),
                                static_cast<int>(size)),
              0);
    EXPECT_EQ(ZENTCryptoDecrypt(Out(small), static_cast<int>(size) - 1, In(token),
                                static_cast<int>(token.size())),
              0);
  }
}

// Made elsewhere: the nonce is 1, so the word is 41C67EA6, and the key
// SHA-1(word) + MD5(word).
TEST(TunnelTokenTest, ReadsATokenOfOthers) {
  const std::string token(
      "\xFF\xFF\x00\x01"
      "rand"
      "om"
      "\x00\x00\x00\x01"
      "xx"
      "more"
      "\x00\x00\x00\x10"
      "\xA1\x15\xB8\x47\xDB\xCD\xED\x4C\x6B\x1A\x1C\x24\xCE\xF4\x7D\xB9"
      "yy",
      42);
  EXPECT_EQ(Decrypt(token), "host:1234");
}

TEST(TunnelTokenTest, RefusesWhatIsNone) {
  const std::string good = Encrypt("127.0.0.1:6690");
  ASSERT_EQ(Decrypt(good), "127.0.0.1:6690");
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_EQ(Decrypt(std::string(good.data(), size)), "");
  }
  EXPECT_EQ(Decrypt(good + "x"), "127.0.0.1:6690");
  const auto with = [&](std::size_t at, char byte) {
    std::string token = good;
    token[at] = byte;
    return Decrypt(token);
  };
  EXPECT_EQ(with(0, '\xFE'), "");
  EXPECT_EQ(with(3, 2), "");
  EXPECT_EQ(with(3, 0), "127.0.0.1:6690");
  for (const char length : {'\0', '\x0F', '\x11', '\xFF'}) EXPECT_EQ(with(23, length), "");
  EXPECT_EQ(with(20, '\xFF'), "");
  EXPECT_NE(with(13, static_cast<char>(good[13] + 1)), "127.0.0.1:6690");  // another key
}

TEST(TunnelTokenTest, CutsBase64AtTheRoomThereIs) {
  const std::string bytes(
      "\0\xFF\x10 some bytes that are longer than a line of base64 would be....", 64);
  std::string text(200, '\0'), again(200, '\0');
  const int length = ZENTCryptoBase64Encode(Out(text), 200, In(bytes), 64);
  ASSERT_EQ(length, 88);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  ASSERT_EQ(ZENTCryptoBase64Decode(Out(again), 200, In(text), length), 64);
  EXPECT_EQ(again.substr(0, 64), bytes);
  EXPECT_EQ(ZENTCryptoBase64Encode(Out(again), 10, In(bytes), 64), 10);
  EXPECT_EQ(again.substr(0, 10), text.substr(0, 10));
  EXPECT_EQ(ZENTCryptoBase64Decode(Out(again), 5, In(text), length), 5);
  EXPECT_EQ(again.substr(0, 5), bytes.substr(0, 5));
}

}  // namespace
}  // namespace tolven

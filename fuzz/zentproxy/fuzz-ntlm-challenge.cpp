// Any bytes as a challenge: refused, or answered by a message whose texts lie within it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "zentproxy/lib/ntlm-message.h"

namespace {

void Require(bool held) {
  if (!held) std::abort();
}

std::size_t Number(std::string_view message, std::size_t at, int bytes) {
  std::size_t value = 0;
  for (int i = bytes; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(message[at + static_cast<std::size_t>(i)]);
  }
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolven;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  NtlmChallengeMessage read;
  const int result = ReadNtlmChallenge(bytes, read);
  Require(size >= 25 || result == -5);
  Require(result != 0 || bytes.find(read.target_info) != std::string_view::npos);
  for (const int is_version2 : {0, 1}) {
    ZENT_PROXY_AUTH_DATA auth{"User", "Password", "", "HOST", is_version2, 1, 1, 0};
    std::string answer;
    const int answered = ZENTProxyClientNTLMResponseType3Cal(auth, bytes, answer);
    Require(result == 0 || answered == result);
    if (answered != 0) continue;
    std::size_t end = 64;
    for (std::size_t at = 12; at < 60; at += 8) {
      Require(Number(answer, at + 4, 4) == end);
      end += Number(answer, at, 2);
    }
    Require(end == answer.size());
  }
  return 0;
}

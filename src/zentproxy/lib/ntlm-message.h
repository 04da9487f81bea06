// The three messages of NTLM. Integers are little-endian. A text is told by a security buffer: its
// length, the same once more, and where in the message it stands.
//
//   type 1, ours              type 2, the challenge          type 3, ours
//    0  8  "NTLMSSP\0"         0  8  "NTLMSSP\0"              0  8  "NTLMSSP\0"
//    8  4  1                   8  4  2                        8  4  3
//   12  4  flags              12  8  target name             12  8  LM response
//   16  8  domain             20  4  flags                   20  8  NT response
//   24  8  host               24  8  challenge               28  8  domain
//   32     the two texts      32  8  reserved                36  8  user
//                             40  8  target info, if the     44  8  host
//                                    flags say so            52  8  session key, none
//                             48     the texts               60  4  flags
//                                                            64     all of them
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "zentproxy/lib/ntlm-hash.h"

namespace tolven {

// The state of one run.
struct ZENT_PROXY_AUTH_DATA {
  std::string szUserName;
  std::string szUserPasswd;
  std::string szDomainName;
  std::string szHostName;
  int hashntlm2 = 0;  // version 2; otherwise both of the others
  int hashnt = 0;
  int hashlm = 0;
  std::uint32_t flags = 0;  // what was offered, later what the challenge says
};

struct NtlmChallengeMessage {
  std::uint32_t flags = 0;
  NtlmChallenge challenge{};
  std::string target_name;  // UTF-8
  std::string target_info;
};

// The type 1 message goes to `message`: 0, or kProxyInvalidParameters when the switches name no
// version or the names are too long.
int ZENTProxyClientPrepareNTLMRequest(ZENT_PROXY_AUTH_DATA& data, std::string& message);

// 0, kProxyUnexpected for less than 25 bytes, or kProxyFailed for what is no challenge: cut short,
// or with a text that does not lie within it.
int ReadNtlmChallenge(std::string_view message, NtlmChallengeMessage& challenge);

// The type 3 message that answers a challenge: 0 or negative. Without a domain of the user's the
// challenge's target stands in.
int ZENTProxyClientNTLMResponseType3Cal(ZENT_PROXY_AUTH_DATA& data, std::string_view challenge,
                                        std::string& message);

}  // namespace tolven

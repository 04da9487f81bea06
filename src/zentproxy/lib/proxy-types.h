// What the proxy client is told. All text belongs to the caller and outlives the client's work.
#pragma once

#include <cstdint>

namespace tolven {

enum PROXY_AUTH_TYPE {
  PROXY_NO_AUTH = 0,
  PROXY_BASIC_AUTH = 1,
  PROXY_NTLM_AUTH = 2,
  PROXY_NTLMv2_AUTH = 3,
  PROXY_AUTO_AUTH = 4  // the first of the others, in this order, that the proxy takes
};

struct PROXY_SERVER_INFO {
  const char* szProxyAddress = nullptr;  // a name or an IPv4 literal
  std::uint16_t ProxyPort = 0;
};

struct PROXY_TARGET_INFO {
  const char* szTargetAddress = nullptr;  // a name or a literal
  std::uint16_t TargetPort = 0;
};

struct PROXY_AUTH_INFO {
  const char* szUserName = nullptr;
  const char* szUserPasswd = nullptr;
  const char* szUserDomain = nullptr;
  const char* szUserHost = nullptr;  // of this computer
  PROXY_AUTH_TYPE AuthType = PROXY_AUTO_AUTH;
};

// Results of the steps of an authentication.
enum ProxyResult : int {
  kProxyOk = 0,
  kProxyFailed = -1,          // the connection, or what came over it
  kProxyResponseFailed = -2,  // a later answer of the proxy
  kProxyWantsOther = -3,      // the proxy wants what this type cannot give
  kProxyNoMemory = -4,
  kProxyUnexpected = -5,  // another response code, or a challenge that is too short
  kProxyInvalidParameters = -6,
};

}  // namespace tolven

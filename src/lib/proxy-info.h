// How a connection reaches its server when not directly.
#pragma once

#include <cstdint>
#include <string>

#include "ustring/ustring.h"

namespace tolven {

// An HTTP proxy.
struct ProxyInfo {
  enum AuthType { AUTH_AUTO = 0, AUTH_NONE = 1, AUTH_BASIC = 2, AUTH_NTLMv1 = 3, AUTH_NTLMv2 = 4 };

  void clear() { *this = ProxyInfo(); }
  bool operator==(const ProxyInfo& other) const = default;
  ustring toString() const;  // without the password

  bool use_proxy = false;
  bool use_sys_proxy = false;
  std::string proxy_ip;
  std::uint16_t proxy_port = 0;
  std::string user_name, password, domain, host;
  AuthType auth_type = AUTH_AUTO;
};

// A relay.
struct TunnelInfo {
  void clear() { *this = TunnelInfo(); }
  bool operator==(const TunnelInfo& other) const = default;
  ustring toString() const;

  bool use_tunnel = false;
  std::string tunnel_ip;
  std::uint16_t tunnel_port = 0;
};

}  // namespace tolven

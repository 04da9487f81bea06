#pragma once

#include <cstdint>
#include <string>

#include "lib/channel.h"
#include "lib/proxy-info.h"

namespace tolven {

// A channel that reaches its server by way of an HTTP proxy. What the proxy client does is logged
// under "proxy_debug".
class ProxyChannel : public Channel {
 public:
  explicit ProxyChannel(const ProxyInfo& proxy);

  using Channel::Open;
  // Has the proxy connect to `host`, which it looks up: 0, or -2 with what was open closed.
  int Open(const char* host, int port) override;
  void Close() override;

 private:
  const std::string proxy_address;
  const std::uint16_t proxy_port;
  const ProxyInfo::AuthType auth_type;
  const std::string user_name, user_password, user_domain, user_host;
};

}  // namespace tolven

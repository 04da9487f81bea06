#pragma once

#include <cstdint>
#include <string>

#include "lib/proxy-channel.h"

namespace tolven {

// A channel that reaches its server by way of a relay, and the relay by way of an HTTP proxy. After
// a failed Open, which is -2, the channel is closed.
class ProxyTunnelChannel : public ProxyChannel {
 public:
  ProxyTunnelChannel(const ProxyInfo& proxy, const TunnelInfo& tunnel);

  using ProxyChannel::Open;
  // Has the proxy connect to the relay, whose name it looks up, and the relay join `host`.
  int Open(const char* host, int port) override;
  void Close() override;

 private:
  const std::string tunnel_address;
  const std::uint16_t tunnel_port;
};

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>

#include "lib/channel.h"
#include "lib/proxy-info.h"

namespace tolven {

// A channel that reaches its server by way of a relay, which is asked for it over TLS; afterwards
// the bare socket leads to the server. After a failed Open, which is -2 or what connecting gave,
// the channel is closed.
class TunnelChannel : public Channel {
 public:
  explicit TunnelChannel(const TunnelInfo& tunnel);

  using Channel::Open;
  // Connects to the relay, whose address is a literal, and has it join `host`, which it looks up.
  int Open(const char* host, int port) override;
  void Close() override;

 private:
  const std::string tunnel_address;
  const std::uint16_t tunnel_port;
};

}  // namespace tolven

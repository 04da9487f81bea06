// What the UI tells of a connection.
#pragma once

#include "client/core/connection.h"
#include "protocol/object.h"

namespace tolven {

struct ConnectionRequest {
  explicit ConnectionRequest(const PObject& msg);

  // Null when the connection does without.
  const ProxyInfo* proxy_in_use() const { return proxy.use_proxy ? &proxy : nullptr; }
  const TunnelInfo* tunnel_in_use() const { return tunnel.use_tunnel ? &tunnel : nullptr; }

  ConnectionInfo info;
  ProxyInfo proxy;
  TunnelInfo tunnel;
};

// Fills all three from the members of a request; what is missing becomes 0, false or empty.
void prepare_connection_info(const PObject& msg, ConnectionInfo& info, ProxyInfo& proxy,
                             TunnelInfo& tunnel);

}  // namespace tolven

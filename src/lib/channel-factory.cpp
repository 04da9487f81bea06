#include "lib/channel-factory.h"

#include "lib/proxy-tunnel-channel.h"
#include "lib/tunnel-channel.h"

namespace tolven {

std::unique_ptr<Channel> CreateChannelByConnectionType(const ProxyInfo* proxy,
                                                       const TunnelInfo* tunnel) {
  const bool through_proxy = proxy != nullptr && proxy->use_proxy;
  const bool through_tunnel = tunnel != nullptr && tunnel->use_tunnel;
  if (through_proxy && through_tunnel) return std::make_unique<ProxyTunnelChannel>(*proxy, *tunnel);
  if (through_tunnel) return std::make_unique<TunnelChannel>(*tunnel);
  if (through_proxy) return std::make_unique<ProxyChannel>(*proxy);
  return std::make_unique<Channel>(0x14000);
}

}  // namespace tolven

// Which kind of channel leads to a server.
#pragma once

#include <memory>

#include "lib/channel.h"
#include "lib/proxy-info.h"

namespace tolven {

// A closed channel that goes through what is given and in use, or straight to the server.
std::unique_ptr<Channel> CreateChannelByConnectionType(const ProxyInfo* proxy,
                                                       const TunnelInfo* tunnel);

}  // namespace tolven

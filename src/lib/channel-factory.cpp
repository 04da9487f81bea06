#include "lib/channel-factory.h"

#include "lib/error-table.h"
#include "lib/log.h"

namespace tolven {

namespace {

// For a way that this build does not have: nothing must go out directly instead.
class UnreachableChannel : public Channel {
 public:
  int Open(const char*) override { return Refuse(); }
  int Open(CH_SOCK_T, bool) override { return Refuse(); }
  int Open(const char*, int) override { return Refuse(); }

 private:
  static int Refuse() {
    Logger::LogMsg(Logger::L_ERR, "connection_debug",
                   L"[ERROR] connection(%d): this build reaches servers directly only, not through "
                   L"a proxy or a relay\n",
                   __LINE__);
    return ErrorCodes::ERR_IO;
  }
};

}  // namespace

std::unique_ptr<Channel> CreateChannelByConnectionType(const ProxyInfo* proxy,
                                                       const TunnelInfo* tunnel) {
  const bool through_proxy = proxy != nullptr && proxy->use_proxy;
  const bool through_tunnel = tunnel != nullptr && tunnel->use_tunnel;
  if (through_proxy || through_tunnel) return std::make_unique<UnreachableChannel>();
  return std::make_unique<Channel>(0x14000);
}

}  // namespace tolven

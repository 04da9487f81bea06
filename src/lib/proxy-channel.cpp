#include "lib/proxy-channel.h"

#include <limits>

#include "lib/error-table.h"
#include "lib/log.h"
#include "libzentcat/lib/bio/buffered-io-base.h"
#include "libzentcat/lib/io/socket.h"
#include "zentproxy/lib/proxy-client.h"
#include "zentproxy/lib/proxy-log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "channel_debug";
constexpr std::size_t kBufferSize = 0x14000;

PROXY_AUTH_TYPE ConvertAuthType(ProxyInfo::AuthType type) {
  switch (type) {
    case ProxyInfo::AUTH_NONE:
      return PROXY_NO_AUTH;
    case ProxyInfo::AUTH_BASIC:
      return PROXY_BASIC_AUTH;
    case ProxyInfo::AUTH_NTLMv1:
      return PROXY_NTLM_AUTH;
    case ProxyInfo::AUTH_NTLMv2:
      return PROXY_NTLMv2_AUTH;
    case ProxyInfo::AUTH_AUTO:
      break;
  }
  return PROXY_AUTO_AUTH;
}

// 0, which no target has, for what is no port.
std::uint16_t ToPort(int port) {
  const bool is_port = port > 0 && port <= std::numeric_limits<std::uint16_t>::max();
  return is_port ? static_cast<std::uint16_t>(port) : std::uint16_t{0};
}

}  // namespace

ProxyChannel::ProxyChannel(const ProxyInfo& proxy)
    : Channel(kBufferSize),
      proxy_address(proxy.proxy_ip),
      proxy_port(proxy.proxy_port),
      auth_type(proxy.auth_type),
      user_name(proxy.user_name),
      user_password(proxy.password),
      user_domain(proxy.domain),
      user_host(proxy.host) {
  ZENTProxyInitLogger(&Logger::LogMsg2);
}

void ProxyChannel::Close() { Channel::Close(); }

int ProxyChannel::Open(const char* host, int port) {
  const PROXY_SERVER_INFO server{proxy_address.c_str(), proxy_port};
  const PROXY_TARGET_INFO target{host, ToPort(port)};
  const PROXY_AUTH_INFO auth{user_name.c_str(), user_password.c_str(), user_domain.c_str(),
                             user_host.c_str(), ConvertAuthType(auth_type)};
  DropConnection();
  ZentProxy::ProxyClient client;
  client.SetInfo(&server, &target, &auth);
  client.SetAbortFlag(AbortFlag());
  if (client.Connect() < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] proxy_channel(%d): ProxyChannel: cannot connect to proxy\n", __LINE__);
    return ErrorCodes::ERR_IO;
  }
  ClearRead();
  ClearWrite();
  if (m_socket == nullptr) m_socket = std::make_unique<TolvenApplication::Socket>();
  m_socket->assign(client.Handover());
  const int result = CreateBufferIO();
  if (result < 0) DropConnection();
  return result;
}

}  // namespace tolven

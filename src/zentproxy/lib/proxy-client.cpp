#include "zentproxy/lib/proxy-client.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "zentproxy/lib/proxy-auth.h"
#include "zentproxy/lib/proxy-log.h"

namespace tolven::ZentProxy {

namespace {

using platform::SocketAddress;
using platform::Status;

constexpr int kConnectSeconds = 10;
constexpr std::int64_t kAllMs = 60'000;
constexpr std::int64_t kConnectSliceMs = 800;
constexpr int kLingerSeconds = 1;
constexpr int kIPv4 = 4;
constexpr int kAuthTypes = 4;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

bool Complain(int line, const xchar* format) {
  LogProxy(Logger::L_ERR, format, line);
  return false;
}

bool Complain(int line, const xchar* format, std::uint16_t port) {
  LogProxy(Logger::L_ERR, format, line, port);
  return false;
}

int ConnectFailed(int line, const Status& status) {
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyclient_cpp [%d]Failed to connect '%d'\n", line,
           status.code);
  return -1;
}

}  // namespace

ProxyClient::~ProxyClient() { CloseSocket(); }

void ProxyClient::SetInfo(const PROXY_SERVER_INFO* server, const PROXY_TARGET_INFO* target,
                          const PROXY_AUTH_INFO* auth) {
  pProxyServerInfo = server;
  pProxyTargetInfo = target;
  pProxyAuthInfo = auth;
  realAuthType = auth->AuthType;
}

platform::NativeSocket ProxyClient::Handover() {
  return std::exchange(socket, platform::kInvalidSocket);
}

void ProxyClient::CloseSocket() {
  if (socket != platform::kInvalidSocket) (void)platform::sockets().Close(Handover());
}

bool ProxyClient::CheckParameters() const {
  const PROXY_SERVER_INFO* const server = pProxyServerInfo;
  const PROXY_TARGET_INFO* const target = pProxyTargetInfo;
  if (server == nullptr) {
    return Complain(__LINE__, L"[ERROR] lib/zentproxyclient_cpp [%d]proxy not set\n");
  }
  if (IsEmpty(server->szProxyAddress)) {
    return Complain(__LINE__, L"[ERROR] lib/zentproxyclient_cpp [%d]proxy ip is not set\n");
  }
  if (server->ProxyPort == 0) {
    return Complain(__LINE__,
                    L"[ERROR] lib/zentproxyclient_cpp [%d]proxy port is not valid: '%u'\n",
                    server->ProxyPort);
  }
  if (target == nullptr) {
    return Complain(__LINE__, L"[ERROR] lib/zentproxyclient_cpp [%d]target not set\n");
  }
  if (IsEmpty(target->szTargetAddress)) {
    return Complain(__LINE__, L"[ERROR] lib/zentproxyclient_cpp [%d]target ip is not set\n");
  }
  if (target->TargetPort == 0) {
    return Complain(__LINE__,
                    L"[ERROR] lib/zentproxyclient_cpp [%d]target port is not valid: '%u'\n",
                    target->TargetPort);
  }
  return true;
}

int ProxyClient::Connect() {
  if (!CheckParameters()) return -1;
  CloseSocket();
  if (realAuthType == PROXY_AUTO_AUTH) return HandleAutoAuth();
  end = Now() + kAllMs;
  if (ConnectToProxy(kConnectSeconds) < 0) return -1;
  const int result = Authenticate();
  if (result >= 0) return 0;
  LogProxy(Logger::L_INFO,
           L"[INFO] lib/zentproxyclient_cpp [%d]Auth failed; rc='%d'; auth_type = '%d'\n", __LINE__,
           result, realAuthType);
  CloseSocket();
  return -1;
}

int ProxyClient::Authenticate() {
  const ProxySocket proxy{socket, abort, end};
  switch (realAuthType) {
    case PROXY_NO_AUTH:
      return ZENTProxyClientHandleNoAuth(proxy, *pProxyTargetInfo);
    case PROXY_BASIC_AUTH:
      return ZENTProxyClientHandleBASICAuth(proxy, *pProxyTargetInfo, *pProxyAuthInfo);
    case PROXY_NTLM_AUTH:
      return ZENTProxyClientHandleNTLMv1Auth(proxy, *pProxyTargetInfo, *pProxyAuthInfo);
    case PROXY_NTLMv2_AUTH:
      return ZENTProxyClientHandleNTLMv2Auth(proxy, *pProxyTargetInfo, *pProxyAuthInfo);
    case PROXY_AUTO_AUTH:
      break;
  }
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyclient_cpp [%d]Invalid auth type: %d\n", __LINE__,
           realAuthType);
  return -1;
}

// All types at once, so that the choice takes no longer than its slowest run. The weakest that is
// enough wins, whichever was ready first.
int ProxyClient::HandleAutoAuth() {
  std::array<ProxyClient, kAuthTypes> clients;
  std::array<int, kAuthTypes> results;
  results.fill(-1);
  std::vector<std::thread> runs;
  for (std::size_t type = 0; type < clients.size(); ++type) {
    clients[type].SetInfo(pProxyServerInfo, pProxyTargetInfo, pProxyAuthInfo);
    clients[type].SetAbortFlag(abort);
    clients[type].realAuthType = static_cast<PROXY_AUTH_TYPE>(type);
    try {
      runs.emplace_back(&RunProxyAuth, &clients[type], &results[type]);
    } catch (const std::system_error&) {
      runs.emplace_back();  // a system short of threads: this type has failed
    }
  }
  for (std::size_t type = 0; type < clients.size(); ++type) {
    if (runs[type].joinable()) runs[type].join();
    if (results[type] < 0) {
      LogProxy(Logger::L_INFO,
               L"[INFO] lib/zentproxyclient_cpp [%d]Connect fail for auth type '%d'\n", __LINE__,
               type);
    } else if (socket == platform::kInvalidSocket) {
      LogProxy(Logger::L_INFO,
               L"[INFO] lib/zentproxyclient_cpp [%d]Use proxy auth '%d' as result\n", __LINE__,
               type);
      socket = clients[type].Handover();
    } else {
      LogProxy(Logger::L_INFO, L"[INFO] lib/zentproxyclient_cpp [%d]Discard proxy auth '%d'\n",
               __LINE__, type);
    }
  }
  return socket == platform::kInvalidSocket ? -1 : 0;
}

int ProxyClient::ConnectToProxy(int timeout) {
  std::vector<SocketAddress> addresses;
  const Status status = platform::sockets().Resolve(pProxyServerInfo->szProxyAddress,
                                                    pProxyServerInfo->ProxyPort, false, addresses);
  const auto first = std::find_if(addresses.begin(), addresses.end(),
                                  [](const auto& each) { return each.family == kIPv4; });
  if (!status.ok() || first == addresses.end()) {
    LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyclient_cpp [%d]Failed to resolve proxy\n",
             __LINE__);
    return -1;
  }
  if (CreateSocket() == 0 && DoConnect(*first, timeout) == 0) return 0;
  CloseSocket();
  return -1;
}

int ProxyClient::CreateSocket() {
  platform::Sockets& sockets = platform::sockets();
  if (sockets.Create(kIPv4, socket).ok() && sockets.SetLinger(socket, kLingerSeconds).ok() &&
      sockets.SetBlocking(socket, false).ok()) {
    return 0;
  }
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyclient_cpp [%d]Failed to create socket\n",
           __LINE__);
  return -1;
}

int ProxyClient::DoConnect(const SocketAddress& address, int timeout) {
  const Status status = platform::sockets().Connect(socket, address);
  if (status.ok()) return 0;
  if (!status.is(platform::ErrorKind::kInProgress) &&
      !status.is(platform::ErrorKind::kWouldBlock)) {
    return ConnectFailed(__LINE__, status);
  }
  const ProxySocket proxy{socket, abort, Now() + std::int64_t{timeout} * 1000};
  int ready = 0;
  while (ready == 0) ready = proxy.Await(platform::SocketWait::kWrite, kConnectSliceMs);
  if (ready > 0) {
    // A refused connection is writable, too: only its pending error tells.
    const Status pending = platform::sockets().PendingError(socket);
    return pending.ok() ? 0 : ConnectFailed(__LINE__, pending);
  }
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyclient_cpp [%d]Select timed out\n", __LINE__);
  return -1;
}

}  // namespace tolven::ZentProxy

// Asks an HTTP proxy for a connection to a target.
#pragma once

#include <atomic>

#include "zentproxy/lib/proxy-socket.h"
#include "zentproxy/lib/proxy-types.h"

namespace tolven::ZentProxy {

// Belongs to one thread. The automatic choice works in four threads of its own, which are over when
// Connect returns.
class ProxyClient {
 public:
  ProxyClient() = default;
  ~ProxyClient();  // closes a socket that nobody took over
  ProxyClient(const ProxyClient&) = delete;
  ProxyClient& operator=(const ProxyClient&) = delete;

  // The records stay the caller's, and as they are while Connect runs.
  void SetInfo(const PROXY_SERVER_INFO* server, const PROXY_TARGET_INFO* target,
               const PROXY_AUTH_INFO* auth);
  // `*flag` ends Connect once it is not 0; null: no flag.
  void SetAbortFlag(const std::atomic<int>* flag) { abort = flag; }
  // 0 with a connection to the target, or -1. Takes 10 seconds for the connection to the proxy and
  // as much for each line of its answers, a minute in all.
  int Connect();
  // The connected socket, non-blocking, which is the caller's from now on; -1 when there is none.
  platform::NativeSocket Handover();

 private:
  bool CheckParameters() const;
  int HandleAutoAuth();
  int ConnectToProxy(int timeout);
  int CreateSocket();
  int DoConnect(const platform::SocketAddress& address, int timeout);
  int Authenticate();
  void CloseSocket();
  // One run of the automatic choice.
  static void RunProxyAuth(ProxyClient* client, int* result) { *result = client->Connect(); }

  PROXY_AUTH_TYPE realAuthType = PROXY_AUTO_AUTH;
  const PROXY_SERVER_INFO* pProxyServerInfo = nullptr;
  const PROXY_TARGET_INFO* pProxyTargetInfo = nullptr;
  const PROXY_AUTH_INFO* pProxyAuthInfo = nullptr;
  const std::atomic<int>* abort = nullptr;
  platform::NativeSocket socket = platform::kInvalidSocket;
  std::int64_t end = 0;  // of everything, in milliseconds of the monotonic clock
};

}  // namespace tolven::ZentProxy

#include "server/protocol/listener.h"

#include <vector>

#include "lib/log.h"

namespace tolven::server {

namespace {

constexpr const char* kCategory = "server";
constexpr int kBacklog = 256;

}  // namespace

Listener::~Listener() {
  if (socket_ != platform::kInvalidSocket) (void)platform::sockets().Close(socket_);
}

int Listener::Open(const std::string& address, int port) {
  platform::Sockets& sockets = platform::sockets();
  std::vector<platform::SocketAddress> addresses;
  platform::Status status = sockets.Resolve(address, port, false, addresses);
  if (status.ok() && addresses.empty()) status = {platform::ErrorKind::kNotFound, 0};
  if (status.ok()) status = sockets.Create(addresses.front().family, socket_);
  if (status.ok()) status = sockets.Bind(socket_, addresses.front());
  if (status.ok()) status = sockets.Listen(socket_, kBacklog);
  // A connection can vanish between the wait and the accept, which must not block then.
  if (status.ok()) status = sockets.SetBlocking(socket_, false);
  if (status.ok()) status = sockets.LocalPort(socket_, port_);
  if (status.ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] listener(%d): cannot listen on %s:%d: %s\n",
                 __LINE__, address, port, platform::StatusText(status));
  return -1;
}

platform::NativeSocket Listener::Accept(int wait_ms) {
  platform::NativeSocket peer = platform::kInvalidSocket;
  if (!platform::sockets().Wait(socket_, platform::SocketWait::kRead, wait_ms).ok()) return peer;
  return platform::sockets().Accept(socket_, peer).ok() ? peer : platform::kInvalidSocket;
}

}  // namespace tolven::server

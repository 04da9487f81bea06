#include "lib/ipc-listener.h"

#include "lib/log.h"

namespace tolven {
namespace {

using platform::Status;

constexpr const char* kCategory = "channel_ui_debug";
constexpr int kBacklog = 8;
constexpr int kLastPort = 65535;

// -1, for the callers' convenience.
int Failed(const char* step, const Status& status) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] ipc(%d): %s: Error Code: %d\n", __LINE__, step,
                 status.code);
  return -1;
}

// A pending connection can vanish between the wait and the accept, which must not block then.
Status Listen(platform::NativeSocket socket) {
  const Status status = platform::sockets().Listen(socket, kBacklog);
  return status.ok() ? platform::sockets().SetBlocking(socket, false) : status;
}

}  // namespace

int IPCListener::prepare(int start_port) {
  for (int port = start_port;; ++port) {
    close();
    const Status created = platform::sockets().Create(4, fd_);
    if (!created.ok()) return Failed("socket", created);

    port = do_bind(fd_, port);
    if (port < 0) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] ipc(%d): find available port failed.\n",
                     __LINE__);
      close();
      return -1;
    }
    const Status listening = Listen(fd_);
    if (listening.ok()) {
      Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] ipc(%d): listening on port %d\n", __LINE__,
                     port);
      return port;
    }
    close();
    (void)Failed("listen", listening);
    // Two processes can bind one port at once; it belongs to the first that listens.
    if (!listening.is(platform::ErrorKind::kAddressInUse)) return -1;
  }
}

int IPCListener::do_bind(socket_type socket, int start_port) {
  for (int port = start_port;; ++port) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] ipc(%d): Try to bind port: %d\n", __LINE__,
                   port);
    if (port > kLastPort) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] ipc(%d): Port number exceeds 65536\n",
                     __LINE__);
      return -1;
    }
    const Status bound = platform::sockets().BindLoopback(socket, port);
    if (bound.ok()) {
      Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] ipc(%d): Bind port %d success\n", __LINE__,
                     port);
      return port;
    }
    Failed("bind", bound);
    Logger::LogMsg(Logger::L_INFO, kCategory,
                   L"[INFO] ipc(%d): Bind port %d failed, try next one\n", __LINE__, port);
  }
}

int IPCListener::prepare(const std::string& path) {
  close();
  return OpenDomainSocket(path);
}

bool IPCListener::isReady() const {
  if (fd_ == platform::kInvalidSocket) return false;
  return platform::sockets()
      .Wait(fd_, platform::SocketWait::kRead, static_cast<int>(timeout_.count()))
      .ok();
}

IPCListener::socket_type IPCListener::accept() {
  socket_type peer = platform::kInvalidSocket;
  if (fd_ == platform::kInvalidSocket) return peer;
  return platform::sockets().Accept(fd_, peer).ok() ? peer : platform::kInvalidSocket;
}

void IPCListener::close() {
  if (fd_ != platform::kInvalidSocket) CloseSocket(fd_);
  fd_ = platform::kInvalidSocket;
}

IPCListener::socket_type IPCListener::OpenSocket(int port) {
  socket_type socket = platform::kInvalidSocket;
  const Status created = platform::sockets().Create(4, socket);
  if (!created.ok()) return Failed("socket", created);
  const Status bound = platform::sockets().BindLoopback(socket, port);
  const Status listening = bound.ok() ? Listen(socket) : bound;
  if (!listening.ok()) {
    Failed(bound.ok() ? "listen" : "bind", listening);
    CloseSocket(socket);
    return platform::kInvalidSocket;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] ipc(%d): listening on port %d\n", __LINE__,
                 port);
  return socket;
}

int IPCListener::CloseSocket(socket_type socket) {
  return platform::sockets().Close(socket).ok() ? 0 : -1;
}

int IPCListener::OpenDomainSocket(const std::string&) { return -1; }

}  // namespace tolven

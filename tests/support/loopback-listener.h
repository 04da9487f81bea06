// A socket that listens on a free port of 127.0.0.1.
#pragma once

#include <atomic>
#include <stdexcept>
#include <vector>

#include "platform/sockets.h"

namespace tolven::test {

// The system's own sockets, whatever a test puts in their place.
inline platform::Sockets& g_sockets = platform::sockets();

class LoopbackListener {
 public:
  LoopbackListener() {
    if (!g_sockets.Create(4, listener_).ok() || !g_sockets.BindLoopback(listener_, 0).ok() ||
        !g_sockets.Listen(listener_, 64).ok() || !g_sockets.LocalPort(listener_, port_).ok()) {
      throw std::runtime_error("no listener");
    }
  }
  ~LoopbackListener() { (void)g_sockets.Close(listener_); }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  int port() const { return port_; }

  // Waits for the next visitor, whose socket blocks; false once it was stopped.
  bool Accept(platform::NativeSocket& peer) {
    if (!g_sockets.Accept(listener_, peer).ok()) return false;
    if (is_stopped_) (void)g_sockets.Close(peer);
    return !is_stopped_;
  }
  // From another thread. Not every system lets go of an accept when the socket is shut down; each
  // does when someone comes.
  void Stop() {
    is_stopped_ = true;
    (void)g_sockets.Close(Connect(port_));
  }

  // A connection to a port here that blocks; kInvalidSocket for none.
  static platform::NativeSocket Connect(int port) {
    platform::NativeSocket made = platform::kInvalidSocket;
    std::vector<platform::SocketAddress> addresses;
    if (!g_sockets.Resolve("127.0.0.1", port, true, addresses).ok() ||
        !g_sockets.Create(4, made).ok()) {
      return platform::kInvalidSocket;
    }
    if (g_sockets.Connect(made, addresses.front()).ok()) return made;
    (void)g_sockets.Close(made);
    return platform::kInvalidSocket;
  }

 private:
  platform::NativeSocket listener_ = platform::kInvalidSocket;
  int port_ = 0;
  std::atomic<bool> is_stopped_{false};
};

}  // namespace tolven::test

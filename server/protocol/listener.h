// The listening socket of the server.
#pragma once

#include <string>

#include "platform/sockets.h"

namespace tolven::server {

class Listener {
 public:
  Listener() = default;
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Listens on `address`, a host name or literal; port 0: any free one. 0, or -1 with a log line.
  int Open(const std::string& address, int port);
  int port() const { return port_; }
  // Waits at most `wait_ms` for a connection: its socket, which is the caller's, or
  // kInvalidSocket.
  platform::NativeSocket Accept(int wait_ms);

 private:
  platform::NativeSocket socket_ = platform::kInvalidSocket;
  int port_ = 0;
};

}  // namespace tolven::server

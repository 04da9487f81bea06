// A way to a server on 127.0.0.1 whose connections can be broken.
#pragma once

#include <atomic>
#include <list>
#include <mutex>
#include <thread>

#include "platform/sockets.h"

namespace tolven::test {

class Forwarder {
 public:
  explicit Forwarder(int server_port);
  ~Forwarder();
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  int port() const { return port_; }
  // Breaks all connections of this moment.
  void Drop() { ++broken_; }

 private:
  void Accept();
  // Carries bytes both ways until one side ends or the connections are broken.
  void Carry(platform::NativeSocket client, int generation);

  const int server_port_;
  platform::NativeSocket listener_ = platform::kInvalidSocket;
  int port_ = 0;
  std::atomic<int> broken_{0};
  std::atomic<bool> is_over_{false};
  std::list<std::thread> links_;  // of the accepting thread, until that has ended
  std::thread acceptor_;
};

}  // namespace tolven::test

// Listens on 127.0.0.1 and serves each connection in a thread of its own.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <thread>
#include <utility>

#include "lib/channel.h"
#include "platform/sockets.h"
#include "support/loopback-listener.h"

namespace tolven::test {

class Acceptor {
 public:
  // Called with the open channel, whose I/O ends with the acceptor, and the number of the
  // connection, from 0 on.
  using Serve = std::function<void(Channel& channel, int number)>;

  explicit Acceptor(Serve serve) : serve_(std::move(serve)) {
    acceptor_ = std::thread([this] { Accept(); });
  }
  ~Acceptor() {
    stop_ = 1;
    listener_.Stop();
    acceptor_.join();
    for (std::thread& connection : connections_) connection.join();
  }
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;

  int port() const { return listener_.port(); }
  int accepted() const { return accepted_; }

 private:
  void Accept() {
    platform::NativeSocket peer = platform::kInvalidSocket;
    while (listener_.Accept(peer)) {
      connections_.emplace_back([this, peer, number = accepted_++] {
        Channel channel;
        channel.SetFlag(&stop_);
        if (channel.Open(peer, true) == 0) serve_(channel, number);
        channel.Close();
      });
    }
  }

  const Serve serve_;
  std::atomic<int> stop_{0};
  std::atomic<int> accepted_{0};
  LoopbackListener listener_;
  std::thread acceptor_;
  std::list<std::thread> connections_;  // the acceptor's, until it has ended
};

// The header of a request; false when it is not one of the protocol.
inline bool ReadHeader(Channel& channel, std::uint8_t& command) {
  std::uint32_t magic = 0;
  std::uint16_t length = 0;
  std::uint8_t version = 0;
  return channel.ReadInt32(magic) == 0 && channel.ReadByte(version) == 0 &&
         channel.ReadByte(command) == 0 && channel.ReadInt16(length) == 0 && magic == 0x25521814 &&
         version == 70;
}

}  // namespace tolven::test

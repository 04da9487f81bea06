// Two channels joined over loopback, for tests and benchmarks.
#pragma once

#include <stdexcept>

#include "lib/channel.h"
#include "platform/sockets.h"

namespace tolven::test {

struct ChannelPair {
  Channel a{0x14000}, b{0x14000};

  ChannelPair() {
    platform::Sockets& sockets = platform::sockets();
    platform::NativeSocket listener = platform::kInvalidSocket, peer = platform::kInvalidSocket;
    int port = 0;
    Require(sockets.Create(4, listener).ok());
    Require(sockets.BindLoopback(listener, 0).ok());
    Require(sockets.Listen(listener, 1).ok());
    Require(sockets.LocalPort(listener, port).ok());
    Require(a.Open("127.0.0.1", port) == 0);
    Require(sockets.Accept(listener, peer).ok());
    Require(b.Open(peer, true) == 0);
    Require(sockets.Close(listener).ok());
  }

 private:
  static void Require(bool held) {
    if (!held) throw std::runtime_error("no pair of channels");
  }
};

}  // namespace tolven::test

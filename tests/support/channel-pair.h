// Two channels joined over loopback, for tests.
#pragma once

#include <gtest/gtest.h>

#include "lib/channel.h"
#include "platform/sockets.h"

namespace tolven::test {

struct ChannelPair {
  Channel a{0x14000}, b{0x14000};

  ChannelPair() {
    platform::Sockets& sockets = platform::sockets();
    platform::NativeSocket listener = platform::kInvalidSocket, peer = platform::kInvalidSocket;
    int port = 0;
    std::vector<platform::SocketAddress> address;
    EXPECT_TRUE(sockets.Resolve("127.0.0.1", 0, true, address).ok());
    EXPECT_TRUE(sockets.Create(address.front().family, listener).ok());
    EXPECT_TRUE(sockets.BindLoopback(listener, 0).ok());
    EXPECT_TRUE(sockets.Listen(listener, 1).ok());
    EXPECT_TRUE(sockets.LocalPort(listener, port).ok());
    EXPECT_EQ(a.Open("127.0.0.1", port), 0);
    EXPECT_TRUE(sockets.Accept(listener, peer).ok());
    EXPECT_EQ(b.Open(peer, true), 0);
    EXPECT_TRUE(sockets.Close(listener).ok());
  }
};

}  // namespace tolven::test

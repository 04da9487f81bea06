// A listening socket on loopback, for tests.
#pragma once

#include <gtest/gtest.h>

#include "platform/sockets.h"

namespace tolven::test {

struct Listener {
  Listener() {
    EXPECT_TRUE(platform::sockets().Create(4, fd).ok());
    EXPECT_TRUE(platform::sockets().BindLoopback(fd, 0).ok());
    EXPECT_TRUE(platform::sockets().Listen(fd, 1).ok());
    EXPECT_TRUE(platform::sockets().LocalPort(fd, port).ok());
  }
  ~Listener() { EXPECT_TRUE(platform::sockets().Close(fd).ok()); }

  platform::NativeSocket fd = platform::kInvalidSocket;
  int port = 0;
};

}  // namespace tolven::test

#include "libzentcat/lib/utils/net.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "libzentcat/lib/bio/ssl-client-socket.h"
#include "libzentcat/lib/utils/line-buffer.h"

namespace tolven::TolvenApplication {
namespace {

TEST(NetTest, TellsLiteralsFromNames) {
  for (const char* text : {"0.0.0.0", "127.0.0.1", "255.255.255.255"}) {
    EXPECT_TRUE(Net::IsIPv4(text)) << text;
  }
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.a", "1..2.3", "01.2.3.4",
                           "1.2.3.4 ", "+1.2.3.4", "host.example", "localhost"}) {
    EXPECT_FALSE(Net::IsIPv4(text)) << text;
  }
  for (const char* text : {"::", "::1", "1::", "fe80::1%eth0", "1:2:3:4:5:6:7:8", "::ffff:1.2.3.4",
                           "1:2:3:4:5:6:1.2.3.4", "ABCD::ef01", "1:2:3:4:5:6:7::"}) {
    EXPECT_TRUE(Net::IsIPv6(text)) << text;
  }
  for (const char* text : {"", ":", ":::", "1", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3",
                           "12345::", "g::", "::1%", "1.2.3.4::", "1:2:3:4:5:6:7:8::", ":1::"}) {
    EXPECT_FALSE(Net::IsIPv6(text)) << text;
  }
}

TEST(NetTest, ParsesAddressesWithAndWithoutPort) {
  std::string address;
  int port = -1;
  EXPECT_TRUE(Net::ParseIPv4("10.0.0.1", address, port));
  EXPECT_EQ(port, -1);
  EXPECT_TRUE(Net::ParseIPv6("[::1]:65535", address, port));
  EXPECT_EQ(address, "::1");
  EXPECT_EQ(port, 65535);
  EXPECT_TRUE(Net::ParseIPv4("10.0.0.1:80", address, port) && port == 80);
  EXPECT_FALSE(Net::ParseIPv4("10.0.0.1:", address, port));
  EXPECT_FALSE(Net::ParseIPv4("10.0.0.2:65536", address, port));
  EXPECT_FALSE(Net::ParseIPv6("[::1", address, port) || Net::ParseIPv6("[::1]8", address, port));
  EXPECT_EQ(address, "10.0.0.1");
  EXPECT_TRUE(Net::IsLocalAddressv4("172.31.0.1") && Net::IsLocalAddressv6("::ffff:10.0.0.1"));
  EXPECT_TRUE(Net::IsLocalAddressv6("fe80::1") && Net::IsLocalAddressv6("::1"));
  EXPECT_FALSE(Net::IsLocalAddressv4("172.32.0.1") || Net::IsLocalAddressv6("2001:db8::1"));
}

TEST(HostNameTest, MatchesTheNamesOfACertificate) {
  const struct {
    const char* pattern;
    const char* host;
    bool matches;
  } cases[] = {
      {"*.example", "a.example", true},
      {"*.example", "example", true},
      {"*.example", "a.b.example", false},
      {"*.EXAMPLE", "A.example", true},
      {"*", "example", false},
      {"*", "", false},
      {"Hub.Example", "hub.example", true},
      {"hub.example", "hub.example.org", false},
      {"", "hub.example", false},
      {"*.example", "example.", false},
      {"*.", "host", false},
      {"*.com", "host", false},
  };
  for (const auto& c : cases) {
    SslClientSocket socket;
    socket.setVerifyHostname(c.host);
    EXPECT_EQ(socket.matchHostname(c.pattern), c.matches) << c.pattern << " " << c.host;
  }
  SslClientSocket socket;
  socket.setVerifyHostname("good.example");
  EXPECT_FALSE(socket.matchHostname(std::string("good.example\0.evil", 18)));
}

// Every mixture of operations gives what a plain string gives.
TEST(LineBufferTest, KeepsItsContentAtEveryBoundary) {
  LineBuffer<char> buffer(16);
  std::string model;
  std::mt19937 random(7);
  char next = 0;
  for (int step = 0; step < 20000; ++step) {
    const std::size_t count = random() % 18;
    if (random() % 2 == 0) {
      std::string piece;
      for (std::size_t i = 0; i < count; ++i) piece += next++;
      const bool fits = model.size() + count <= 16;
      ASSERT_EQ(buffer.write(piece.data(), count), fits);
      if (fits) model += piece;
    } else {
      char out[18];
      const std::size_t got = buffer.read(out, count);
      ASSERT_EQ(std::string(out, got), model.substr(0, count));
      model.erase(0, got);
    }
    ASSERT_EQ(buffer.size(), model.size());
    ASSERT_EQ(buffer.room(), 16 - model.size());
    ASSERT_EQ(std::string(buffer.head(), buffer.size()), model);
  }
}

}  // namespace
}  // namespace tolven::TolvenApplication

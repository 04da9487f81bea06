// Channels through a relay, alone and behind a proxy.
#include "lib/tunnel-channel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "lib/proxy-tunnel-channel.h"
#include "libzenttunnelclient/tunnel-client.h"
#include "protocol/scripted-peer.h"
#include "support/test-proxy.h"
#include "support/test-relay.h"

namespace tolven {
namespace {

using std::chrono::seconds;
using test::LoopbackServer;
using test::TestProxy;
using test::TestRelay;

TunnelInfo TunnelTo(int port) { return {true, "127.0.0.1", static_cast<std::uint16_t>(port)}; }

ProxyInfo ProxyAt(int port) {
  ProxyInfo proxy;
  proxy.use_proxy = true;
  proxy.proxy_ip = "127.0.0.1";
  proxy.proxy_port = static_cast<std::uint16_t>(port);
  proxy.user_name = "ann";
  proxy.password = "secret";
  return proxy;
}

// Sends integers back, the first in clear and the next in TLS.
void Server(test::Visitor& visitor) {
  std::uint32_t value = 0;
  for (bool is_clear = true;; is_clear = false) {
    if (visitor.channel.ReadInt32(value) != 0) return;
    visitor.channel.WriteInt32(value);
    visitor.channel.FlushWrite(0);
    if (is_clear && visitor.channel.ConvertToSSLChannel(true) != 0) return;
  }
}

// What the protocol does: first in clear, then in a TLS of its own with the server.
void Speak(Channel& channel, const test::Certificates& certificates) {
  Channel::SetVerifyCAPath(certificates.ca());
  channel.SetAllowUntrust(false);
  channel.SetSSLHostname("hub.example");
  for (const std::uint32_t sent : {0x01020304U, 0x05060708U}) {
    std::uint32_t value = 0;
    ASSERT_EQ(channel.WriteInt32(sent), 0);
    ASSERT_EQ(channel.FlushWrite(0), 0);
    ASSERT_EQ(channel.ReadInt32(value), 0);
    EXPECT_EQ(value, sent);
    ASSERT_EQ(sent == 0x01020304U ? channel.ConvertToSSLChannel(false) : 0, 0);
  }
}

TEST(TunnelChannelTest, CarriesTheProtocolAndItsOwnTls) {
  const test::Certificates certificates("hub.example", "");
  Channel::SetCERTPath(certificates.certificate().str());
  Channel::SetPriKeyPath(certificates.key().str());
  test::ScriptedPeer server(Server);
  const TestRelay relay;
  const TestProxy proxy(TestProxy::Wants::kBasic, {"ann", "secret", "", ""});
  TunnelChannel alone(TunnelTo(relay.port()));
  ProxyTunnelChannel behind(ProxyAt(proxy.port()), TunnelTo(relay.port()));
  for (Channel* const channel : {static_cast<Channel*>(&alone), static_cast<Channel*>(&behind)}) {
    // Twice, the second time over an open one that asks for a good certificate of "hub.example":
    // the relay has another.
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(channel->Open("127.0.0.1", server.port()), 0);
      Speak(*channel, certificates);
    }
    channel->Close();
    EXPECT_TRUE(channel->IsClosed());
  }
  EXPECT_EQ(relay.joined(), 4);
  EXPECT_TRUE(relay.problems().empty()) << relay.problems().front();
  EXPECT_EQ(proxy.targets(), std::set<std::string>{"127.0.0.1:" + std::to_string(relay.port())});
  Channel::SetVerifyCAPath("");
}

TEST(TunnelChannelTest, JudgesTheRelaysAnswer) {
  const std::string start = "HTTP/1.1 101 Switching Protocols\r\n";
  const struct {
    std::string answer;
    bool is_good;
  } cases[] = {
      {start + "X-Target-Status: 0\r\n\r\n", true},
      {start + "\r\n", true},
      {"\n", true},
      {"", true},  // hangs up
      {start, true},
      {start + "X-TARGET-STATUS: 5\r\n\r\n", true},
      {start + "X-Target-Status: none\r\n\r\n", true},
      {start + "X-Target-Status: 5\r\n\r\n", false},
      {start + "X-Target-Status:\t-7\r\n\r\n", false},
      {start + "X-Target-Status:9 X-Target-Status: 0\n\n", false},
      {start + "X-Target-Status: 99999999999999999999\r\n\r\n", false},
      {start + "X-Target-Status: 5\r\nX-Target-Status: 0\r\n\r\n", true},
      {start + "X-Target-Status: 5\r\n", false},
      {start + "X-Long: " + std::string(1013, 'x') + "\r\nX-Target-Status: 5\r\n\r\n", false},
      // What is left behind the header, or is none, never reaches the protocol.
      {start + "X-Target-Status: 0\r\n\r\n1", false},
      {start + "X-Long: " + std::string(2000, 'x') + "\r\n\r\n", false},
      {std::string(1'000'000, '\0'), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer.substr(0, 120));
    const TestRelay relay({.answer = c.answer, .stays = false});
    TunnelChannel channel(TunnelTo(relay.port()));
    EXPECT_EQ(channel.Open("192.0.2.1", 6690), c.is_good ? 0 : -2);
    EXPECT_EQ(channel.IsClosed(), !c.is_good);
    EXPECT_TRUE(relay.problems().size() <= 1) << relay.problems().front();
  }
}

TEST(TunnelChannelTest, FailsWithoutARelay) {
  EXPECT_EQ(TunnelChannel(TunnelTo(1)).Open(nullptr, 0), 0);
  EXPECT_EQ(ProxyTunnelChannel(ProxyAt(1), TunnelTo(1)).Open("host", -1), 0);
  const TestProxy proxy(TestProxy::Wants::kNothing);
  // No TLS, a TLS that is too new, and nobody at all.
  const LoopbackServer plain([](LoopbackServer::Socket client) {
    LoopbackServer::Send(client, "HTTP/1.1 200 OK\r\n\r\n");
  });
  const TestRelay modern({.least_version = TLS1_3_VERSION});
  int closed = 0;
  {
    const LoopbackServer gone([](LoopbackServer::Socket) {});
    closed = gone.port();
  }
  for (const int port : {plain.port(), modern.port(), closed}) {
    TunnelChannel alone(TunnelTo(port));
    EXPECT_EQ(alone.Open("127.0.0.1", 1), -2);
    EXPECT_TRUE(alone.IsClosed());
    ProxyTunnelChannel behind(ProxyAt(proxy.port()), TunnelTo(port));
    EXPECT_EQ(behind.Open("127.0.0.1", 1), -2);
    EXPECT_TRUE(behind.IsClosed());
  }
  TunnelChannel endless(TunnelTo(plain.port()));
  EXPECT_EQ(endless.Open(std::string(2000, 'x').c_str(), 1), -2);
}

// A relay that says nothing counts as one that has agreed, but not for ever, nor against our will.
TEST(TunnelChannelTest, DoesNotWaitForEver) {
  const TestRelay relay({.answer = ""});
  test::ScriptedPeer server([](test::Visitor& visitor) { visitor.Stall(); });
  TunnelChannel channel(TunnelTo(relay.port()));
  channel.SetTimeout(1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(channel.Open("127.0.0.1", server.port()), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));

  channel.SetTimeout(600);
  std::atomic<int> abort{0};
  channel.SetFlag(&abort);
  const int before = relay.joined();
  auto result =
      std::async(std::launch::async, [&] { return channel.Open("127.0.0.1", server.port()); });
  while (relay.joined() == before) std::this_thread::yield();
  abort = 1;
  EXPECT_EQ(result.get(), -2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(60));
}

}  // namespace
}  // namespace tolven

// A proxy of this system, with a login, between the client and a server.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "lib/proto-client.h"
#include "platform/process.h"
#include "protocol/scripted-peer.h"
#include "support/loopback-server.h"
#include "support/temp-folder.h"
#include "support/test-relay.h"

namespace tolven {
namespace {

using test::LoopbackServer;

// The real program with a configuration of its own, until the object goes.
class Tinyproxy {
 public:
  Tinyproxy() {
    // Another process may take the port before the proxy does.
    for (int i = 0; i < 10 && !is_up_; ++i) Start();
    EXPECT_TRUE(is_up_) << test::ReadFile(folder_ / "output") << test::ReadFile(folder_ / "log");
  }
  ~Tinyproxy() { Stop(); }
  Tinyproxy(const Tinyproxy&) = delete;
  Tinyproxy& operator=(const Tinyproxy&) = delete;

  int port() const { return port_; }
  std::string Log() const { return test::ReadFile(folder_ / "log"); }

 private:
  void Start() {
    port_ = LoopbackServer([](LoopbackServer::Socket) {}).port();
    test::WriteFile(folder_ / "conf", "Port " + std::to_string(port_) +
                                          "\nListen 127.0.0.1\nTimeout 600\nMaxClients 50\n"
                                          "Allow 127.0.0.1\nBasicAuth ann secret\nLogLevel Info\n"
                                          "LogFile \"" +
                                          (folder_ / "log").str() + "\"\n");
    ASSERT_TRUE(platform::process()
                    .Spawn({TINYPROXY, "-d", "-c", folder_ / "conf"}, folder_ / "output", child_)
                    .ok());
    LoopbackServer probe([](LoopbackServer::Socket) {});
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    int status = 0;
    while (!is_up_ && std::chrono::steady_clock::now() < end &&
           !platform::process().WaitForExit(child_, 20, status)) {
      const LoopbackServer::Socket socket = probe.Connect(port_);
      is_up_ = socket != platform::kInvalidSocket;
      if (is_up_) probe.Close(socket);
    }
    if (!is_up_) Stop();
  }
  void Stop() {
    int status = 0;
    (void)platform::process().Kill(child_);
    (void)platform::process().WaitForExit(child_, 60'000, status);
  }

  const test::TempFolder folder_;
  platform::ChildProcess child_;
  int port_ = 0;
  bool is_up_ = false;
};

ProxyInfo InfoOf(const Tinyproxy& proxy, const std::string& password, ProxyInfo::AuthType type) {
  ProxyInfo info;
  info.use_proxy = true;
  info.proxy_ip = "localhost";
  info.proxy_port = static_cast<std::uint16_t>(proxy.port());
  info.user_name = "ann";
  info.password = password;
  info.auth_type = type;
  return info;
}

// A server that answers a test of the connection.
void AnswerTest(test::Visitor& visitor) {
  std::string asked(8, '\0');
  if (visitor.channel.Read(asked.data(), asked.size()) != 0) return;
  constexpr char kAnswer[] = {1, 1, 28, 70, 27, 0, 0, 29, 0, 1, 'i'};
  visitor.Write(asked + std::string(kAnswer, sizeof kAnswer));
  visitor.Stall();
}

TEST(TinyproxyTest, LeadsToTheServerWithTheRightPassword) {
  const Tinyproxy proxy;
  ASSERT_GT(proxy.port(), 0);
  test::ScriptedPeer peer(AnswerTest);
  const test::TestRelay relay;
  std::uint8_t version = 0;
  ustring serial, server;
  const auto test = [&](const ProxyInfo& info, const TunnelInfo* tunnel) {
    return ProtoTestConnectionProxyTunnel("127.0.0.1", peer.port(), &info, tunnel, false, version,
                                          serial, server);
  };
  EXPECT_EQ(test(InfoOf(proxy, "secret", ProxyInfo::AUTH_BASIC), nullptr), 0) << proxy.Log();
  EXPECT_EQ(version, 70);
  EXPECT_EQ(test(InfoOf(proxy, "secret", ProxyInfo::AUTH_AUTO), nullptr), 0) << proxy.Log();
  const int accepted = peer.accepted();
  EXPECT_EQ(test(InfoOf(proxy, "wrong", ProxyInfo::AUTH_AUTO), nullptr), -2);
  EXPECT_EQ(peer.accepted(), accepted);
  const TunnelInfo tunnel{true, "localhost", static_cast<std::uint16_t>(relay.port())};
  EXPECT_EQ(test(InfoOf(proxy, "secret", ProxyInfo::AUTH_AUTO), &tunnel), 0) << proxy.Log();
  EXPECT_EQ(server, "i");
  EXPECT_EQ(relay.joined(), 1);
  EXPECT_TRUE(relay.problems().empty()) << relay.problems().front();
}

}  // namespace
}  // namespace tolven

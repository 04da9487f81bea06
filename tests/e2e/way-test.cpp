// Clients that do not reach their server directly.
#include <string>

#include "e2e/sync-fixture.h"
#include "support/test-proxy.h"
#include "support/test-relay.h"

namespace tolven::test {
namespace {

const NtlmAccount kAccount{"ada", "pass word", "HOME", "DESK"};

class Way : public Sync {
 protected:
  static std::function<void(PObject&)> Through(int proxy, int relay) {
    return [=](PObject& request) {
      if (proxy != 0) {
        request["use_proxy"] = true;
        request["proxy_ip"] = "127.0.0.1";
        request["proxy_port"] = proxy;
        request["proxy_username"] = ustring(kAccount.user);
        request["proxy_password"] = ustring(kAccount.password);
        request["proxy_domain"] = ustring(kAccount.domain);
        request["proxy_host"] = ustring(kAccount.host);
      }
      if (relay != 0) {
        request["use_tunnel"] = true;
        request["tunnel_ip"] = "127.0.0.1";
        request["tunnel_port"] = relay;
      }
    };
  }
  // Changes go both ways between a client that goes a way and one that goes directly.
  void Exercise(const ClientProcess& far, const ClientProcess& near) {
    Tree wanted{{"from far", Noise(300'000, 1)}, {"dir", "<dir>"}, {"dir/from near", "near"}};
    Write(far, "from far", Noise(300'000, 1));
    Write(near, "dir/from near", "near");
    ExpectBoth(far, near, wanted);
    Write(far, "dir/from near", "edited");
    fs::remove((near / "from far").str());
    wanted.erase("from far");
    wanted["dir/from near"] = "edited";
    ExpectBoth(far, near, wanted);
  }
};

TEST_F(Way, ThroughAProxy) {
  const TestProxy proxy(TestProxy::Wants::kNtlm2, kAccount);
  ClientProcess far(server_, "far", {.tls = true, .way = Through(proxy.port(), 0)});
  const ClientProcess near(server_, "near");
  Exercise(far, near);
  EXPECT_GE(proxy.joined(), 1);
  EXPECT_EQ(proxy.targets(), std::set<std::string>{"127.0.0.1:" + std::to_string(server_.port)});
  EXPECT_TRUE(proxy.problems().empty()) << proxy.problems().front();
}

TEST_F(Way, ThroughARelay) {
  const TestRelay relay;
  ClientProcess far(server_, "far", {.tls = true, .way = Through(0, relay.port())});
  const ClientProcess near(server_, "near");
  Exercise(far, near);
  EXPECT_GE(relay.joined(), 1);
  EXPECT_TRUE(relay.problems().empty()) << relay.problems().front();
}

TEST_F(Way, ThroughAProxyAndARelay) {
  const TestProxy proxy(TestProxy::Wants::kBasic, kAccount);
  const TestRelay relay;
  ClientProcess far(server_, "far", {.tls = true, .way = Through(proxy.port(), relay.port())});
  const ClientProcess near(server_, "near");
  Exercise(far, near);
  EXPECT_EQ(relay.joined(), relay.accepted());
  EXPECT_EQ(proxy.targets(), std::set<std::string>{"127.0.0.1:" + std::to_string(relay.port())});
  EXPECT_TRUE(relay.problems().empty()) << relay.problems().front();
}

// A proxy that lets nobody in, and then does: the session waits and goes on.
TEST_F(Way, AProxyThatRefusesIsTriedAgain) {
  const TestProxy strict(TestProxy::Wants::kNtlm1, {"ada", "another", "HOME", "DESK"});
  const TestProxy open(TestProxy::Wants::kNothing);
  int port = strict.port();
  ClientProcess far(server_, "far", {.way = [&](PObject& request) { Through(port, 0)(request); }});
  const ClientProcess near(server_, "near");
  Write(near, "text", "text");
  EXPECT_TRUE(Eventually([&] {
    return far.Log().find("ProxyChannel: cannot connect to proxy") != std::string::npos;
  }));
  EXPECT_EQ(strict.joined(), 0);
  far.Stop();
  port = open.port();
  far.Start();
  ExpectBoth(far, near, {{"text", "text"}});
}

}  // namespace
}  // namespace tolven::test

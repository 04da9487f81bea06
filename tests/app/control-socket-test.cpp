// The control socket as a UI sees it, and as everybody else does.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "client/core/app.h"
#include "client/core/control-server.h"
#include "daemon-home.h"
#include "libzentcat/lib/io/socket.h"
#include "platform/fake-clock.h"
#include "platform/forwarding-system.h"
#include "support/local-ui.h"

namespace tolven {
namespace {

using platform::NativeSocket;

class Guests : public platform::ForwardingIdentity {
 public:
  Guests() : ForwardingIdentity(platform::identity()), before_(platform::SetIdentity(this)) {}
  ~Guests() override { platform::SetIdentity(before_); }
  platform::PeerOwner OwnerOfPeer(NativeSocket socket) override {
    auto owner = ForwardingIdentity::OwnerOfPeer(socket);
    EXPECT_EQ(owner, platform::PeerOwner::kAllowed);
    if (refuse) owner = platform::PeerOwner::kUnknown;
    ++seen;
    seen.notify_all();
    return owner;
  }
  std::atomic<int> seen{0};
  std::atomic<bool> refuse{false};

 private:
  platform::Identity* before_;
};

class ControlSocket : public testing::Test {
 protected:
  ControlSocket() {
    home.Load();
    app.run();
    EXPECT_EQ(server.Open(), 0);
    port = ui.Receive()["daemon_port"].asInt32();
    thread = std::thread([this] { server.Serve(); });
  }
  ~ControlSocket() override {
    PObject stop;
    stop["action"] = "stop";
    EXPECT_TRUE(test::LocalUi::Ask(port, stop).isNull());
    thread.join();
  }

  ustring Ask(const char* action, std::initializer_list<const char*> keys = {}) {
    PObject request;
    request["action"] = action;
    for (const char* key : keys) request[key] = 1;
    return test::LocalUi::Ask(port, request).toString();
  }
  struct Client : Channel {
    void ShutDown() { m_socket->shutdown(); }
  };
  // Sends bytes, and nothing after them when `ends`. Returns what comes back before the end.
  std::string Raw(const std::string& bytes, bool ends = false) {
    Client client;
    const int seen = guests.seen;
    EXPECT_EQ(client.Open("127.0.0.1", port), 0);
    (void)client.Write(bytes.data(), bytes.size());
    (void)client.FlushWrite(0);
    if (ends) client.ShutDown();
    guests.seen.wait(seen);
    std::string answer;
    for (std::uint8_t byte = 0; client.ReadByte(byte) == 0;) answer += static_cast<char>(byte);
    return answer;
  }

  test::LocalUi ui{27'000};
  test::DaemonHome home{ui.port()};
  Guests guests;
  platform::FakeClock clock;  // used by the cases that put it in place
  TolvenhubApp app{MakeTasks};
  ControlServer server{app};
  int port = 0;
  std::thread thread;
};

TEST_F(ControlSocket, AnswersEveryVerb) {
  const ustring ok = R"({"ack": "ok"})";
  const auto failed = [](const char* text) {
    return ustring(R"({"ack": "ok", "error": ")") + text + "\"}";
  };
  const ustring nothing =
      R"({"ack": "ok", "connection_list": [], "session_list": [], "worker_list": []})";
  const struct {
    const char* action;
    std::initializer_list<const char*> keys;
    ustring unlinked, linked;
  } cases[] = {
      {"get_status", {}, nothing, nothing},
      {"rename", {}, ok, ok},
      {"pause", {"session_id"}, failed("Daemon is not linked."), ok},
      {"resume", {"session_id"}, failed("Daemon is not linked."), ok},
      {"link_connection", {}, failed("Daemon is not linked."), failed("Invalid parameters")},
      {"reload_connection", {}, failed("Daemon is not linked."), failed("Invalid parameters")},
      {"unlink_connection", {"connection_id"}, failed("Daemon is not linked."), ok},
      {"reload_session", {}, failed("Daemon is not linked."), failed("Invalid parameter")},
      {"reload_session",
       {"session_id"},
       failed("Daemon is not linked."),
       failed("Invalid session.")},
      {"add_session",
       {"session_id", "connection_id"},
       failed("Daemon is not linked."),
       failed("Invalid parameters.")},
      {"remove_session",
       {"session_id"},
       failed("Daemon is not linked."),
       failed("Invalid session.")},
      {"remove_session", {}, failed("Daemon is not linked."), ok},
      {"add_event", {"session_id"}, failed("Daemon is not linked."), ok},
  };
  for (const auto& c : cases) EXPECT_EQ(Ask(c.action, c.keys), c.unlinked) << c.action;
  EXPECT_EQ(Ask("link"), ok);
  for (const auto& c : cases) EXPECT_EQ(Ask(c.action, c.keys), c.linked) << c.action;
  EXPECT_EQ(Ask("unlink"), ok);
  EXPECT_EQ(Ask("pause"), failed("Daemon is not linked."));
  EXPECT_EQ(test::LocalUi::Ask(port, PObject(5)).toString(), ok);
}

TEST_F(ControlSocket, DropsGarbageAndGoesOn) {
  using namespace std::string_literals;
  const std::string request = "\x42\x10\0\6action\x10\0\12get_status\x40"s;
  ASSERT_GT(Raw(request).size(), 50U);
  for (std::size_t size = 0; size < request.size(); ++size) {
    Raw(request.substr(0, size), true);
  }
  const std::string big_text = "\x10\xFF\xFF"s + std::string(65'535, 'x');
  std::string too_long = "\x41";
  for (int i = 0; i < 17; ++i) too_long += big_text;
  std::string too_many = "\x41";
  for (int i = 0; i < 100'001; ++i) too_many += "\x00\x00"s;
  for (const std::string& bytes :
       {"\x40"s, "\x77"s, "\x00\x01"s, "\x01\x09"s + std::string(9, 'x'), "\x42\x01\x01\x00"s,
        std::string(200'000, '\x41'), too_long, too_many, "\x42\x10\0\1f\x30\0\0\0\0\0\0\0\0\x40"s,
        "GET / HTTP/1.1\r\n\r\n"s}) {
    EXPECT_EQ(Raw(bytes), "") << bytes.substr(0, 20);
  }
  EXPECT_NE(Ask("get_status").find("ok"), ustring::npos);
}

TEST_F(ControlSocket, RefusesWhoeverIsNotItsUser) {
  guests.refuse = true;
  EXPECT_EQ(Ask("get_status"), ustring("null"));
  guests.refuse = false;
  EXPECT_NE(Ask("get_status").find("ok"), ustring::npos);
}

TEST_F(ControlSocket, CutsOffWhoeverStalls) {
  platform::Clock* const before = platform::SetClock(&clock);
  // However the ten seconds are spent: in silence, or with a byte now and then.
  for (const bool drips : {false, true}) {
    Channel stalling;
    const int seen = guests.seen;
    ASSERT_EQ(stalling.Open("127.0.0.1", port), 0);
    guests.seen.wait(seen);
    for (int second = 0; second < 10; ++second) {
      if (drips) {
        (void)stalling.WriteByte(0x41);
        (void)stalling.FlushWrite(0);
      }
      clock.Advance(std::chrono::seconds(1));
    }
    std::uint8_t byte = 0;
    EXPECT_LT(stalling.ReadByte(byte), 0);
  }
  EXPECT_NE(Ask("get_status").find("ok"), ustring::npos);
  platform::SetClock(before);
}

}  // namespace
}  // namespace tolven

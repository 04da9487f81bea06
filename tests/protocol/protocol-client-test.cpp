#include "client/core/protocol-client.h"

#include <gtest/gtest.h>

#include <future>
#include <string>

#include "lib/proto-common.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "protocol/scripted-peer.h"
#include "support/temp-folder.h"
#include "transport/certificates.h"

namespace tolven {
namespace {

using test::Alive;
using test::ScriptedPeer;
using test::TempFolder;
using test::Visitor;

// A client whose connection leads to a peer that follows a script.
struct Pair {
  explicit Pair(ScriptedPeer::Script script, bool use_ssl = false) : peer(std::move(script)) {
    info.server_ip = "127.0.0.1";
    info.server_port = peer.port();
    info.server_name = "hub.example";
    info.session = "token";
    info.use_ssl = use_ssl;
    info.version_info.build_number = 3317;
    connection = Connection(info, nullptr, nullptr);
  }
  int Request(PObject& answer) { return Client().Request(SCMD_EVT_PULL, request, answer); }
  int Request() {
    PObject answer;
    return Request(answer);
  }
  ProtocolClient Client() { return ProtocolClient(&stream, connection); }

  ScriptedPeer peer;
  ConnectionInfo info;
  Connection connection;
  PStream stream;
  PObject request;
};

void Serve(Visitor& visitor) {
  while (visitor.ReadRequest() && visitor.Answer(Alive(60))) {
  }
}

TEST(ProtocolClientTest, OpensAChannelOnceAndAgainAfterAFailure) {
  Pair pair([](Visitor& visitor) {
    int command = 0;
    PObject asked;
    if (!visitor.ReadRequest(command, asked)) return;
    EXPECT_EQ(command, SCMD_REQUEST_CONNECT);
    EXPECT_EQ(asked["action"].asString(), "connect");
    EXPECT_EQ(asked["session"].asString(), "token");
    EXPECT_EQ(asked["agent"]["version"]["build"].asUInt32(), 3317u);
    EXPECT_FALSE(asked.hasMember("do_ssl"));
    visitor.Answer(Alive(60));
    for (int i = 0; i < 3 && visitor.ReadRequest(command, asked); ++i) {
      EXPECT_EQ(command, SCMD_EVT_PULL);
      EXPECT_EQ(asked["n"].asUInt32(), 7u);
      if (visitor.number == 1) visitor.Write("B");  // an answer that is cut off
      if (visitor.number == 1) return;
      visitor.Answer(Alive(i < 2 ? 60 : 0));  // the third is the last on this channel
    }
    visitor.Stall();
  });
  pair.request["n"] = 7;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(pair.Request(), 0);
  EXPECT_EQ(pair.peer.accepted(), 1);
  EXPECT_FALSE(pair.connection.isConnected2());
  EXPECT_EQ(pair.Request(), ErrorCodes::ERR_IO);
  EXPECT_FALSE(pair.connection.isConnected2());
  EXPECT_EQ(pair.Request(), 0);
  EXPECT_EQ(pair.peer.accepted(), 3);
}

TEST(ProtocolClientTest, TellsWhyAHandshakeFailedAndKeepsEveryChannel) {
  PObject build = Alive(60);
  build["server"]["package_version"]["build"] = 3318;
  PObject password = Alive(60), session = Alive(60);
  password["error"]["code"] = 5;
  session["error"]["code"] = SPROTO_ERR_SESSION_INVALID;
  const struct {
    PObject answer;
    int code;
  } cases[] = {{build, ErrorCodes::ERR_BUILD_NUM_CHANGED},
               {password, ErrorCodes::ERR_PASSWORD},
               {session, ErrorCodes::ERR_AUTH},
               {Alive(0), ErrorCodes::ERR_IO},
               {PObject(), ErrorCodes::ERR_IO}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    Pair pair([&c](Visitor& visitor) {
      if (!visitor.ReadRequest() || c.answer.isNull()) return;
      visitor.Answer(c.answer);
      visitor.Stall();
    });
    for (int i = 0; i < 6; ++i) {
      const int code = pair.Request();
      EXPECT_TRUE(code == c.code || (c.answer.isNull() && code < 0)) << code;
    }
    EXPECT_EQ(pair.peer.accepted(), 6);
    EXPECT_FALSE(pair.connection.isConnected2());
  }
  Pair nobody(&Serve);
  nobody.info.server_port = 1;
  nobody.connection = Connection(nobody.info, nullptr, nullptr);
  EXPECT_EQ(nobody.Request(), ErrorCodes::ERR_IO);
}

TEST(ProtocolClientTest, ReadsOverKeepAlivesIntoAPreparedAnswer) {
  const TempFolder folder;
  Pair pair([](Visitor& visitor) {
    visitor.Welcome();
    if (!visitor.ReadRequest()) return;
    PObject busy;
    busy["type"] = "keep_alive";
    busy["alive"] = 90;
    busy["filler"] = "x";
    busy["kept"]["filler"] = 1;
    for (int i = 0; i < 3; ++i) visitor.Answer(busy);
    // The answer comes in single bytes: {"file": {"data": 3 bytes}}.
    using namespace std::string_view_literals;
    const auto answer = "\x42\x10\0\4file\x42\x10\0\4data\x30\0\0\0\0\0\0\0\3abc\x40\x40"sv;
    for (const char byte : answer) visitor.Write({&byte, 1});
    visitor.Stall();
  });
  PObject answer;
  PObject::binary_type target;
  target.path = folder / "stored";
  answer["file"]["data"] = target;
  answer["kept"]["path"] = "here";
  ASSERT_EQ(pair.Request(answer), 0);
  EXPECT_EQ(test::ReadFile(folder / "stored"), "abc");
  EXPECT_EQ(answer["kept"].toString(), R"({"path": "here"})");
  EXPECT_EQ(answer.asMap().size(), 2u) << answer.toString().c_str_utf8();
  // The interval of a keep-alive is no promise: the answer made none.
  EXPECT_FALSE(pair.connection.isConnected2());
}

TEST(ProtocolClientTest, EndsOnAbortWhereverItWaits) {
  const TempFolder folder;
  test::WriteFile(folder / "large", std::string(64 << 20, 'x'));
  enum Way { kStalls, kFloods, kDoesNotRead, kStallsInHandshake };
  for (const Way way : {kStalls, kFloods, kDoesNotRead, kStallsInHandshake}) {
    SCOPED_TRACE(way);
    std::promise<void> reached;
    std::promise<void> finished;
    Pair pair([&, way](Visitor& visitor) {
      if (visitor.number > 0) return visitor.Welcome() ? Serve(visitor) : void();
      if (way != kStallsInHandshake) visitor.Welcome();
      if (way != kDoesNotRead) visitor.ReadRequest();
      reached.set_value();
      PObject busy;
      busy["type"] = "keep_alive";
      for (int i = 0; way == kFloods && visitor.Answer(busy); ++i) {
        busy = PObject();
        busy["type"] = "keep_alive";
        busy[std::to_string(i)] = i;
      }
      if (way == kDoesNotRead) finished.get_future().wait();
      if (way != kFloods) visitor.Stall();
    });
    if (way == kDoesNotRead) {
      PObject::binary_type file;
      file.path = folder / "large";
      file.length = 64 << 20;
      pair.request["file"] = file;
    }
    std::atomic<int> abort_flag{0};
    ProtocolClient client = pair.Client();
    client.SetAbortFlag(&abort_flag);
    auto request = std::async(std::launch::async, [&] {
      PObject answer;
      return client.Request(SCMD_EVT_PULL, pair.request, answer);
    });
    reached.get_future().wait();
    abort_flag = 1;
    EXPECT_EQ(request.get(), ErrorCodes::ERR_INT);
    finished.set_value();
    EXPECT_FALSE(pair.connection.isConnected2());
    pair.request.clear();
    EXPECT_EQ(pair.Request(), 0);
  }
}

TEST(ProtocolClientTest, EndsOnAbortWhileAllChannelsAreOut) {
  Pair pair(&Serve);
  for (int i = 0; i < 4; ++i) pair.connection.pop();
  std::atomic<int> abort_flag{0};
  ProtocolClient client = pair.Client();
  client.SetRecvAbortFlag(&abort_flag);
  client.SetSendAbortFlag(&abort_flag);
  auto request = std::async(std::launch::async, [&] {
    PObject answer;
    return client.Request(SCMD_EVT_PULL, pair.request, answer);
  });
  abort_flag = 1;
  EXPECT_EQ(request.get(), ErrorCodes::ERR_INT);
}

TEST(ProtocolClientTest, MapsWhatGoesWrongWhileReceiving) {
  using namespace std::string_view_literals;
  const TempFolder folder;
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::Files* const before = platform::SetFiles(&faulty);
  const auto file = "\x42\x10\0\4file\x42\x10\0\4data\x30\0\0\0\0\0\0\0\3abc\x40\x40"sv;
  const struct {
    std::string_view bytes;
    bool has_folder, is_full;
    int code;
  } cases[] = {{file, true, true, ErrorCodes::ERR_LOCAL_DISKFULL},
               {file, false, false, ErrorCodes::ERR_SYS},
               {"\x77"sv, true, false, ErrorCodes::ERR_SYS},
               {file, true, false, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    plan.Clear();
    if (c.is_full) plan.FailNth("Write", 1, platform::ErrorKind::kNoSpace);
    Pair pair([&c](Visitor& visitor) {
      if (!visitor.Welcome() || !visitor.ReadRequest()) return;
      visitor.Write(c.bytes);
      visitor.Stall();
    });
    pair.request["_action"] = "download";
    ProtocolClient client = pair.Client();
    if (c.has_folder) client.SetReceiveLocation(ustring(folder.path()));
    PObject answer;
    EXPECT_EQ(client.Request(SCMD_EVT_PULL, pair.request, answer), c.code);
    if (c.code != 0) continue;
    EXPECT_EQ(test::ReadFile(answer["file"]["data"].asBinary().path), "abc");
  }
  platform::SetFiles(before);
}

TEST(ProtocolClientTest, TurnsTlsOnBehindTheHandshakeAlone) {
  const test::Certificates certificates("hub.example", ""), others("hub.example", "");
  Channel::SetCERTPath(certificates.certificate().str());
  Channel::SetPriKeyPath(certificates.key().str());
  Channel::SetVerifyCAPath(certificates.ca());
  std::atomic<std::uint32_t> build{3318};
  Pair pair(
      [&build](Visitor& visitor) {
        int command = 0;
        PObject asked;
        if (!visitor.ReadRequest(command, asked)) return;
        EXPECT_EQ(asked["do_ssl"].asUInt32(), 1u);
        PObject answer = Alive(60);
        answer["server"]["package_version"]["build"] = build.load();
        visitor.Answer(answer);
        if (visitor.channel.ConvertToSSLChannel(true) == 0) Serve(visitor);
      },
      true);
  EXPECT_EQ(pair.Request(), ErrorCodes::ERR_BUILD_NUM_CHANGED);
  build = 3317;
  EXPECT_EQ(pair.Request(), 0);
  EXPECT_EQ(pair.Request(), 0);
  EXPECT_EQ(pair.peer.accepted(), 2);

  Channel::SetVerifyCAPath(others.ca());
  pair.connection = Connection(pair.info, nullptr, nullptr);
  EXPECT_EQ(pair.Request(), ErrorCodes::ERR_IO);
  pair.info.ssl_allow_untrust = true;
  pair.connection = Connection(pair.info, nullptr, nullptr);
  EXPECT_EQ(pair.Request(), 0);
}

}  // namespace
}  // namespace tolven

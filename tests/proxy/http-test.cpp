// What is read of a proxy, and how long it is listened to.
#include <gtest/gtest.h>

#include <array>
#include <future>
#include <string>
#include <thread>

#include "support/loopback-server.h"
#include "support/ntlm-check.h"
#include "transport/scripted-sockets.h"
#include "zentproxy/lib/http-header.h"
#include "zentproxy/lib/proxy-auth.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;
using test::ScriptedSockets;

// Our end of a connection, and the proxy's.
class Talk {
 public:
  explicit Talk(const std::string& said = "") {
    test::LoopbackListener listener;
    socket.fd = test::LoopbackListener::Connect(listener.port());
    EXPECT_TRUE(listener.Accept(proxy_));
    EXPECT_TRUE(test::g_sockets.SetBlocking(socket.fd, false).ok());
    Say(said);
  }
  ~Talk() {
    (void)test::g_sockets.Close(socket.fd);
    HangUp();
  }
  Talk(const Talk&) = delete;
  Talk& operator=(const Talk&) = delete;

  // Returns once it has arrived.
  void Say(const std::string& text) {
    EXPECT_TRUE(test::LoopbackServer::Send(proxy_, text));
    while (Waiting().size() < text.size()) std::this_thread::yield();
  }
  void HangUp() {
    if (proxy_ != platform::kInvalidSocket) (void)test::g_sockets.Close(proxy_);
    proxy_ = platform::kInvalidSocket;
  }
  // What nobody has read.
  std::string Waiting() const {
    std::string text(100'000, '\0');
    std::size_t got = 0;
    if (!test::g_sockets.Peek(socket.fd, text.data(), text.size(), got).ok()) got = 0;
    text.resize(got);
    return text;
  }

  ProxySocket socket;

 private:
  platform::NativeSocket proxy_ = platform::kInvalidSocket;
};

// Takes silence for the end of the connection, on which the proxy still hears us.
class SilenceEnds : public platform::ForwardingSockets {
 public:
  SilenceEnds() : ForwardingSockets(platform::sockets()), before_(platform::SetSockets(this)) {}
  ~SilenceEnds() override { platform::SetSockets(before_); }
  platform::Status Wait(platform::NativeSocket, platform::SocketWait, int) override { return {}; }
  platform::Status Receive(platform::NativeSocket socket, void* data, std::size_t size,
                           std::size_t& got) override {
    return EndIfSilent(ForwardingSockets::Receive(socket, data, size, got), got);
  }
  platform::Status Peek(platform::NativeSocket socket, void* data, std::size_t size,
                        std::size_t& got) override {
    return EndIfSilent(ForwardingSockets::Peek(socket, data, size, got), got);
  }

 private:
  static platform::Status EndIfSilent(platform::Status status, std::size_t& got) {
    if (!status.is(platform::ErrorKind::kWouldBlock)) return status;
    got = 0;
    return {};
  }

  platform::Sockets* before_;
};

TEST(HttpHeaderTest, ReadsNoFurtherThanTheProxysOwnWords) {
  const Talk talk(
      "HTTP/1.0 407 Please log in\r\nProxy-Authenticate:NTLM\r\nno header\nX-Two:\t a: b \r\n"
      "PROXY-authenticate:  Basic realm=\"x\"\r\n: nothing\r\n\r\n\r\nTARGET");
  int code = 0;
  PROXY_HTTP_HEADER_LIST list;
  ASSERT_EQ(ZENTProxyGetHttpResponseCode(talk.socket, code), 0);
  EXPECT_EQ(code, 407);
  ASSERT_EQ(ZENTProxyClientParseHttpHeader(talk.socket, list), 0);
  EXPECT_EQ(list.size(), 3U);
  std::string value = "as before";
  EXPECT_FALSE(ZENTProxyClientHttpHdrListGetValByKey(list, "X-Tw", value));
  EXPECT_EQ(value, "as before");
  EXPECT_TRUE(ZENTProxyClientHttpHdrListGetValByKey(list, "x-two", value));
  EXPECT_EQ(value, "a: b");
  const auto next = [&](const PROXY_HTTP_HEADER_ENTRY* previous) {
    return ZENTProxyClientHttpHdrListGetNextEntryByKey(list, "Proxy-Authenticate", previous);
  };
  const auto* const first = next(nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->szValue, "NTLM");
  ASSERT_NE(next(first), nullptr);
  EXPECT_EQ(next(first)->szValue, "Basic realm=\"x\"");
  EXPECT_EQ(next(next(first)), nullptr);
  EXPECT_EQ(talk.Waiting(), "\r\nTARGET");
}

TEST(HttpHeaderTest, TakesOnlyStatusLines) {
  for (const char* good : {"HTTP/1.1 200 OK", "HTTP/1.1  200", "HTTP/2.0 200x"}) {
    int code = 0;
    EXPECT_EQ(ZENTProxyGetHttpResponseCode(Talk(good + std::string("\n")).socket, code), 0);
    EXPECT_EQ(code, 200);
  }
  for (const std::string& bad :
       {std::string("\r\n"), std::string("HTTP/1.1\n"), std::string("HTTP/1.1 ok\n"),
        std::string("http/1.1 200\n"), std::string("HTTP/11 200 OK\n"),
        "HTTP/1.1 200 " + std::string(1024, 'x') + "\n"}) {
    int code = 0;
    EXPECT_EQ(ZENTProxyGetHttpResponseCode(Talk(bad).socket, code), -1) << bad;
  }
}

TEST(HttpHeaderTest, BearsLongLinesButNoHeaderWithoutEnd) {
  const std::string longest = "k: " + std::string(16 * 1024 - 5, 'v');
  PROXY_HTTP_HEADER_LIST list;
  EXPECT_EQ(ZENTProxyClientParseHttpHeader(Talk(longest + "\r\n\r\n").socket, list), 0);
  EXPECT_EQ(list.front().szValue.size(), 16 * 1024 - 5U);
  EXPECT_EQ(ZENTProxyClientParseHttpHeader(Talk(longest + "v\r\n\r\n").socket, list), -1);
  Talk cut("key: value\r\nkey: val");
  cut.HangUp();
  EXPECT_EQ(ZENTProxyClientParseHttpHeader(cut.socket, list), -1);

  Talk endless;
  ScriptedSockets scripted(milliseconds(1), [&](int) { endless.Say("key: value\r\n"); });
  EXPECT_EQ(ZENTProxyClientParseHttpHeader(endless.socket, list), -1);
}

TEST(HttpBodyTest, IsThrownAwayAndNothingBehindIt) {
  const struct {
    const char* said;
    std::uint64_t length;
    const char* rest;
  } cases[] = {
      {"0123456789", 4, "456789"},
      {"page\r\n\r\r\n\r\nnext", 0, "next"},
      {"\r\r\n\n\r\n\r\nnext", 0, "next"},
      {"\r\n\r\n", 0, ""},
  };
  for (const auto& c : cases) {
    const Talk talk(c.said);
    EXPECT_EQ(ZENTProxyClientClearHttpContentByLength(talk.socket, c.length, 10), 0);
    EXPECT_EQ(talk.Waiting(), c.rest);
  }
  for (const std::uint64_t length : {0U, 100U}) {
    Talk talk("page");
    talk.HangUp();
    EXPECT_EQ(ZENTProxyClientClearHttpContentByLength(talk.socket, length, 10), 0);
  }
  EXPECT_EQ(ZENTProxyClientClearHttpContentByLength(Talk("x").socket, UINT64_MAX, 10), -1);
}

TEST(ProxyWaitTest, BearsSilenceForAWhile) {
  const Talk talk("HTTP/1.1 2");
  ScriptedSockets scripted(milliseconds(100), [](int) {});
  int code = 0;
  EXPECT_EQ(ZENTProxyGetHttpResponseCode(talk.socket, code), -1);
  EXPECT_GE(scripted.now(), 10'000);
  EXPECT_LE(scripted.now(), 13'000);
  const Talk body("<html>");
  EXPECT_EQ(ZENTProxyClientClearHttpContentByLength(body.socket, 7, 10), -1);
  EXPECT_LE(scripted.now(), 26'000);
  // A proxy that takes nothing.
  const std::string large(50'000'000, 'x');
  EXPECT_EQ(ZENTProxyClientPacketSend(talk.socket, large.data(), large.size(), 10), -1);
  EXPECT_LE(scripted.now(), 39'000);
}

TEST(ProxyWaitTest, EndsWithDripsAndOnRequest) {
  Talk drip("HTTP/1.1 200 ");
  drip.socket.end = 60'000;
  std::atomic<int> abort{0};
  drip.socket.abort = &abort;
  ScriptedSockets scripted(milliseconds(500), [&](int) { drip.Say("k"); });
  int code = 0;
  EXPECT_EQ(ZENTProxyGetHttpResponseCode(drip.socket, code), -1);
  EXPECT_GE(scripted.now(), 60'000);
  EXPECT_LE(scripted.now(), 61'000);

  drip.socket.end = 600'000;
  abort = 1;
  const std::int64_t start = scripted.now();
  EXPECT_EQ(ZENTProxyGetHttpResponseCode(drip.socket, code), -1);
  EXPECT_EQ(scripted.now(), start);
}

// By each type, in this order: none, Basic, NTLM in both versions.
TEST(ProxyAuthTest, GivesEachAnswerItsCode) {
  const PROXY_TARGET_INFO target{"192.0.2.7", 4711};
  const PROXY_AUTH_INFO auth{"User", "Password", "", "", PROXY_AUTO_AUTH};
  const auto run = [&](int type, const Talk& talk, const PROXY_AUTH_INFO& who) {
    return type == 0   ? ZENTProxyClientHandleNoAuth(talk.socket, target)
           : type == 1 ? ZENTProxyClientHandleBASICAuth(talk.socket, target, who)
           : type == 2 ? ZENTProxyClientHandleNTLMv1Auth(talk.socket, target, who)
                       : ZENTProxyClientHandleNTLMv2Auth(talk.socket, target, who);
  };
  const std::string again = "HTTP/1.1 407 x\r\nProxy-Authenticate: NTLM ";
  const std::string good =
      again + test::NtlmCheck::Encode64(test::NtlmCheck({}, true).Challenge()) + "\r\n";
  const struct {
    std::string said;
    std::array<int, 4> codes;
  } cases[] = {
      {"HTTP/1.1 502 Bad Gateway\r\n\r\n", {-5, -5, -5, -5}},
      {"HTTP/1.1 200 OK\r\n\r\n", {0, 0, 0, 0}},
      {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\npage", {0, 0, 0, 0}},
      {"HTTP/1.1 407 x\r\n\r\n", {-3, -3, -2, -2}},
      {"HTTP/1.1 407 x\r\nContent-Type: text/html\r\n\r\nno\r\n\r\n", {-3, -3, -2, -2}},
      {"SMTP ready\r\n\r\n", {-1, -1, -1, -1}},
      {"HTTP/1.1 200 OK\r\nno end", {-1, -1, -1, -1}},
      {again + "\r\n\r\n", {-3, -3, -2, -2}},
      {again + "no base64!\r\n\r\n", {-3, -3, -2, -2}},
      {again + test::NtlmCheck::Encode64(std::string(24, 'x')) + "\r\n\r\n", {-3, -3, -2, -2}},
      {again + test::NtlmCheck::Encode64(std::string(25, 'x')) + "\r\n\r\n", {-3, -3, -2, -2}},
      {good + "\r\nHTTP/1.1 200 OK\r\n\r\n", {-3, -3, 0, 0}},
      {good + "\r\nHTTP/1.1 407 x\r\n\r\n", {-3, -3, -2, -2}},
      {good + "\r\nHTTP/1.1 500 x\r\n\r\n", {-3, -3, -2, -2}},
      {good + "Content-Length: 6\r\n\r\n200 OKHTTP/1.1 200 OK\r\n\r\n", {-3, -3, 0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.said);
    for (int type = 0; type < 4; ++type) {
      const Talk talk(c.said);
      const SilenceEnds silence_ends;
      EXPECT_EQ(run(type, talk, auth), c.codes[static_cast<std::size_t>(type)]) << type;
    }
  }
  for (const PROXY_AUTH_INFO& lacking :
       {PROXY_AUTH_INFO{"", "p", "d", "h"}, PROXY_AUTH_INFO{"u", nullptr, "d", "h"},
        PROXY_AUTH_INFO{"u", "p", nullptr, "h"}, PROXY_AUTH_INFO{"u", "p", "d", nullptr}}) {
    for (int type = 0; type < 4; ++type) {
      EXPECT_EQ(run(type, Talk("HTTP/1.1 200 OK\r\n\r\n"), lacking), type == 0 ? 0 : -6);
    }
  }
}

}  // namespace
}  // namespace tolven

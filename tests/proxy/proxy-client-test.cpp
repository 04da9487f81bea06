// The proxy client against proxies that know what they want.
#include "zentproxy/lib/proxy-client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lib/log-format.h"
#include "lib/proxy-channel.h"
#include "support/test-proxy.h"
#include "transport/scripted-sockets.h"
#include "zentproxy/lib/proxy-log.h"

namespace tolven {
namespace {

using test::LoopbackServer;
using test::NtlmAccount;
using test::TestProxy;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Wants = TestProxy::Wants;
using ZentProxy::ProxyClient;

// What the client logs, without the numbers of its lines.
class ProxyLog {
 public:
  ProxyLog() {
    Lines().clear();
    ZENTProxyInitLogger(&Take);
  }
  ~ProxyLog() { ZENTProxyInitLogger(nullptr); }
  ProxyLog(const ProxyLog&) = delete;
  ProxyLog& operator=(const ProxyLog&) = delete;

  static std::vector<std::string> Taken() {
    const std::lock_guard lock(Mutex());
    return std::exchange(Lines(), {});
  }

 private:
  static void Take(Logger::Level, LogCategory category, const xchar* format,
                   std::span<const LogArg> args) {
    EXPECT_EQ(category.name, "proxy_debug");
    std::string line;
    FormatLogMessage(line, format, args);
    const std::lock_guard lock(Mutex());
    line.erase(line.find(" [") + 2, line.find(']', line.find(" [")) - line.find(" [") - 2);
    Lines().push_back(line);
  }
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
};

const NtlmAccount kAccount{"User", "Password", "Domain", "COMPUTER"};

// Sends back what it gets.
class Echo : public LoopbackServer {
 public:
  Echo()
      : LoopbackServer([](Socket client) {
          for (char byte = 0; Receive(client, &byte, 1) == 1 && Send(client, {&byte, 1});) {
          }
        }) {}
};

// One use of the client.
struct Attempt {
  Attempt(int proxy_port, int target_port, PROXY_AUTH_TYPE type, const NtlmAccount& account)
      : server{"127.0.0.1", static_cast<std::uint16_t>(proxy_port)},
        target{"127.0.0.1", static_cast<std::uint16_t>(target_port)},
        auth{account.user.c_str(), account.password.c_str(), account.domain.c_str(),
             account.host.c_str(), type} {
    client.SetInfo(&server, &target, &auth);
  }
  // Whether a byte comes back over the connection that was made.
  bool Carries() {
    const platform::NativeSocket socket = client.Handover();
    EXPECT_EQ(client.Handover(), platform::kInvalidSocket);
    char byte = 'x';
    EXPECT_TRUE(platform::sockets().SetBlocking(socket, true).ok());
    const bool is_good = LoopbackServer::Send(socket, "y") &&
                         LoopbackServer::Receive(socket, &byte, 1) == 1 && byte == 'y';
    EXPECT_TRUE(platform::sockets().Close(socket).ok());
    return is_good;
  }

  PROXY_SERVER_INFO server;
  PROXY_TARGET_INFO target;
  PROXY_AUTH_INFO auth;
  ProxyClient client;
};

bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// The system's number for a port where nobody listens.
int RefusalOf(int port) {
  platform::NativeSocket socket = platform::kInvalidSocket;
  std::vector<platform::SocketAddress> addresses;
  EXPECT_TRUE(platform::sockets().Resolve("127.0.0.1", port, true, addresses).ok());
  EXPECT_TRUE(platform::sockets().Create(4, socket).ok());
  const platform::Status status = platform::sockets().Connect(socket, addresses.front());
  EXPECT_TRUE(platform::sockets().Close(socket).ok());
  return status.code;
}

TEST(ProxyClientTest, LogsInByEachTypeAndByItsOwnChoice) {
  const Echo echo;
  for (const Wants wants : {Wants::kNothing, Wants::kBasic, Wants::kNtlm1, Wants::kNtlm2}) {
    SCOPED_TRACE(static_cast<int>(wants));
    const TestProxy proxy(wants, kAccount);
    for (const PROXY_AUTH_TYPE type : {static_cast<PROXY_AUTH_TYPE>(wants), PROXY_AUTO_AUTH}) {
      Attempt attempt(proxy.port(), echo.port(), type, kAccount);
      ASSERT_EQ(attempt.client.Connect(), 0);
      EXPECT_TRUE(attempt.Carries());
    }
    EXPECT_THAT(proxy.problems(), IsEmpty());
    EXPECT_THAT(proxy.targets(), ElementsAre("127.0.0.1:" + std::to_string(echo.port())));
    EXPECT_TRUE(Eventually([&] { return proxy.open() == 0; }));

    if (wants == Wants::kNothing) continue;
    NtlmAccount wrong = kAccount;
    wrong.password = "password";
    const int joined = proxy.joined();
    for (const PROXY_AUTH_TYPE type : {static_cast<PROXY_AUTH_TYPE>(wants), PROXY_AUTO_AUTH}) {
      Attempt attempt(proxy.port(), echo.port(), type, wrong);
      EXPECT_EQ(attempt.client.Connect(), -1);
      EXPECT_EQ(attempt.client.Handover(), platform::kInvalidSocket);
      EXPECT_TRUE(Eventually([&] { return proxy.open() == 0; }));
    }
    EXPECT_EQ(proxy.joined(), joined);
  }
}

TEST(ProxyClientTest, TheWeakestThatIsEnoughWinsWhicheverIsFirst) {
  // Who asks for nothing is let in last, and each finds its own name behind the header.
  std::atomic<int> others{0};
  const LoopbackServer proxy([&](LoopbackServer::Socket client) {
    const std::string head = LoopbackServer::ReadHead(client);
    const bool is_plain = head.find("Proxy-Authorization") == std::string::npos;
    if (is_plain) Eventually([&] { return others == 3; });
    LoopbackServer::Send(client,
                         std::string("HTTP/1.1 200 OK\r\n\r\n") + (is_plain ? "plain" : "login"));
    if (!is_plain) ++others;
    LoopbackServer::AwaitEnd(client);
  });
  const ProxyLog log;
  Attempt attempt(proxy.port(), 1, PROXY_AUTO_AUTH, kAccount);
  ASSERT_EQ(attempt.client.Connect(), 0);
  EXPECT_THAT(ProxyLog::Taken(),
              ElementsAre("[INFO] lib/zentproxyclient_cpp []Use proxy auth '0' as result\n",
                          "[INFO] lib/zentproxyclient_cpp []Discard proxy auth '1'\n",
                          "[INFO] lib/zentproxyclient_cpp []Discard proxy auth '2'\n",
                          "[INFO] lib/zentproxyclient_cpp []Discard proxy auth '3'\n"));
  EXPECT_EQ(proxy.accepted(), 4);
  EXPECT_TRUE(Eventually([&] { return proxy.open() == 1; }));
  const platform::NativeSocket socket = attempt.client.Handover();
  EXPECT_TRUE(platform::sockets().SetBlocking(socket, true).ok());
  std::string name;
  char byte = 0;
  while (name.size() < 5 && LoopbackServer::Receive(socket, &byte, 1) == 1) name += byte;
  EXPECT_EQ(name, "plain");
  EXPECT_TRUE(platform::sockets().Close(socket).ok());
}

TEST(ProxyClientTest, SaysWhyItFailed) {
  const ProxyLog log;
  const auto line = [](const std::string& text) {
    return "[ERROR] lib/zentproxyclient_cpp []" + text + "\n";
  };
  const auto fails_with = [&](const PROXY_SERVER_INFO* server, const PROXY_TARGET_INFO* target,
                              const std::string& text) {
    const PROXY_AUTH_INFO auth{"u", "p", "", "", PROXY_NO_AUTH};
    ProxyClient client;
    client.SetInfo(server, target, &auth);
    EXPECT_EQ(client.Connect(), -1);
    EXPECT_THAT(ProxyLog::Taken(), ElementsAre(line(text)));
  };
  const LoopbackServer silent(&LoopbackServer::AwaitEnd);
  int closed = 0;
  {
    const LoopbackServer gone(&LoopbackServer::AwaitEnd);
    closed = gone.port();
  }
  const PROXY_TARGET_INFO target{"host", 1};
  const PROXY_SERVER_INFO server{"127.0.0.1", static_cast<std::uint16_t>(silent.port())};
  const PROXY_SERVER_INFO nobody{"127.0.0.1", static_cast<std::uint16_t>(closed)};
  const PROXY_SERVER_INFO nameless{"", 1}, portless{"127.0.0.1", 0}, newer{"::1", 1};
  const PROXY_TARGET_INFO no_target{nullptr, 1}, no_port{"host", 0};
  fails_with(nullptr, &target, "proxy not set");
  fails_with(&nameless, &target, "proxy ip is not set");
  fails_with(&portless, &target, "proxy port is not valid: '0'");
  fails_with(&server, nullptr, "target not set");
  fails_with(&server, &no_target, "target ip is not set");
  fails_with(&server, &no_port, "target port is not valid: '0'");
  fails_with(&newer, &target, "Failed to resolve proxy");
  fails_with(&nobody, &target, "Failed to connect '" + std::to_string(RefusalOf(closed)) + "'");
  test::ScriptedSockets scripted(std::chrono::milliseconds(100), [](int) {});
  scripted.ConnectForEver();
  fails_with(&server, &target, "Select timed out");
  EXPECT_GE(scripted.now(), 10'000);
  EXPECT_LE(scripted.now(), 11'000);

  const PROXY_AUTH_INFO odd{"u", "p", "", "", static_cast<PROXY_AUTH_TYPE>(5)};
  ProxyClient client;
  client.SetInfo(&nobody, &target, &odd);
  EXPECT_EQ(client.Connect(), -1);
}

TEST(ProxyClientTest, TellsOfEachFailedType) {
  const LoopbackServer proxy([](LoopbackServer::Socket client) {
    LoopbackServer::ReadHead(client);
    LoopbackServer::Send(client, "HTTP/1.1 403 Forbidden\r\n\r\n");
  });
  const ProxyLog log;
  Attempt one(proxy.port(), 1, PROXY_BASIC_AUTH, kAccount);
  EXPECT_EQ(one.client.Connect(), -1);
  EXPECT_THAT(
      ProxyLog::Taken(),
      ElementsAre("[ERROR] lib/zentproxyauth []Unhandled response code: 403\n",
                  "[INFO] lib/zentproxyclient_cpp []Auth failed; rc='-5'; auth_type = '1'\n"));
  Attempt all(proxy.port(), 1, PROXY_AUTO_AUTH, kAccount);
  EXPECT_EQ(all.client.Connect(), -1);
  const std::vector<std::string> lines = ProxyLog::Taken();
  for (int type = 0; type < 4; ++type) {
    EXPECT_THAT(lines, testing::Contains("[INFO] lib/zentproxyclient_cpp []Connect fail for auth "
                                         "type '" +
                                         std::to_string(type) + "'\n"));
  }
}

TEST(ProxyClientTest, EndsAtOnceWhenItIsTold) {
  std::atomic<int> heard{0};
  const LoopbackServer silent([&](LoopbackServer::Socket client) {
    LoopbackServer::ReadHead(client);
    ++heard;
    LoopbackServer::AwaitEnd(client);
  });
  std::atomic<int> abort{0};
  Attempt attempt(silent.port(), 1, PROXY_AUTO_AUTH, kAccount);
  attempt.client.SetAbortFlag(&abort);
  auto result = std::async(std::launch::async, [&] { return attempt.client.Connect(); });
  EXPECT_TRUE(Eventually([&] { return heard == 4; }));
  const auto start = std::chrono::steady_clock::now();
  abort = 1;
  EXPECT_EQ(result.get(), -1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  EXPECT_TRUE(Eventually([&] { return silent.open() == 0; }));
}

ProxyInfo InfoOf(int port, ProxyInfo::AuthType type) {
  ProxyInfo info;
  info.use_proxy = true;
  info.proxy_ip = "127.0.0.1";
  info.proxy_port = static_cast<std::uint16_t>(port);
  info.user_name = kAccount.user;
  info.password = kAccount.password;
  info.domain = kAccount.domain;
  info.host = kAccount.host;
  info.auth_type = type;
  return info;
}

TEST(ProxyChannelTest, IsAChannelToTheTarget) {
  const Echo echo;
  const TestProxy proxy(Wants::kNtlm2, kAccount);
  for (const ProxyInfo::AuthType type : {ProxyInfo::AUTH_AUTO, ProxyInfo::AUTH_NTLMv2}) {
    ProxyChannel channel(InfoOf(proxy.port(), type));
    for (int i = 0; i < 2; ++i) {  // once more, over what is open
      ASSERT_EQ(channel.Open("127.0.0.1", echo.port()), 0);
      std::uint32_t value = 0;
      ASSERT_EQ(channel.WriteInt32(0x01020304), 0);
      ASSERT_EQ(channel.FlushWrite(0), 0);
      ASSERT_EQ(channel.ReadInt32(value), 0);
      EXPECT_EQ(value, 0x01020304U);
    }
    channel.Close();
    EXPECT_TRUE(channel.IsClosed());
    EXPECT_TRUE(Eventually([&] { return proxy.open() == 0; }));
  }
  for (const auto type : {ProxyInfo::AUTH_NONE, ProxyInfo::AUTH_BASIC, ProxyInfo::AUTH_NTLMv1}) {
    ProxyChannel channel(InfoOf(proxy.port(), type));
    EXPECT_EQ(channel.Open("127.0.0.1", echo.port()), -2);
    EXPECT_TRUE(channel.IsClosed());
  }
  ProxyChannel channel(InfoOf(proxy.port(), ProxyInfo::AUTH_NTLMv2));
  EXPECT_EQ(channel.Open(nullptr, 1), -2);
  EXPECT_EQ(channel.Open("127.0.0.1", 65'536 + echo.port()), -2);
  EXPECT_EQ(channel.Open("::1", echo.port()), 0);
  EXPECT_TRUE(proxy.targets().contains("[::1]:" + std::to_string(echo.port())));
}

}  // namespace
}  // namespace tolven

#include "client/core/connection.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "client/core/connection-manager.h"
#include "client/core/protocol-client.h"
#include "lib/proto-constants.h"
#include "platform/fake-clock.h"
#include "protocol/scripted-peer.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;
using test::ScriptedPeer;
using test::Visitor;
using Stat = Connection::ChannelStat;

ConnectionInfo InfoOf(std::uint64_t id, int port) {
  ConnectionInfo info;
  info.conn_id = id;
  info.server_ip = "127.0.0.1";
  info.server_port = port;
  info.session = "token";
  info.version_info.build_number = 3317;
  return info;
}

struct ScopedClock {
  platform::FakeClock clock;
  ScopedClock() { platform::SetClock(&clock); }
  ~ScopedClock() { platform::SetClock(nullptr); }
};

bool IsReady(const std::future<void>& future) {
  return future.wait_for(milliseconds(0)) == std::future_status::ready;
}

TEST(ConnectionTest, HandsOutOpenChannelsFirstAndTheOneThatLapsesSoonestAtTheHead) {
  ScopedClock time;
  Connection connection(InfoOf(1, 1), nullptr, nullptr);
  EXPECT_FALSE(connection.isConnected2());
  Stat stats[4];
  for (Stat& stat : stats) stat = connection.pop();
  stats[0].setAliveInterval(50);
  stats[1].setAliveInterval(10);
  stats[2].setConnected();
  connection.update(stats[2]);
  EXPECT_FALSE(connection.isConnected());  // there is no promise yet
  EXPECT_TRUE(connection.isConnected2());
  for (Stat& stat : stats) connection.push(stat);
  EXPECT_FALSE(connection.isConnected());  // the head alone is looked at

  Stat taken[4];
  for (Stat& stat : taken) stat = connection.pop();
  const int order[] = {2, 1, 0, 3};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(taken[i].channel(), stats[order[i]].channel()) << i;
  EXPECT_TRUE(taken[0].isExpired());
  EXPECT_FALSE(taken[0].isExpired2());
  EXPECT_FALSE(taken[1].isExpired());
  EXPECT_TRUE(connection.isConnected());
  time.clock.Advance(milliseconds(11'000));
  EXPECT_TRUE(taken[1].isExpired());
  EXPECT_FALSE(taken[2].isExpired());
  taken[2].setAliveInterval(0);
  EXPECT_TRUE(taken[2].isExpired2());
}

TEST(ConnectionTest, LetsTheFifthWaitForAChannelOrForTheAbort) {
  Connection connection(InfoOf(1, 1), nullptr, nullptr);
  std::vector<Stat> out;
  for (int i = 0; i < 4; ++i) out.push_back(connection.pop());
  Channel stranger;
  connection.push(Stat(&stranger, 5));  // nobody gets this one

  std::atomic<int> abort_flag{0};
  Stat fifth;
  auto waiting = std::async(std::launch::async, [&] { fifth = connection.pop(); });
  auto aborted = std::async(std::launch::async, [&] { return connection.pop(&abort_flag); });
  EXPECT_EQ(waiting.wait_for(milliseconds(50)), std::future_status::timeout);
  abort_flag = 1;
  EXPECT_EQ(aborted.get().channel(), nullptr);
  EXPECT_FALSE(IsReady(waiting));
  connection.push(out[1]);
  waiting.get();
  EXPECT_EQ(fifth.channel(), out[1].channel());

  connection.clear();
  EXPECT_FALSE(connection.isConnected2());
  Stat none = connection.pop();
  EXPECT_TRUE(none.isExpired2());
  EXPECT_EQ(none.getChannel().Open("127.0.0.1", 1), -2);
  EXPECT_EQ(none.getChannel().WriteByte(1), -2);
  connection.push(none);
}

TEST(ConnectionTest, ReloadsBetweenExchangesAndWithoutAChannelOfTheOldServer) {
  ScriptedPeer peer([](Visitor& visitor) {
    if (!visitor.Welcome()) return;
    while (visitor.ReadRequest() && visitor.Answer(test::Alive(60))) {
    }
  });
  ConnectionManager manager;
  EXPECT_EQ(manager.reload(InfoOf(1, 1), nullptr, nullptr), -1);
  ASSERT_EQ(manager.add(InfoOf(1, peer.port()), nullptr, nullptr), 0);
  EXPECT_EQ(manager.add(InfoOf(1, 1), nullptr, nullptr), -1);
  Connection old, renewed;
  EXPECT_EQ(manager.get(2, old), -1);
  ASSERT_EQ(manager.get(1, old), 0);
  EXPECT_EQ(old.getConnectionInfo().server_port, peer.port());

  Stat busy = old.pop();
  ConnectionInfo changed = InfoOf(1, peer.port());
  changed.session = "another";
  auto reload = std::async(std::launch::async, [&] { manager.reload(changed, nullptr, nullptr); });
  EXPECT_EQ(reload.wait_for(milliseconds(50)), std::future_status::timeout);
  old.push(busy);
  reload.get();

  // Somebody who holds the old data opens a channel: nobody with the new data gets it open.
  PStream stream;
  PObject request, answer;
  ASSERT_EQ(ProtocolClient(&stream, old).Request(SCMD_LIST, request, answer), 0);
  EXPECT_EQ(peer.accepted(), 1);
  EXPECT_FALSE(old.isConnected2());
  ASSERT_EQ(manager.get(1, renewed), 0);
  for (int i = 0; i < 2; ++i) {
    answer.clear();
    ASSERT_EQ(ProtocolClient(&stream, renewed).Request(SCMD_LIST, request, answer), 0);
  }
  EXPECT_EQ(peer.accepted(), 2);
  EXPECT_TRUE(renewed.isConnected());

  // A proxy that is nowhere is never gone round.
  ProxyInfo proxy;
  proxy.use_proxy = true;
  ASSERT_EQ(manager.reload(changed, &proxy, nullptr), 0);
  ASSERT_EQ(manager.get(1, renewed), 0);
  EXPECT_TRUE(renewed.getProxyInfo().use_proxy);
  EXPECT_EQ(ProtocolClient(&stream, renewed).Request(SCMD_LIST, request, answer), -2);
  EXPECT_EQ(peer.accepted(), 2);
  manager.remove(1);
  EXPECT_EQ(manager.get(1, renewed), -1);
}

TEST(ConnectionTest, ServesManyThreadsThroughReloads) {
  std::atomic<int> in_flight{0}, most{0};
  ScriptedPeer peer([&](Visitor& visitor) {
    if (!visitor.Welcome()) return;
    while (visitor.ReadRequest()) {
      const int now = ++in_flight;
      for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
      }
      std::this_thread::yield();
      --in_flight;
      if (!visitor.Answer(test::Alive(60))) return;
    }
  });
  ConnectionManager manager;
  ASSERT_EQ(manager.add(InfoOf(1, peer.port()), nullptr, nullptr), 0);
  std::vector<std::future<int>> threads;
  for (int i = 0; i < 6; ++i) {
    threads.push_back(std::async(std::launch::async, [&manager] {
      PStream stream;
      int failures = 0;
      for (int round = 0; round < 40; ++round) {
        Connection connection;
        PObject answer;
        failures += manager.get(1, connection) != 0;
        failures += ProtocolClient(&stream, connection).Request(SCMD_LIST, PObject(), answer) != 0;
      }
      return failures;
    }));
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(manager.reload(InfoOf(1, peer.port()), nullptr, nullptr), 0);
  }
  for (auto& thread : threads) EXPECT_EQ(thread.get(), 0);
  EXPECT_LE(most, 4);
  manager.clear();
}

}  // namespace
}  // namespace tolven

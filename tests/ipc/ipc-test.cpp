#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "lib/ipc-listener.h"
#include "lib/ipc-sender.h"
#include "platform/fake-clock.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-sockets.h"
#include "protocol/stream.h"
#include "support/local-ui.h"

namespace tolven {
namespace {

class FaultySockets {
 public:
  FaultySockets() : before_(platform::SetSockets(&faulty_)) {}
  ~FaultySockets() { platform::SetSockets(before_); }

  platform::FaultPlan plan;

 private:
  platform::ForwardingSockets faulty_{platform::sockets(), plan.hook()};
  platform::Sockets* before_;
};

// Tells how often it was looked at: whoever waits for a socket does so every 100 ms.
class WatchedClock : public platform::FakeClock {
 public:
  WatchedClock() : before_(platform::SetClock(this)) {}
  ~WatchedClock() override { platform::SetClock(before_); }
  std::int64_t MonotonicMilliseconds() override {
    const std::int64_t now = FakeClock::MonotonicMilliseconds();
    ++looks_;
    return now;
  }
  // False when the reply came first.
  bool AwaitLooks(int count, const std::future<PObject>& reply) {
    const int last = looks_ + count;
    while (looks_ < last) {
      if (reply.wait_for(std::chrono::milliseconds(10)) == std::future_status::ready) return false;
    }
    return true;
  }

 private:
  platform::Clock* before_;
  std::atomic<int> looks_{0};
};

TEST(IpcListener, TakesTheFirstFreePortAndGivesItBack) {
  IPCListener first, second;
  const int port = first.prepare(21'000);
  ASSERT_GE(port, 21'000);
  EXPECT_EQ(IPCListener::OpenSocket(port), platform::kInvalidSocket);
  EXPECT_GT(second.prepare(port), port);
  first.close();
  EXPECT_EQ(second.prepare(port), port);  // and its own port before is free again

  EXPECT_EQ(second.prepare(65'536), -1);
  EXPECT_EQ(second.prepare("/tmp/socket"), -1);
  FaultySockets sockets;
  EXPECT_FALSE(second.isReady());
  EXPECT_EQ(second.accept(), platform::kInvalidSocket);
  EXPECT_EQ(sockets.plan.calls(), 0U);
}

TEST(IpcListener, LeavesNoSocketBehindWhicheverCallFails) {
  FaultySockets sockets;
  for (unsigned nth = 1;; ++nth) {
    sockets.plan.Clear();
    sockets.plan.FailNth(nth, platform::ErrorKind::kOther);
    IPCListener listener;
    const int port = listener.prepare(22'000);
    listener.close();
    if (sockets.plan.failures() == 0) break;
    // A port that cannot be bound is passed over; the last call is the close.
    EXPECT_EQ(port > 0, nth == 2 || nth == 5) << nth;
    EXPECT_EQ(sockets.plan.calls("Close"), nth == 1 ? 0U : 1U) << nth;
  }
}

// Somebody else had bound it, too, and listened first.
TEST(IpcListener, PassesOverAPortThatIsTakenBetweenBindAndListen) {
  FaultySockets sockets;
  sockets.plan.FailNth("Listen", 1, platform::ErrorKind::kAddressInUse);
  IPCListener listener;
  EXPECT_GT(listener.prepare(21'800), 21'800);
  EXPECT_EQ(sockets.plan.calls("Create"), 2U);
  EXPECT_EQ(sockets.plan.calls("Close"), 1U);
}

TEST(IpcSender, NeedsSomebodyWhoListens) {
  int port = 0;
  { port = IPCListener().prepare(21'500); }
  IPCSender sender;
  EXPECT_EQ(sender.connect(port), -1);
  EXPECT_EQ(sender.connect(-1), -1);
  EXPECT_EQ(sender.connect("/tmp/socket"), -1);
  EXPECT_EQ(sender.send(PObject(1)), -1);
}

TEST(IpcSender, WaitsLongForAReplyButNotForEver) {
  WatchedClock clock;
  IPCListener peer;
  const int port = peer.prepare(21'600);
  std::future<PObject> reply =
      std::async(std::launch::async, [port] { return test::LocalUi::Ask(port, PObject("ask")); });
  ASSERT_TRUE(peer.isReady());
  Channel silent;
  PStream stream;
  PObject request;
  ASSERT_EQ(silent.Open(peer.accept(), true), 0);
  ASSERT_EQ(stream.Recv(silent, request), 0);
  EXPECT_TRUE(clock.AwaitLooks(3, reply));  // one may still belong to the sending
  clock.Advance(std::chrono::seconds(100));
  EXPECT_TRUE(clock.AwaitLooks(2, reply));
  clock.Advance(std::chrono::seconds(21));
  EXPECT_TRUE(reply.get().isNull());
}

}  // namespace
}  // namespace tolven

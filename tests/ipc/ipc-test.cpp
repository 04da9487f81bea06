#include <gtest/gtest.h>

#include "lib/ipc-listener.h"
#include "lib/ipc-sender.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-sockets.h"

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

TEST(IpcSender, NeedsSomebodyWhoListens) {
  int port = 0;
  { port = IPCListener().prepare(21'500); }
  IPCSender sender;
  EXPECT_EQ(sender.connect(port), -1);
  EXPECT_EQ(sender.connect(-1), -1);
  EXPECT_EQ(sender.connect("/tmp/socket"), -1);
  EXPECT_EQ(sender.send(PObject(1)), -1);
}

}  // namespace
}  // namespace tolven

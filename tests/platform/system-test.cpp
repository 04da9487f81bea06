// Clocks and the wrappers of the system's services.
#include <gmock/gmock.h>

#include <thread>

#include "platform/fake-clock.h"
#include "platform/forwarding-process.h"
#include "platform/forwarding-system.h"

namespace tolven::platform {
namespace {

TEST(ClockTest, AFakeClockMovesWhenItIsTold) {
  FakeClock fake(100, FakeClock::Sleeping::kWaits);
  ForwardingClock wrapped(fake);
  std::thread sleeper([&] { wrapped.Sleep(std::chrono::seconds(3)); });
  fake.AwaitSleepers(1);
  fake.Advance(std::chrono::seconds(3));
  sleeper.join();
  EXPECT_EQ(wrapped.WallSeconds(), 103);
  fake.SetWallSeconds(7);
  EXPECT_EQ(wrapped.WallNanoseconds(), 7'000'000'000);
  EXPECT_EQ(wrapped.MonotonicMilliseconds(), 3000);

  Clock& real = clock();
  const std::int64_t before = real.MonotonicMilliseconds();
  real.Sleep(std::chrono::milliseconds(2));
  EXPECT_GE(real.MonotonicMilliseconds(), before + 2);
}

TEST(ForwardingTest, ARefusedCallIsNotMade) {
  const CallHook refuse = [](const char*) { return Status{ErrorKind::kAccessDenied, 0}; };
  ForwardingProcess child(process(), refuse);
  ForwardingIdentity who(identity(), refuse);
  ForwardingVolumes drives(volumes(), refuse);
  ForwardingTrash bin(trash(), refuse);
  ChildProcess none;
  ustring text = "untouched";
  EXPECT_EQ(child.Spawn({"true"}, "", none).kind, ErrorKind::kAccessDenied);
  EXPECT_EQ(none.pid, -1);
  EXPECT_EQ(child.Id(), process().Id());
  EXPECT_EQ(who.LocalAppData(text).kind, ErrorKind::kAccessDenied);
  EXPECT_EQ(who.OwnerOfPeer(0), PeerOwner::kUnknown);
  EXPECT_EQ(drives.KindOf("/"), DriveKind::kUnknown);
  EXPECT_EQ(drives.NewMonitor()->Release().kind, ErrorKind::kAccessDenied);
  EXPECT_EQ(bin.MoveToTrash("/none").kind, ErrorKind::kAccessDenied);
  EXPECT_EQ(text, "untouched");
}

}  // namespace
}  // namespace tolven::platform

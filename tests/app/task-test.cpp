#include "client/core/task.h"

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <vector>

#include "client/core/barrier.h"
#include "client/core/sync-lock.h"
#include "lib/shared-pointer.h"
#include "platform/fake-clock.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;

class ClockInPlace : public platform::FakeClock {
 public:
  explicit ClockInPlace(Sleeping sleeping)
      : FakeClock(0, sleeping), before_(platform::SetClock(this)) {}
  ~ClockInPlace() override { platform::SetClock(before_); }

 private:
  platform::Clock* before_;
};

class WaitingTask : public Task {
 public:
  explicit WaitingTask(unsigned seconds) : seconds_(seconds) {}
  void DoTask() override {
    id = GetId();
    result = Wait(seconds_);
  }
  int id = -2;
  int result = -2;

 private:
  const unsigned seconds_;
};

TEST(Task, LivesFromRunToJoin) {
  ClockInPlace clock(platform::FakeClock::Sleeping::kMovesTime);
  WaitingTask task(3);
  EXPECT_EQ(task.GetState(), Task::STOP);
  EXPECT_EQ(task.GetId(), -1);
  EXPECT_EQ(task.Join(), -1);
  EXPECT_EQ(task.Wait(0), 0);  // in any state
  EXPECT_EQ(task.Wait(1), -1);

  std::set<int> ids;
  for (int life = 1; life <= 2; ++life) {
    ASSERT_EQ(task.Run(), 0);
    EXPECT_EQ(task.Run(), -1);  // also when the thread has ended by itself meanwhile
    EXPECT_GE(task.GetId(), 0);
    ids.insert(task.GetId());
    EXPECT_EQ(task.Join(), 0);
    EXPECT_TRUE(ids.contains(task.id)) << "the thread did not know its id";
    EXPECT_EQ(task.result, 0);
    EXPECT_EQ(clock.MonotonicMilliseconds(), life * 3000);
    EXPECT_EQ(task.GetState(), Task::STOP);
    EXPECT_EQ(task.Join(), -1);
  }
  EXPECT_EQ(ids.size(), 2U);
}

TEST(Task, NoticesStopAndPauseWithinOneStep) {
  ClockInPlace clock(platform::FakeClock::Sleeping::kWaits);
  for (int (Task::*change)() : {&Task::Stop, &Task::Pause}) {
    WaitingTask task(60);
    const std::int64_t start = clock.MonotonicMilliseconds();
    task.Run();
    clock.AwaitSleepers(1);
    EXPECT_EQ((task.*change)(), 0);
    clock.Advance(milliseconds(100));
    EXPECT_EQ(task.Join(), 0);
    EXPECT_EQ(task.result, -1);
    EXPECT_EQ(clock.MonotonicMilliseconds() - start, 100);
  }
}

// The waiting side drops its share of the barrier as soon as it may, so a late touch by a signaller
// is seen by the sanitizers.
TEST(Barrier, WaitsForEachWorkerAndMayGoRightAfterwards) {
  Barrier().Wait();
  for (int round = 0; round < 200; ++round) {
    auto barrier = std::make_shared<Barrier>();
    SyncLock lock;
    int reached = 0;
    std::vector<std::future<void>> workers;
    for (int id = 0; id < 3; ++id) {
      barrier->Increase(id);
      workers.push_back(std::async(std::launch::async, [&lock, &reached, barrier, id] {
        {
          SyncMutex hold(lock);
          ++reached;
        }
        barrier->Signal(id);
      }));
    }
    barrier->Wait();
    barrier.reset();
    SyncMutex hold(lock);
    EXPECT_EQ(reached, 3);
  }
}

}  // namespace
}  // namespace tolven

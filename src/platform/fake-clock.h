// A clock for tests: its time moves when it is told to.
#pragma once

#include "platform/clock.h"
#include "platform/mutex.h"

namespace tolven::platform {

class FakeClock : public Clock {
 public:
  // What a sleeper does: move the time on by itself and return, or wait until others have.
  enum class Sleeping { kMovesTime, kWaits };

  explicit FakeClock(std::int64_t wall_seconds = 1'000'000'000,
                     Sleeping sleeping = Sleeping::kMovesTime)
      : sleeping_(sleeping), wall_start_ms_(wall_seconds * 1000) {}

  std::int64_t WallSeconds() override { return WallMilliseconds() / 1000; }
  std::int64_t WallNanoseconds() override { return WallMilliseconds() * 1'000'000; }
  std::int64_t MonotonicMilliseconds() override {
    MutexLock lock(mutex_);
    return passed_ms_;
  }
  std::uint64_t PerformanceCounter() override {
    MutexLock lock(mutex_);
    return ++counter_;  // no two looks are alike, as on a real machine
  }
  void Sleep(std::chrono::milliseconds time) override {
    MutexLock lock(mutex_);
    const std::int64_t until = passed_ms_ + time.count();
    if (sleeping_ == Sleeping::kMovesTime) {
      if (until > passed_ms_) MoveTo(until);
      return;
    }
    ++sleepers_;
    moved_.NotifyAll();
    while (passed_ms_ < until) moved_.Wait(mutex_);
    --sleepers_;
  }

  void Advance(std::chrono::milliseconds time) {
    MutexLock lock(mutex_);
    MoveTo(passed_ms_ + time.count());
  }
  // Wall time jumps, as when the user sets it; waits do not notice.
  void SetWallSeconds(std::int64_t seconds) {
    MutexLock lock(mutex_);
    wall_start_ms_ = seconds * 1000 - passed_ms_;
  }
  // Returns once so many threads sleep in this clock.
  void AwaitSleepers(int count) {
    MutexLock lock(mutex_);
    while (sleepers_ < count) moved_.Wait(mutex_);
  }

 private:
  std::int64_t WallMilliseconds() {
    MutexLock lock(mutex_);
    return wall_start_ms_ + passed_ms_;
  }
  void MoveTo(std::int64_t ms) REQUIRES(mutex_) {
    passed_ms_ = ms;
    moved_.NotifyAll();
  }

  const Sleeping sleeping_;
  Mutex mutex_;
  CondVar moved_;
  std::int64_t wall_start_ms_ GUARDED_BY(mutex_);
  std::int64_t passed_ms_ GUARDED_BY(mutex_) = 0;
  std::uint64_t counter_ GUARDED_BY(mutex_) = 0;
  int sleepers_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tolven::platform

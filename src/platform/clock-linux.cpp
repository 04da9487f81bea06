#include <time.h>

#include "platform/clock.h"
#include "platform/errno-linux.h"
#include "platform/service-slot.h"

namespace tolven::platform {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

std::int64_t Now(clockid_t id) {
  timespec time{};
  ::clock_gettime(id, &time);
  return std::int64_t{time.tv_sec} * kNanoseconds + time.tv_nsec;
}

class LinuxClock : public Clock {
 public:
  std::int64_t WallSeconds() override { return WallNanoseconds() / kNanoseconds; }
  std::int64_t WallNanoseconds() override { return Now(CLOCK_REALTIME); }
  std::int64_t MonotonicMilliseconds() override { return Now(CLOCK_MONOTONIC) / 1'000'000; }
  std::uint64_t PerformanceCounter() override {
    return static_cast<std::uint64_t>(Now(CLOCK_MONOTONIC_RAW));
  }

  void Sleep(std::chrono::milliseconds time) override {
    if (time.count() <= 0) return;
    timespec left{time.count() / 1000, static_cast<long>(time.count() % 1000 * 1'000'000)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
  }
};

using Slot = ServiceSlot<Clock, LinuxClock>;

}  // namespace

Clock& clock() { return Slot::Get(); }
Clock* SetClock(Clock* clock) { return Slot::Set(clock); }

}  // namespace tolven::platform

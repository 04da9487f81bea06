// Time. Wall time is what stands in files and rows; the monotonic clock measures waits. Tests put a
// clock in place whose time moves when they say so.
#pragma once

#include <chrono>
#include <cstdint>

namespace tolven::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::int64_t WallSeconds() = 0;      // since 1970, UTC
  virtual std::int64_t WallNanoseconds() = 0;  // the same, finer
  virtual std::int64_t MonotonicMilliseconds() = 0;
  virtual std::uint64_t PerformanceCounter() = 0;  // the finest counter there is, for seeds
  virtual void Sleep(std::chrono::milliseconds time) = 0;
};

Clock& clock();
Clock* SetClock(Clock* clock);

}  // namespace tolven::platform

#include <algorithm>

#include "platform/attributes.h"
#include "platform/clock.h"
#include "platform/error-windows.h"
#include "platform/service-slot.h"

namespace tolven::platform {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kLongestSleep = 1'000'000'000;  // INFINITE is a number, too

std::int64_t Frequency() {
  LARGE_INTEGER frequency{};
  ::QueryPerformanceFrequency(&frequency);
  return std::max<std::int64_t>(frequency.QuadPart, 1);
}

std::int64_t Counter() {
  LARGE_INTEGER count{};
  ::QueryPerformanceCounter(&count);
  return count.QuadPart;
}

class WindowsClock : public Clock {
 public:
  std::int64_t WallSeconds() override { return WallNanoseconds() / kNanoseconds; }

  std::int64_t WallNanoseconds() override {
    FILETIME time{};
    ::GetSystemTimeAsFileTime(&time);
    return FromFileTime(time.dwHighDateTime, time.dwLowDateTime);
  }

  // Finer than the tick count, which moves in steps of 16 ms.
  std::int64_t MonotonicMilliseconds() override {
    const std::int64_t count = Counter();
    return count / frequency_ * 1000 + count % frequency_ * 1000 / frequency_;
  }

  std::uint64_t PerformanceCounter() override { return static_cast<std::uint64_t>(Counter()); }

  void Sleep(std::chrono::milliseconds time) override {
    for (std::int64_t left = time.count(); left > 0; left -= kLongestSleep) {
      ::Sleep(static_cast<DWORD>(std::min(left, kLongestSleep)));
    }
  }

 private:
  const std::int64_t frequency_ = Frequency();
};

using Slot = ServiceSlot<Clock, WindowsClock>;

}  // namespace

Clock& clock() { return Slot::Get(); }
Clock* SetClock(Clock* clock) { return Slot::Set(clock); }

}  // namespace tolven::platform

// The real sockets, with a clock of their own and something to happen at each wait, so that a test
// plays abort, silence and slow peers in one thread and without waiting.
#pragma once

#include <functional>

#include "platform/fake-clock.h"
#include "platform/forwarding-sockets.h"

namespace tolven::test {

class ScriptedSockets : public platform::ForwardingSockets {
 public:
  // `at_wait` is called with the count of waits so far, this one included, in the waiting thread;
  // waits of its own do not count. Each wait lasts `step` of the clock.
  ScriptedSockets(std::chrono::milliseconds step, std::function<void(int)> at_wait)
      : ForwardingSockets(platform::sockets()),
        step_(step),
        at_wait_(std::move(at_wait)),
        sockets_before_(platform::SetSockets(this)),
        clock_before_(platform::SetClock(&clock_)) {}
  ~ScriptedSockets() override {
    platform::SetSockets(sockets_before_);
    platform::SetClock(clock_before_);
  }

  platform::Status Wait(platform::NativeSocket socket, platform::SocketWait what, int) override {
    if (inside_) return ForwardingSockets::Wait(socket, what, 1);
    inside_ = true;
    at_wait_(++waits_);
    inside_ = false;
    clock_.Advance(step_);
    if (connecting_for_ever_) return {platform::ErrorKind::kTimedOut, 0};
    return ForwardingSockets::Wait(socket, what, 1);
  }
  platform::Status Connect(platform::NativeSocket socket,
                           const platform::SocketAddress& address) override {
    if (connecting_for_ever_) return {platform::ErrorKind::kInProgress, 0};
    return ForwardingSockets::Connect(socket, address);
  }

  void ConnectForEver() { connecting_for_ever_ = true; }
  int waits() const { return waits_; }
  std::int64_t now() { return clock_.MonotonicMilliseconds(); }

 private:
  platform::FakeClock clock_;
  std::chrono::milliseconds step_;
  std::function<void(int)> at_wait_;
  platform::Sockets* sockets_before_;
  platform::Clock* clock_before_;
  bool connecting_for_ever_ = false;
  bool inside_ = false;
  int waits_ = 0;
};

}  // namespace tolven::test

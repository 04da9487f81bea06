#include "client/core/control-channel.h"

#include <limits>
#include <memory>

#include "lib/abort-handler.h"
#include "platform/clock.h"

namespace tolven {

class ControlChannel::DeadlineHandler : public AbortHandler {
 public:
  bool abort() override {
    return AbortHandler::abort() || platform::clock().MonotonicMilliseconds() >= deadline;
  }

  std::int64_t deadline = std::numeric_limits<std::int64_t>::max();
};

ControlChannel::ControlChannel() : Channel(0x14000) {
  abort_handler = std::make_unique<DeadlineHandler>();
}

void ControlChannel::SetDeadline(std::uint32_t seconds) {
  static_cast<DeadlineHandler&>(*abort_handler).deadline =
      platform::clock().MonotonicMilliseconds() + std::int64_t{seconds} * 1000;
}

}  // namespace tolven

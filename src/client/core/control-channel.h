#pragma once

#include <cstdint>

#include "lib/channel.h"

namespace tolven {

// A channel whose I/O fails once a deadline has passed, however many bytes move.
class ControlChannel : public Channel {
 public:
  ControlChannel();

  // All I/O from now on has to be over in `seconds`.
  void SetDeadline(std::uint32_t seconds);

 private:
  class DeadlineHandler;
};

}  // namespace tolven

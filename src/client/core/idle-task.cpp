#include "client/core/idle-task.h"

#include <chrono>

#include "platform/clock.h"

namespace tolven {

void IdleTask::DoTask() {
  for (State state = GetState(); state != STOP; state = GetState()) {
    if (state == PAUSE) {
      platform::clock().Sleep(std::chrono::milliseconds(100));
    } else {
      Wait(1);
    }
  }
}

}  // namespace tolven

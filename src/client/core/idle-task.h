#pragma once

#include "client/core/task.h"

namespace tolven {

// Holds a place of the task table and does nothing until it is stopped.
class IdleTask : public Task {
 public:
  void DoTask() override;
};

}  // namespace tolven

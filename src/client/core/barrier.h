// Lets one thread wait until every worker that it has interrupted has let go of its event. Shared
// by shared_pointer: a worker may still be inside Signal() when the waiting thread has gone on.
#pragma once

#include <cstdint>

#include "platform/mutex.h"

namespace tolven {

class Barrier {
 public:
  // Returns once as many workers have signalled as had registered; at once when none had.
  void Wait();
  // One worker more is waited for. `id` is for the log.
  void Increase(int id);
  void Signal(int id);

 private:
  Mutex mutex_;
  CondVar cond_;
  std::uint32_t count_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tolven

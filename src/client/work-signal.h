#pragma once

#include <chrono>
#include <cstdint>

#include "platform/mutex.h"

namespace tolven {

// Lets idle tasks sleep until there may be something to do. Its lock is a leaf.
class WorkSignal {
 public:
  // Moves with every Notify(). Who takes it before looking for work misses no signal.
  uint64_t Count() EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return count_;
  }
  void Notify() EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    ++count_;
    moved_.NotifyAll();
  }
  // Returns once the count is not `seen` any more, or the time is over: whether it moved.
  bool WaitFor(uint64_t seen, std::chrono::milliseconds time) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    if (count_ == seen) moved_.WaitFor(mutex_, time);
    return count_ != seen;
  }

 private:
  Mutex mutex_;
  CondVar moved_;
  uint64_t count_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tolven

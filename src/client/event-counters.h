// How many events of each side are pending. Guarded on its own, so that who only asks for the
// numbers never waits for a long walk of the tree.
#pragma once

#include <cstdint>

#include "platform/mutex.h"

namespace tolven {

class EventCounters {
 public:
  void Add(bool server, int32_t difference) EXCLUDES(mutex_count_) {
    MutexLock lock(mutex_count_);
    (server ? server_event_count_ : local_event_count_) += difference;
  }
  int32_t Get(bool server) const EXCLUDES(mutex_count_) {
    MutexLock lock(mutex_count_);
    return server ? server_event_count_ : local_event_count_;
  }
  bool AreZero() const EXCLUDES(mutex_count_) {
    MutexLock lock(mutex_count_);
    return server_event_count_ == 0 && local_event_count_ == 0;
  }
  void Reset(bool server) EXCLUDES(mutex_count_) {
    MutexLock lock(mutex_count_);
    (server ? server_event_count_ : local_event_count_) = 0;
  }

 private:
  mutable Mutex mutex_count_;
  int32_t server_event_count_ GUARDED_BY(mutex_count_) = 0;
  int32_t local_event_count_ GUARDED_BY(mutex_count_) = 0;
};

}  // namespace tolven

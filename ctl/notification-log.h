// What the daemon has told since it was started: the latest messages, numbered.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "protocol/object.h"

namespace tolven::ctl {

// Any thread may call anything.
class NotificationLog {
 public:
  void Add(const PObject& message);

  // Messages with a number above `since`, oldest first; `next` is the number to ask with later.
  // When there is none yet, waits up to `wait` for one. Messages beyond the latest 1,000 are gone.
  std::vector<PObject> After(std::uint64_t since, std::chrono::milliseconds wait,
                             std::uint64_t& next);

  // Ends every wait, now and later.
  void Close();

 private:
  Mutex mutex_;
  CondVar changed_;
  std::deque<PObject> messages_ GUARDED_BY(mutex_);
  std::uint64_t last_ GUARDED_BY(mutex_) = 0;  // number of the newest message
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace tolven::ctl

// Sessions in which a change came to nothing without an error that would repeat it, so that a
// rescan has to find it again. A session is taken on once a minute at most.
//
// Any thread may call.
#pragma once

#include <cstdint>
#include <map>

#include "platform/mutex.h"

namespace tolven {

class RescanRequests {
 public:
  static RescanRequests& getInstance();

  RescanRequests() = default;
  RescanRequests(const RescanRequests&) = delete;
  RescanRequests& operator=(const RescanRequests&) = delete;

  void Add(std::uint64_t sess_id) EXCLUDES(mutex_);
  // Whether the session is to be scanned now; the request is gone then.
  bool Take(std::uint64_t sess_id) EXCLUDES(mutex_);

 private:
  struct Request {
    bool is_open = false;
    bool was_taken = false;
    std::int64_t taken_at = 0;  // monotonic milliseconds
  };

  Mutex mutex_;
  std::map<std::uint64_t, Request> requests_ GUARDED_BY(mutex_);
};

}  // namespace tolven

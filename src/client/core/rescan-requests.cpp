#include "client/core/rescan-requests.h"

#include "platform/clock.h"

namespace tolven {

namespace {

constexpr std::int64_t kPauseMilliseconds = 60'000;

}  // namespace

RescanRequests& RescanRequests::getInstance() {
  static RescanRequests instance;
  return instance;
}

void RescanRequests::Add(std::uint64_t sess_id) {
  const MutexLock lock(mutex_);
  requests_[sess_id].is_open = true;
}

bool RescanRequests::Take(std::uint64_t sess_id) {
  const std::int64_t now = platform::clock().MonotonicMilliseconds();
  const MutexLock lock(mutex_);
  const auto found = requests_.find(sess_id);
  if (found == requests_.end() || !found->second.is_open) return false;
  Request& request = found->second;
  if (request.was_taken && now - request.taken_at < kPauseMilliseconds) return false;
  request = {false, true, now};
  return true;
}

}  // namespace tolven

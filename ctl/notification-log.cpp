#include "ctl/notification-log.h"

#include <algorithm>

namespace tolven::ctl {
namespace {

constexpr std::size_t kKept = 1000;

}  // namespace

void NotificationLog::Add(const PObject& message) {
  MutexLock lock(mutex_);
  messages_.push_back(message);
  if (messages_.size() > kKept) messages_.pop_front();
  ++last_;
  changed_.NotifyAll();
}

std::vector<PObject> NotificationLog::After(std::uint64_t since, std::chrono::milliseconds wait,
                                            std::uint64_t& next) {
  MutexLock lock(mutex_);
  if (since >= last_ && !closed_ && wait.count() > 0) changed_.WaitFor(mutex_, wait);
  next = last_;
  const std::uint64_t wanted = since < last_ ? last_ - since : 0;
  const auto count = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(wanted, messages_.size()));
  return {messages_.end() - count, messages_.end()};
}

void NotificationLog::Close() {
  MutexLock lock(mutex_);
  closed_ = true;
  changed_.NotifyAll();
}

}  // namespace tolven::ctl

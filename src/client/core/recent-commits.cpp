#include "client/core/recent-commits.h"

#include <string>

#include "platform/clock.h"

namespace tolven {

namespace {

constexpr std::int64_t kSeconds = 2;

}  // namespace

RecentCommits& RecentCommits::getInstance() {
  static RecentCommits instance;
  return instance;
}

ustring RecentCommits::Key(std::uint64_t sess_id, const ustring& path) {
  return ustring(std::to_string(sess_id) + "|" + path.str());
}

// A time in the future says nothing of when the file was written.
bool RecentCommits::IsSoonAfter(std::uint32_t mtime) {
  return platform::clock().WallSeconds() - std::int64_t{mtime} <= kSeconds;
}

void RecentCommits::Committed(std::uint64_t sess_id, const ustring& path, std::uint32_t mtime) {
  const bool is_recent = IsSoonAfter(mtime);
  ustring key = Key(sess_id, path);
  const MutexLock lock(mutex_);
  if (!is_recent) {
    paths_.erase(key);
    return;
  }
  if (!paths_.insert(key).second) return;
  order_.push_back(std::move(key));
  while (order_.size() > kMaxPaths) {
    paths_.erase(order_.front());
    order_.pop_front();
  }
}

bool RecentCommits::NeedsHash(std::uint64_t sess_id, const ustring& path) const {
  const MutexLock lock(mutex_);
  return !paths_.empty() && paths_.contains(Key(sess_id, path));
}

void RecentCommits::Compared(std::uint64_t sess_id, const ustring& path, std::uint32_t mtime) {
  if (IsSoonAfter(mtime)) return;
  const MutexLock lock(mutex_);
  paths_.erase(Key(sess_id, path));
}

}  // namespace tolven

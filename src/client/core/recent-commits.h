// Files that were committed so soon after their last write that another write of equal size, within
// the same second, would not show in size and time. For them the content has to be compared.
//
// In memory only, and any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class RecentCommits {
 public:
  static RecentCommits& getInstance();

  RecentCommits() = default;
  RecentCommits(const RecentCommits&) = delete;
  RecentCommits& operator=(const RecentCommits&) = delete;

  // A file of a session was committed; `mtime` is its own time, seconds since 1970.
  void Committed(std::uint64_t sess_id, const ustring& path, std::uint32_t mtime) EXCLUDES(mutex_);
  bool NeedsHash(std::uint64_t sess_id, const ustring& path) const EXCLUDES(mutex_);
  // The content was compared and had not changed. Once this happens late enough, size and time will
  // do.
  void Compared(std::uint64_t sess_id, const ustring& path, std::uint32_t mtime) EXCLUDES(mutex_);

 private:
  static ustring Key(std::uint64_t sess_id, const ustring& path);
  static bool IsSoonAfter(std::uint32_t mtime);

  static constexpr std::size_t kMaxPaths = 100'000;

  mutable Mutex mutex_;
  std::unordered_set<ustring> paths_ GUARDED_BY(mutex_);
  std::deque<ustring> order_ GUARDED_BY(mutex_);  // oldest first; may name what is gone
};

}  // namespace tolven

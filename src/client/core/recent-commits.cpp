#include "client/core/recent-commits.h"

#include <string>
#include <utility>
#include <vector>

#include "client/file-event-db.h"
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

int RecentCommits::Load(FileEventDB& db, std::uint64_t sess_id) {
  std::vector<ustring> paths;
  if (db.getUncertain(paths) != 0) return -1;
  const std::string session = Key(sess_id, "").str();
  const MutexLock lock(mutex_);
  std::erase_if(paths_, [&session](const ustring& key) { return key.view().starts_with(session); });
  for (const ustring& path : paths) Add(Key(sess_id, path));
  return 0;
}

bool RecentCommits::Add(ustring key) {
  if (!paths_.insert(key).second) return false;
  order_.push_back(std::move(key));
  while (order_.size() > kMaxPaths) {
    paths_.erase(order_.front());
    order_.pop_front();
  }
  return true;
}

// First in the database, so that whoever finds the path here finds it there, too.
int RecentCommits::Committing(FileEventDB& db, std::uint64_t sess_id, const ustring& path,
                              std::uint32_t mtime) {
  if (!IsSoonAfter(mtime) || NeedsHash(sess_id, path)) return 0;
  if (db.addUncertain(path) != 0) return -1;
  const MutexLock lock(mutex_);
  Add(Key(sess_id, path));
  return 0;
}

void RecentCommits::Committed(FileEventDB& db, std::uint64_t sess_id, const ustring& path,
                              std::uint32_t mtime) {
  if (!IsSoonAfter(mtime)) Forget(db, sess_id, path);
}

void RecentCommits::Forget(FileEventDB& db, std::uint64_t sess_id, const ustring& path) {
  {
    const MutexLock lock(mutex_);
    if (paths_.erase(Key(sess_id, path)) == 0) return;
  }
  // One that stays there is only compared once more than needed.
  (void)db.rmUncertain(path);
}

bool RecentCommits::NeedsHash(std::uint64_t sess_id, const ustring& path) const {
  const MutexLock lock(mutex_);
  return !paths_.empty() && paths_.contains(Key(sess_id, path));
}

void RecentCommits::Compared(FileEventDB& db, std::uint64_t sess_id, const ustring& path,
                             std::uint32_t mtime) {
  if (!IsSoonAfter(mtime)) Forget(db, sess_id, path);
}

}  // namespace tolven

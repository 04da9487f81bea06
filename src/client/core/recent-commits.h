// Files that were committed so soon after their last write that another write of equal size, within
// the same second, would not show in size and time. For them the content has to be compared.
//
// In memory, and in the session's database for the next start: the write may come just before an
// end. Any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class FileEventDB;

class RecentCommits {
 public:
  static RecentCommits& getInstance();

  RecentCommits() = default;
  RecentCommits(const RecentCommits&) = delete;
  RecentCommits& operator=(const RecentCommits&) = delete;

  // What the database of a session that starts knows, in place of what was known of the session.
  int Load(FileEventDB& db, std::uint64_t sess_id) EXCLUDES(mutex_);
  // A file's record is about to be written; `mtime` is the file's own time, seconds since 1970. 0,
  // or -1 when the next start would not know.
  int Committing(FileEventDB& db, std::uint64_t sess_id, const ustring& path, std::uint32_t mtime)
      EXCLUDES(mutex_);
  // It was written.
  void Committed(FileEventDB& db, std::uint64_t sess_id, const ustring& path, std::uint32_t mtime)
      EXCLUDES(mutex_);
  bool NeedsHash(std::uint64_t sess_id, const ustring& path) const EXCLUDES(mutex_);
  // The content was compared and had not changed. Once this happens late enough, size and time will
  // do.
  void Compared(FileEventDB& db, std::uint64_t sess_id, const ustring& path, std::uint32_t mtime)
      EXCLUDES(mutex_);

 private:
  static ustring Key(std::uint64_t sess_id, const ustring& path);
  static bool IsSoonAfter(std::uint32_t mtime);
  // Whether the path is new.
  bool Add(ustring key) REQUIRES(mutex_);
  void Forget(FileEventDB& db, std::uint64_t sess_id, const ustring& path) EXCLUDES(mutex_);

  static constexpr std::size_t kMaxPaths = 100'000;

  mutable Mutex mutex_;
  std::unordered_set<ustring> paths_ GUARDED_BY(mutex_);
  std::deque<ustring> order_ GUARDED_BY(mutex_);  // oldest first; may name what is gone
};

}  // namespace tolven

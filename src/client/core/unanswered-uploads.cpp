#include "client/core/unanswered-uploads.h"

#include <algorithm>

namespace tolven {

UnansweredUploads& UnansweredUploads::getInstance() {
  static UnansweredUploads instance;
  return instance;
}

void UnansweredUploads::Add(std::uint64_t sess_id, const ustring& path, const ustring& hash) {
  const MutexLock lock(mutex_);
  const Key key(sess_id, path);
  if (hashes_.size() >= kMaxPaths && !hashes_.contains(key)) return;
  std::vector<ustring>& sent = hashes_[key];
  if (std::find(sent.begin(), sent.end(), hash) != sent.end()) return;
  if (sent.size() == kMaxContents) sent.erase(sent.begin());
  sent.push_back(hash);
}

void UnansweredUploads::Remove(std::uint64_t sess_id, const ustring& path) {
  const MutexLock lock(mutex_);
  if (!hashes_.empty()) hashes_.erase(Key(sess_id, path));
}

bool UnansweredUploads::Take(std::uint64_t sess_id, const ustring& path, const ustring& hash) {
  const MutexLock lock(mutex_);
  const auto found = hashes_.empty() ? hashes_.end() : hashes_.find(Key(sess_id, path));
  if (found == hashes_.end()) return false;
  const std::vector<ustring>& sent = found->second;
  if (std::find(sent.begin(), sent.end(), hash) == sent.end()) return false;
  hashes_.erase(found);
  return true;
}

}  // namespace tolven

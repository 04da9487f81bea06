// Contents that were sent to the server without an answer. Whether it has taken them is not known
// until it tells of a change of the path: of such a content, it is this side's own.
//
// In memory only, and any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class UnansweredUploads {
 public:
  static UnansweredUploads& getInstance();

  UnansweredUploads() = default;
  UnansweredUploads(const UnansweredUploads&) = delete;
  UnansweredUploads& operator=(const UnansweredUploads&) = delete;

  void Add(std::uint64_t sess_id, const ustring& path, const ustring& hash) EXCLUDES(mutex_);
  // The server has taken another content of this path, so it has none of these.
  void Remove(std::uint64_t sess_id, const ustring& path) EXCLUDES(mutex_);
  // Whether this content is one of the path's; what is known of the path is then forgotten.
  bool Take(std::uint64_t sess_id, const ustring& path, const ustring& hash) EXCLUDES(mutex_);

 private:
  using Key = std::pair<std::uint64_t, ustring>;

  // More than ever are under way at once; beyond it nothing is remembered.
  static constexpr std::size_t kMaxPaths = 10'000;
  static constexpr std::size_t kMaxContents = 4;  // of a path, the last ones

  Mutex mutex_;
  std::map<Key, std::vector<ustring>> hashes_ GUARDED_BY(mutex_);
};

}  // namespace tolven

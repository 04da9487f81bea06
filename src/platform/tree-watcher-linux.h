// Watches a whole tree with inotify: reads the kernel's queue, joins the halves of renames and
// tells what happened as the records that both platforms have.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dir-watch.h"
#include "platform/folder-watches-linux.h"
#include "platform/modify-throttle-linux.h"

struct inotify_event;

namespace tolven::platform {

// Not for two threads at once.
class TreeWatcher {
 public:
  using Clock = std::chrono::steady_clock;

  TreeWatcher(const ustring& root, const ustring& skip_name);
  TreeWatcher(const TreeWatcher&) = delete;
  TreeWatcher& operator=(const TreeWatcher&) = delete;

  Status Start() { return watches_.Start(); }
  // As in DirWatch. After kGone and kFailed, which come once, there is nothing more.
  WatchResult Read(std::vector<WatchRecord>& records, Status& status);

  int fd() const { return watches_.fd(); }
  bool ended() const { return ended_; }
  // When a Read is worth while though the kernel has nothing new; none for never.
  std::optional<Clock::time_point> Due() const;

 private:
  // The first half of a rename, until its second half comes or is too late.
  struct HalfMove {
    unsigned cookie = 0;
    int wd = -1;
    bool folder = false;
    std::string name;
    Clock::time_point until;
  };

  bool ReadQueue(Status& status);
  void Process(const inotify_event& event, std::string_view name);
  void ProcessNamed(WatchedFolder& folder, const inotify_event& event, std::string_view name);
  void ProcessWrite(const inotify_event& event, const std::string& path);
  void BeginMove(const WatchedFolder& folder, const inotify_event& event, std::string_view name);
  void EndMove(WatchedFolder& to, const inotify_event& event, std::string_view name);
  void FlushHalfMove();
  void FlushDue();
  void Tell(WatchAction action, const std::string& path);
  WatchResult End(WatchResult result);

  FolderWatches watches_;
  ModifyThrottle throttle_;
  std::optional<HalfMove> half_move_;
  std::vector<WatchRecord> records_;
  bool gone_ = false;
  bool overflow_ = false;
  bool ended_ = false;
  bool limit_told_ = false;
};

}  // namespace tolven::platform

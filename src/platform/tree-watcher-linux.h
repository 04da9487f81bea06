// Watches a whole tree with inotify, which itself watches single folders.
//
// The kernel's queue tells of the past, while a look at the disk shows the present. Three rules
// keep the two together:
//  - A new folder is watched first and read then. What was made in it before is found by reading,
//    what is made later is told; what falls in between comes twice.
//  - A folder is moved in the tree as the queue says, and then looked at: the watch number of the
//    new name must be that of the folder. Where it is not, the names have been used anew since, and
//    both are taken as new.
//  - A watch whose place is not known for sure is given up. Whatever brings the folder back into
//    the tree, a later event or the reading of its parent, watches and reads it anew.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dir-watch.h"
#include "platform/modify-throttle-linux.h"
#include "platform/watch-tree-linux.h"

struct inotify_event;

namespace tolven::platform {

// Not for two threads at once.
class TreeWatcher {
 public:
  using Clock = std::chrono::steady_clock;

  TreeWatcher(const ustring& root, const ustring& skip_name);
  ~TreeWatcher();
  TreeWatcher(const TreeWatcher&) = delete;
  TreeWatcher& operator=(const TreeWatcher&) = delete;

  Status Start();
  // As in DirWatch. After kGone and kFailed, which come once, there is nothing more.
  WatchResult Read(std::vector<WatchRecord>& records, Status& status);

  int fd() const { return fd_; }
  bool ended() const { return ended_; }
  // When a Read is worth while though the kernel has nothing new; none for never.
  std::optional<Clock::time_point> Due() const;

 private:
  enum class Attached { kNone, kKnown, kNew };
  // The first half of a rename, until its second half comes or is too late.
  struct HalfMove {
    unsigned cookie = 0;
    int wd = -1;
    bool folder = false;
    std::string name;
    Clock::time_point until;
  };

  Status OpenQueue();
  Status WatchRoot();
  bool ReadQueue(Status& status);
  void Process(const inotify_event& event, std::string_view name);
  void ProcessNamed(WatchedFolder& folder, const inotify_event& event, std::string_view name);
  void ProcessWrite(const inotify_event& event, const std::string& path);
  void BeginMove(const WatchedFolder& folder, const inotify_event& event, std::string_view name);
  void EndMove(WatchedFolder& to, const inotify_event& event, std::string_view name);
  void MoveFolder(WatchedFolder& from, std::string_view from_name, WatchedFolder& to,
                  std::string_view to_name);
  void FlushHalfMove();
  void FlushDue();

  void Arrive(WatchedFolder& parent, std::string_view name);
  void Leave(WatchedFolder& parent, std::string_view name);
  Attached Attach(WatchedFolder& parent, std::string_view name, int& wd);
  Attached AttachAt(int dir, WatchedFolder& parent, std::string_view name, int& wd);
  int AddWatch(int dir, std::string_view name, unsigned mask);
  int OpenFolder(const WatchedFolder& folder);
  void NoteFailure(int code);
  void GiveUp(WatchedFolder& folder);
  void ReadTree(int wd, bool report);
  void ReadMissed(int moved);
  void ReadFolder(WatchedFolder& folder, bool report, std::vector<int>& found);

  std::string FullPath(const WatchedFolder& folder) const;
  std::string RelativePath(const WatchedFolder& folder, std::string_view name) const;
  void Tell(WatchAction action, const std::string& path);
  WatchResult End(WatchResult result);

  const std::string root_;  // without a separator at its end
  const std::string skip_name_;
  int fd_ = -1;
  int root_wd_ = -1;
  WatchTree tree_;
  ModifyThrottle throttle_;
  std::optional<HalfMove> half_move_;
  std::set<int> missed_;  // folders whose path did not lead to them
  std::vector<WatchRecord> records_;
  bool gone_ = false;
  bool overflow_ = false;
  bool ended_ = false;
  bool limit_reached_ = false;
  bool limit_told_ = false;
};

}  // namespace tolven::platform

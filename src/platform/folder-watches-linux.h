// inotify watches on every folder of a tree, kept in step with it as the queue is read.
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

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"
#include "platform/watch-tree-linux.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// Not for two threads at once. A folder given by reference may be gone after each call that is not
// const.
class FolderWatches {
 public:
  // Told of everything that the reading of a new folder finds, relative to the root. False ends the
  // reading.
  using Found = std::function<bool(const std::string& path)>;

  FolderWatches(const ustring& root, const ustring& skip_name, Found found);
  ~FolderWatches();
  FolderWatches(const FolderWatches&) = delete;
  FolderWatches& operator=(const FolderWatches&) = delete;

  // Watches the whole tree; nothing is reported. kTooMany at the limit of watches or queues.
  Status Start();
  // The same with a new and empty queue, once records were lost.
  Status Restart();

  int fd() const { return fd_; }
  int root_wd() const { return root_wd_; }
  // Whether a folder could not be watched because the system refused one more.
  bool limit_reached() const { return limit_reached_; }
  bool IsSkipped(std::string_view name) const { return name == skip_name_; }
  // Null for a watch that was given up.
  WatchedFolder* Find(int wd) { return tree_.Find(wd); }
  static std::string PathOf(const WatchedFolder& folder, std::string_view name);

  // A folder has appeared under this name: watches it and reports what it holds already.
  void Arrive(WatchedFolder& parent, std::string_view name);
  // The name is gone, or leads out of the tree now.
  void Leave(WatchedFolder& parent, std::string_view name);
  void Move(WatchedFolder& from, std::string_view from_name, WatchedFolder& to,
            std::string_view to_name);
  void GiveUp(WatchedFolder& folder);
  // The queue is empty, so that it has caught up with the disk: what is still missed does not
  // exist.
  void CaughtUp() { missed_.clear(); }

 private:
  enum class Attached { kNone, kKnown, kNew };

  Status OpenQueue();
  Status WatchRoot();
  Attached Attach(WatchedFolder& parent, std::string_view name, int& wd);
  Attached AttachAt(int dir, WatchedFolder& parent, std::string_view name, int& wd);
  int AddWatch(int dir, std::string_view name, unsigned mask);
  int OpenFolder(const WatchedFolder& folder);
  void NoteFailure(int code);
  void ReadTree(int wd, bool report);
  void ReadMissed(int moved);
  void ReadFolder(WatchedFolder& folder, bool report, std::vector<int>& found);
  std::string FullPath(const WatchedFolder& folder) const;

  const std::string root_;  // without a separator at its end
  const std::string skip_name_;
  const Found found_;
  int fd_ = -1;
  int root_wd_ = -1;
  WatchTree tree_;
  std::set<int> missed_;  // folders whose path did not lead to them
  bool limit_reached_ = false;
  bool stopped_ = false;  // by `found_`
};

}  // namespace tolven::platform

// Compares what the disk holds with what the database remembers, and plans what brings both
// together. A plan is pushed as a whole or not at all.
#pragma once

#include <atomic>
#include <vector>

#include "client/core/event-record.h"
#include "client/core/registry.h"
#include "client/file-list.h"
#include "ustring/ustring.h"

namespace tolven {

// Used once, by one thread.
class FolderDiff {
 public:
  // `root` is the folder below which both lists are, as an event path. With `do_merge` what is
  // missing on disk is fetched again, otherwise it is removed on the server. `abort_flag` may be
  // null.
  FolderDiff(const Registry::Entry& entry, const ustring& root, bool do_merge,
             const std::atomic<int>* abort_flag);

  // 0: the events are queued. -1, with nothing queued: aborted, one of the lists lacks something,
  // or the session's folder is not the one it was.
  int Run(const FileList& fs_list, const FileList& db_list);

 private:
  using Entry = FileList::Entry;

  bool Aborted() const { return abort_flag_ != nullptr && abort_flag_->load() != 0; }
  int Walk(const FileList& fs_list, const FileList& db_list);
  void Compare(const Entry& on_disk, const Entry& known);
  bool IsModified(const Entry& on_disk, const Entry& known) const;
  void Upload(const Entry& on_disk);
  void Missing(const Entry& known);
  int DropWhatStays();

  const shared_pointer<Registry::Entry> entry_;
  const ustring prefix_;
  const bool do_merge_;
  const std::atomic<int>* const abort_flag_;
  std::vector<EventRecord> plan_;
  bool has_uploads_ = false, has_missing_ = false;
};

// Whether a path that is missing on disk is so because of a filter, and must not be removed on the
// server: 1, or 0. A removal that a filter holds back is parked, unless the path is there.
int TestFilteredDelete(const Registry::Entry& entry, const ustring& path, bool is_dir);

}  // namespace tolven

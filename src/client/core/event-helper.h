// Comparisons of a folder with the database, for the handlers of one worker.
#pragma once

#include <atomic>
#include <functional>

#include "client/file-list.h"
#include "ustring/ustring.h"

namespace tolven {

class EventContext;

class EventHelper {
 public:
  // Lists the folder on disk: 0, also when the folder does not exist, or negative when it was
  // interrupted or anything could not be read.
  using ListDisk = std::function<int(FileList& list)>;
  // Lists the same part of the database: 0 or -1.
  using ListDatabase = std::function<int(FileList& list)>;

  // Of CompareFolder, beside 0 and -1: the session's folder is not the one that it was. The event
  // has to go back and wait.
  static constexpr int kRootNotProved = -2;

  // Compares two lists below `root` and queues the difference: 0. -1 with nothing queued, see
  // FolderDiff.
  static int GenerateEventByDiff(EventContext& context, const ustring& root,
                                 const FileList& fs_list, const FileList& db_list, bool do_merge,
                                 const std::atomic<int>* abort_flag);

  // Takes both lists and compares them. The database is listed before the disk: a file that arrives
  // meanwhile is at worst uploaded for nothing and never taken for a missing one. The session's
  // folder is looked at before and after.
  static int CompareFolder(EventContext& context, const ustring& root,
                           const ListDatabase& list_database, const ListDisk& list_disk,
                           bool do_merge, const std::atomic<int>* abort_flag);

  // For a path that is missing on disk: 1 when a filter keeps it out, so that it must not be
  // removed on the server, else 0. The removal that is held back is parked.
  static int TestFilteredDeleteEvent(EventContext& context, const ustring& path, bool is_dir);
};

}  // namespace tolven

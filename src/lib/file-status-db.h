// What state each path in flux is in, in a small SQLite file that another process (a file manager's
// overlay icons) reads while the daemon writes it. Paths are absolute and local, with "\" as
// separator. The daemon empties the file at each start, so it gives up durability for speed: WAL
// journal, no syncs.
//
//   fstatinfo(id INTEGER PRIMARY KEY AUTOINCREMENT, path text unique, fileType integer,
//             syncStatus integer)
//
// Every operation is a transaction of its own that the other process sees when the call returns.
// One connection stays open between the calls: closing the last one copies the journal back and
// deletes it, which costs several times the write itself (measured in bench/fstat). A failed
// operation closes the connection, and the next one opens it anew.
//
// All operations may be called from any thread and wait up to 5 minutes for a lock of another
// process. Failures are logged under "fstat_db_debug".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ustring/ustring.h"

namespace tolven {

using zentstring = std::string;  // UTF-8

enum __tag_FStatus_Info_Type {
  FSTAT_UNKNOWN = 0,    // no information
  FSTAT_SYNCED = 1,     // done
  FSTAT_SYNCING = 2,    // an event on this path is pending
  FSTAT_UNSUPPORT = 3,  // cannot be synced
  FSTAT_READ_ONLY = 4,  // read-only for this user
  FSTAT_NO_PERM = 5,    // no permission
  FSTAT_NUM_OF_TYPE = 6
};

struct FileStatusInfo {
  int fileType = 0;  // 0 file, 1 directory
  int syncStatus = FSTAT_UNKNOWN;
  zentstring path;

  void clear() { *this = FileStatusInfo(); }
};

// Where not told otherwise, operations return 0 or SQLite's error code.
class FileStatusDB {
 public:
  explicit FileStatusDB(const ustring& path);

  // Remembers the path for the whole process, opens the file and creates the table. -1 for an empty
  // path.
  static int initialize(const ustring& path);
  // Closes the file and forgets the path.
  static void destroy();

  // Replaces what is known of a path; the row gets a new id.
  static int setFileSyncStat(const FileStatusInfo& info);
  // The path and everything below it, with either separator.
  static int rmFileSyncStat(const FileStatusInfo& info);
  // That path alone.
  static int rmFileStatByPath(const ustring& path);
  // The same for many paths at once: all or none.
  static int rmFileStatByPaths(const std::vector<ustring>& paths);
  // 1 with `info` filled, 0 with no row, -1 on error, for an empty path or null `info`.
  static int getFileSyncStat(const ustring& path, FileStatusInfo* info);
  // One page of the direct children of a path that uses "/": null, with `count` 0, when there are
  // none and on error.
  static std::unique_ptr<FileStatusInfo[]> getFileSyncStats(const ustring& path, int offset,
                                                            int limit, int& count);
  // Always false, on purpose, even while paths are pending: the answer that readers know.
  static bool isAnyFileSyncing();
  // Whether anything whose path begins with `path` is pending.
  static bool isAnySubFileDirSyncing(const ustring& path);
  // Turns pending into done.
  static int updateAllSyncingEntry();
  static int removeAllEntry();
};

}  // namespace tolven

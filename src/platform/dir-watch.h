// Notification of changes below a folder. Both platforms deliver the same records; what they mean
// for syncing is decided by portable code.
//
// A watch is a hint and the disk is the truth: when records are lost, a read says so and the caller
// looks at the whole tree again.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

enum class WatchAction : std::uint32_t {
  kAdded = 1,
  kRemoved = 2,
  kModified = 3,
  kRenamedOld = 4,  // always followed by kRenamedNew when both names lie below the root
  kRenamedNew = 5,
};

struct WatchRecord {
  // A number and not the enumeration: a record from the system may hold any.
  std::uint32_t action = 0;
  ustring name;  // relative to the root, without a leading separator
};

enum class WatchResult {
  kRecords,   // `records` has at least one
  kNothing,   // no completed request
  kOverflow,  // records were lost
  kGone,      // the root itself went away; the watch is dead
  kFailed,    // the watch is dead, see `status`
  kLimit,     // the system's limit of watched folders is reached: changes in some folders will
              // never be told; told once, the watch goes on with what it has
};

// One watched root, shared with the thread that waits on it. Destruction cancels the pending
// request and waits for its end.
class DirWatch {
 public:
  virtual ~DirWatch() = default;
  // Takes what has been reported since the last call and arms the next request. Never waits.
  virtual WatchResult Read(std::vector<WatchRecord>& records, Status& status) = 0;
};

class DirWatchService {
 public:
  virtual ~DirWatchService() = default;
  // Starts to watch the whole tree below `root`, links not followed. Folders whose last component
  // is `skip_name` are not watched at any depth (the working directory).
  virtual Status Open(const ustring& root, const ustring& skip_name,
                      std::shared_ptr<DirWatch>& watch) = 0;
  // Waits until one of `watches` has something to read, at most `timeout_ms`; the index of one
  // that has, -1 when the time is up, -2 on failure.
  virtual int Wait(const std::vector<std::shared_ptr<DirWatch>>& watches, int timeout_ms,
                   Status& status) = 0;
  // What WatchResult::kLimit is about and how to raise it, for a log line. Empty where there is no
  // such limit.
  virtual ustring LimitHint() = 0;
};

DirWatchService& dir_watch();
DirWatchService* SetDirWatch(DirWatchService* service);

}  // namespace tolven::platform

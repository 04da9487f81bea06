// The task that turns changes below the sessions' folders into local events. It merges and compares
// nothing: it hands on what the system reports, and where the system lost count it asks for a
// rescan.
//
// AddWatch and RemoveWatch may be called by any thread. Locks are taken in the order
// Detector::lock, then those of EventManager. Messages go to "detector_debug".
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "client/core/task.h"
#include "client/windows/change-translator.h"
#include "client/windows/detector-world.h"
#include "platform/dir-watch.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class Detector : public Task {
 public:
  Detector();
  ~Detector() override;

  // Watches the whole tree below a folder and makes the working directory in it. A session that is
  // watched already keeps what it has. 0 or -1.
  int AddWatch(const ustring& path, std::uint64_t sess_id) EXCLUDES(lock);
  void RemoveWatch(std::uint64_t sess_id) EXCLUDES(lock);

  void DoTask() override;

 private:
  friend struct DetectorPeer;  // lets tests take single steps

  struct session_info {
    ustring path;
    // Volume and file id of the folder that is watched; none: not known.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> root;
    std::shared_ptr<platform::DirWatch> watch;  // null while the folder is away
    std::vector<platform::WatchRecord> read_buffer;
    std::uint64_t generation = 0;   // tells a watch from an earlier one of the session
    std::int64_t next_look = 0;     // when the path is looked at whether it still leads there, ms
    std::int64_t next_try = 0;      // when a folder that is away is looked for, ms
    std::int64_t next_rescan = -1;  // for what is not watched for want of watches; -1: all is
  };
  using Watches = std::vector<std::shared_ptr<platform::DirWatch>>;

  // 1: something can be read, 0: nothing came, -1: the wait failed, a second ago.
  int WaitHandle() EXCLUDES(lock);
  void ReadFromHandle() EXCLUDES(lock);
  void ReadFromBuffer() EXCLUDES(lock);
  void ReadWatch(std::uint64_t sess_id, session_info& info) REQUIRES(lock);
  void Lose(std::uint64_t sess_id, session_info& info, const platform::Status& status)
      REQUIRES(lock);
  void BeginRescans(std::uint64_t sess_id, session_info& info) REQUIRES(lock);
  void Translate(std::uint64_t sess_id, session_info& info) REQUIRES(lock);
  // Looks for folders that are away, and rescans what cannot be watched.
  void CareForWatches() EXCLUDES(lock);
  // A volume may go, and another come in its place, without a word from the watch of the first.
  void CheckRoots() EXCLUDES(lock);
  void CheckRoot(std::uint64_t sess_id, const session_info& seen) EXCLUDES(lock);
  void Rearm(std::uint64_t sess_id, const ustring& path, std::uint64_t generation) EXCLUDES(lock);
  static void PushEvent(const Event& event);

  DetectorWorld world_;
  bool wait_failed_ = false;  // and was told; belongs to the task's thread
  Mutex lock;
  std::map<std::uint64_t, session_info> index GUARDED_BY(lock);
  ChangeTranslator translator_ GUARDED_BY(lock);
  std::uint64_t last_generation_ GUARDED_BY(lock) = 0;
};

}  // namespace tolven

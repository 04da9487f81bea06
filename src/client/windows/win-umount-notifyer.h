// Tells the user interface which sessions lose their folder when a volume goes away. Nothing of
// their syncing changes here: what the folder's absence means is for those to judge who meet it.
#pragma once

#include <cstdint>
#include <map>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

// Operations may be called from any thread; messages go to "umount_notifyer_debug".
class WinUmountNotifyer {
 public:
  static WinUmountNotifyer& GetInstance();

  // The session's local folder. A session that is known keeps what it has. 0.
  int AddWatch(const ustring& path, std::uint64_t sess_id);
  void RemoveWatch(std::uint64_t sess_id);
  void Clear();
  // A volume went away: a drive letter ("E"), or the folder that it was mounted on ("/media/e").
  void NotifyUnmount(const ustring& drive);

  // Whether a folder lies on a volume named so.
  static bool IsOnVolume(const ustring& path, const ustring& drive);

 private:
  Mutex m_mutex;
  std::map<std::uint64_t, ustring> index GUARDED_BY(m_mutex);
};

}  // namespace tolven

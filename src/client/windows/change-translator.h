// What the system's records of changes below a folder mean for syncing: paths are normalised, what
// can never be user data is dropped, renames are paired, and files are told from directories. The
// same for all platforms; it touches nothing itself and asks a ChangeWorld. Messages go to
// "detector_debug". Not locked.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "client/event.h"
#include "platform/dir-watch.h"
#include "ustring/ustring.h"

namespace tolven {

// What the translator has to know.
class ChangeWorld {
 public:
  enum class Node {
    MISSING,
    FILE,
    DIRECTORY,
    NO_USER_DATA,  // a link, a device, a temporary or offline file, or what may not be looked at
  };

  virtual ~ChangeWorld() = default;
  virtual Node Look(const ustring& full_path) = 0;
  // The same path without short names; as it is when it cannot be told.
  virtual ustring LongPath(const ustring& full_path) = 0;
  // Whether a path that is gone was a directory, from what the session remembers: 1 with `is_dir`,
  // 0 when it never knew the path, -1 when there is no such session.
  virtual int FindRemembered(std::uint64_t sess_id, const ustring& path, bool& is_dir) = 0;
  // The session's own folder inside `root` went away.
  virtual void RecreateWorkingDirectory(std::uint64_t sess_id, const ustring& root) = 0;
};

class ChangeTranslator {
 public:
  // Nothing that begins with one of `private_dirs` is reported.
  ChangeTranslator(ChangeWorld& world, std::vector<ustring> private_dirs);

  // 0 with `event` filled, or -1 when the record means no event (yet). A rename comes as EV_RENAME.
  int Translate(Event& event, std::uint64_t sess_id, const ustring& root,
                const platform::WatchRecord& record);
  // Drops the half of a rename that still waits for the other one.
  void Forget(std::uint64_t sess_id) { cache_.erase(sess_id); }

 private:
  int ReadAction(Event& event, const ustring& path, std::uint32_t action);
  // The new name is not reported: what is left is that the old one went away.
  int EndRenameOutside(Event& event, std::uint32_t action);
  int FindKind(Event& event, const ustring& full, std::uint32_t action);
  int FindRememberedKind(Event& event);
  bool IsPrivate(const ustring& full) const;
  bool IsFromWorkingDirectory(const ustring& root, const ustring& path, std::uint32_t action,
                              std::uint64_t sess_id);

  ChangeWorld& world_;
  std::vector<ustring> private_dirs_;       // with "/" as separator
  std::map<std::uint64_t, ustring> cache_;  // old path of a rename, until its new name comes
};

// A rename as what it is for everybody else: the removal of one path and the creation of another.
// Any other event stands alone.
std::vector<Event> SplitRename(const Event& event);

}  // namespace tolven

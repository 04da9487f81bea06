// The folder of a session with the filter profiles that its server sent, replaced as a whole: what
// is new is gathered beside it in ".tmp", the old one waits in ".bak" until the new one stands in
// its place. So a crash leaves one of the two, and Restore() finds it.
//
// May be called from any thread; all operations of the process wait for each other, since the
// syncer may replace a folder while the control thread loads it. Messages go to category
// "syncer_debug".
#pragma once

#include <cstdint>
#include <vector>

#include "lib/profile-set.h"
#include "ustring/ustring.h"

namespace tolven {

class ProfileFolder {
 public:
  struct Received {
    ustring name;  // a plain file name
    ustring file;  // where its content was received
  };

  explicit ProfileFolder(ustring path);

  // Moves the files in, in place of all that was there. 0, or -1 with the old folder as it was.
  int Replace(const std::vector<Received>& profiles);

  // Puts the old folder back when a crash came between the two renames, and ends what else was
  // left. To be called before anything makes an empty folder at the path. 0 or -1.
  int Restore();

  // The profiles in the folder as those of a session: 0, or -1 when it cannot be read.
  int Load(std::uint64_t sess_id, ProfileSet& set) const;

 private:
  int RestoreLocked();
  int Gather(const std::vector<Received>& profiles);
  int Swap();

  const ustring path_, temp_, backup_;
};

}  // namespace tolven

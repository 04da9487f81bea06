// What the detector sees of disk, sessions and databases. May be called from any thread.
#pragma once

#include "client/windows/change-translator.h"

namespace tolven {

class DetectorWorld : public ChangeWorld {
 public:
  Node Look(const ustring& full_path) override;
  ustring LongPath(const ustring& full_path) override;
  int FindRemembered(std::uint64_t sess_id, const ustring& path, bool& is_dir) override;
  // Only where the folder is proved to be the session's: a bare mount point stays bare.
  void RecreateWorkingDirectory(std::uint64_t sess_id, const ustring& root) override;
};

// Makes the hidden working directory and the recycle bin in it. What exists is left alone, failures
// are ignored: who needs them tells.
void CreateWorkingDirectory(const ustring& root);

// Whether the folder of a session is there, told to the UI when it is not. A session that is not in
// the table yet is judged by the folder's existence.
bool IsRootProved(std::uint64_t sess_id, const ustring& root);

}  // namespace tolven

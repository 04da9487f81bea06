#include "client/windows/detector-world.h"

#include "client/core/registry.h"
#include "client/core/rescan-requests.h"
#include "client/core/root-proof.h"
#include "client/core/session-layout.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/file-op.h"
#include "platform/files.h"

namespace tolven {

ChangeWorld::Node DetectorWorld::Look(const ustring& full_path) {
  platform::NodeInfo info;
  const platform::Status status = platform::files().Stat(full_path, info);
  if (status.is(platform::ErrorKind::kNotFound) || status.is(platform::ErrorKind::kNotDirectory)) {
    return Node::MISSING;
  }
  if (!status.ok() || info.offline || info.system || info.temporary) return Node::NO_USER_DATA;
  if (info.kind == platform::NodeKind::kDirectory) return Node::DIRECTORY;
  return info.kind == platform::NodeKind::kFile ? Node::FILE : Node::NO_USER_DATA;
}

ustring DetectorWorld::LongPath(const ustring& full_path) {
  ustring path = full_path;
  return FSGetRealPath(path) == 0 ? path : full_path;
}

int DetectorWorld::FindRemembered(std::uint64_t sess_id, const ustring& path, bool& is_dir) {
  Registry::Entry entry;
  if (Registry::getInstance().Find(sess_id, entry) != 1) return -1;
  DBFileInfo row;
  const int found = entry.event_db->getEventInfo(path, row);
  // What cannot be told now is found by a look at the whole folder.
  if (found < 0) RescanRequests::getInstance().Add(sess_id);
  if (found != 1) return 0;
  is_dir = row.IsDir();
  return 1;
}

void DetectorWorld::RecreateWorkingDirectory(std::uint64_t sess_id, const ustring& root) {
  if (!IsRootProved(sess_id, root)) return;
  CreateWorkingDirectory(root);
  Registry::Entry entry;
  if (Registry::getInstance().Find(sess_id, entry) == 1) {
    RootProof::Establish(root, *entry.event_db);
  }
}

void CreateWorkingDirectory(const ustring& root) {
  const ustring working_directory = JoinPath(root, kWorkingDirectory);
  const ustring recycle_bin = working_directory + "/" + kRecycleBin;
  for (const ustring& folder : {working_directory, recycle_bin}) {
    FSMKDir(folder, false);
    (void)platform::files().SetHidden(folder);
  }
}

bool IsRootProved(std::uint64_t sess_id, const ustring& root) {
  Registry::Entry entry;
  if (Registry::getInstance().Find(sess_id, entry) == 1 && entry.root_proof != nullptr) {
    return entry.root_proof->IsProved();
  }
  FILE_INFO info;
  return FSStat(root, info, false) == 0 && info.isExist && info.type == FT_DIR;
}

}  // namespace tolven

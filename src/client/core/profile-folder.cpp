#include "client/core/profile-folder.h"

#include <utility>

#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/profile-manager.h"
#include "platform/mutex.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "syncer_debug";

Mutex folders_lock;

bool IsFolder(const ustring& path) {
  FILE_INFO info;
  return FSStat(path, info, false) == 0 && info.isExist && info.type == FT_DIR;
}

// A rename, or a copy where a rename cannot go, from one volume to another.
int MoveFile(const ustring& from, const ustring& to) {
  if (FSRename(from, to, true) == 0 || FSCopy(from, to, true) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] syncer(%d): Cannot neither move or copy from '%s' to '%s'\n", __LINE__,
                 from, to);
  return -1;
}

int MoveFolder(const ustring& from, const ustring& to) {
  if (FSRename(from, to, true) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] syncer(%d): Cannot neither move or copy from '%s' to '%s'\n", __LINE__,
                 from, to);
  return -1;
}

}  // namespace

ProfileFolder::ProfileFolder(ustring path)
    : path_(std::move(path)), temp_(path_ + ".tmp"), backup_(path_ + ".bak") {}

int ProfileFolder::Replace(const std::vector<Received>& profiles) {
  const MutexLock lock(folders_lock);
  if (RestoreLocked() != 0) return -1;
  if (Gather(profiles) == 0 && Swap() == 0) return 0;
  FSRemove(temp_, false);
  return -1;
}

int ProfileFolder::Gather(const std::vector<Received>& profiles) {
  if (FSMKDir(temp_, true) != 0) return -1;
  for (const Received& profile : profiles) {
    if (MoveFile(profile.file, temp_ + "/" + profile.name) != 0) return -1;
  }
  return 0;
}

int ProfileFolder::Swap() {
  const bool had_profiles = IsFolder(path_);
  if (had_profiles && MoveFolder(path_, backup_) != 0) return -1;
  if (MoveFolder(temp_, path_) != 0) {
    if (had_profiles && FSRename(backup_, path_, true) != 0) {
      Logger::LogMsg(
          Logger::L_ERR, kCategory,
          L"[ERROR] syncer(%d): Cannot restore bak profile folder '%s' from bak folders '%s'.\n",
          __LINE__, path_, backup_);
    }
    return -1;
  }
  if (had_profiles && FSRemove(backup_, false) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] syncer(%d): Cannot remove bak_folder '%s'...\n", __LINE__, backup_);
  }
  return 0;
}

int ProfileFolder::Restore() {
  const MutexLock lock(folders_lock);
  return RestoreLocked();
}

int ProfileFolder::Load(std::uint64_t sess_id, ProfileSet& set) const {
  const MutexLock lock(folders_lock);
  return LoadProfileSet(sess_id, path_, set);
}

int ProfileFolder::RestoreLocked() {
  if (FSRemove(temp_, false) != 0) return -1;
  if (!IsFolder(backup_)) return 0;
  // The new folder stands: the old one only was not removed any more.
  if (IsFolder(path_)) return FSRemove(backup_, false);
  if (FSRename(backup_, path_, true) == 0) return 0;
  Logger::LogMsg(
      Logger::L_ERR, kCategory,
      L"[ERROR] syncer(%d): Cannot restore bak profile folder '%s' from bak folders '%s'.\n",
      __LINE__, path_, backup_);
  return -1;
}

}  // namespace tolven

// Putting a new file in place.

#include <mutex>
#include <tuple>
#include <vector>

#include "lib/file-op-detail.h"
#include "lib/log.h"

namespace tolven {

using file_op::kCategory;
using platform::ErrorKind;
using platform::Status;

namespace {

int Failed(int line, const char* call, const Status& status) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] file-op-win(%d): %s failed. error code %d\n",
                 line, call, status.code);
  if (status.is(ErrorKind::kExists)) return kNameTaken;
  return status.is(ErrorKind::kNameTooLong) ? kNameNotSupported : -1;
}

}  // namespace

std::uint32_t FSNewFileMode() { return platform::files().NewFileMode(); }

int FSFinish(const ustring& path, std::uint32_t mode) {
  platform::Files& files = platform::files();
  platform::ScopedFile file;
  // Opened first: the new mode may forbid it.
  Status status = files.Open(path, platform::OpenMode::kModify, *file.receive());
  if (status.ok()) status = files.SetMode(path, mode);
  if (status.ok()) status = files.Sync(file.get());
  return status.ok() ? 0 : Failed(__LINE__, "FSFinish", status);
}

int FSMoveIntoPlace(const ustring& from, const ustring& to, bool replace) {
  platform::Files& files = platform::files();
  Status status;
  {
    const std::lock_guard lock(file_op::rename_mutex);
    status = replace ? files.RenameUnsynced(from, to) : files.RenameNoReplace(from, to);
  }
  if (!status.ok()) return Failed(__LINE__, "FSMoveIntoPlace", status);
  status = files.SyncDirectory(file_op::ParentOf(to));
  return status.ok() ? 0 : Failed(__LINE__, "FSMoveIntoPlace", status);
}

int FSRenameUnsynced(const ustring& from, const ustring& to) {
  const std::lock_guard lock(file_op::rename_mutex);
  const Status status = platform::files().RenameUnsynced(from, to);
  return status.ok() ? 0 : Failed(__LINE__, "FSRenameUnsynced", status);
}

int FSMakeFolder(const ustring& path) {
  platform::Files& files = platform::files();
  platform::NodeInfo info;
  std::vector<ustring> missing;
  const auto is_missing = [&](const ustring& folder) {
    return files.Stat(folder, info).is(ErrorKind::kNotFound);
  };
  for (ustring folder = path; is_missing(folder); folder = missing.back()) {
    missing.push_back(file_op::ParentOf(folder));
    if (missing.back() == folder) break;
  }
  if (const int made = FSMKDir(path, true); made != 0) return made;
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    const Status status = files.SyncDirectory(*folder);
    if (!status.ok()) return Failed(__LINE__, "FSMakeFolder", status);
  }
  return 0;
}

bool IsUntouched(const FILE_INFO& before, const FILE_INFO& now) {
  const auto state = [](const FILE_INFO& info) {
    return std::tie(info.isExist, info.type, info.size, info.mtime_ns, info.volume_id,
                    info.file_id);
  };
  return state(before) == state(now);
}

}  // namespace tolven

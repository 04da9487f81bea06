#include "client/core/helpers/folder-walk.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "client/core/handlers/handler-log.h"
#include "client/core/session-layout.h"

namespace tolven {

using platform::ErrorKind;
using platform::Status;

namespace {

const char* Source() { return "file-helper"; }

bool IsFileOrNone(const ustring& path) {
  FILE_INFO info;
  return FSStat(path, info, false) == 0 && (!info.isExist || info.type == FT_FILE);
}

}  // namespace

FolderWalk::FolderWalk(Options options, Visit visit)
    : options_(std::move(options)), visit_(std::move(visit)) {}

int FolderWalk::Run(const ustring& root) {
  pending_.assign(1, root);
  ended_ = false;
  while (!pending_.empty() && !ended_) {
    const ustring path = std::move(pending_.back());
    pending_.pop_back();
    if (options_.enters && !options_.enters(path)) continue;
    const std::size_t before = pending_.size();
    if (ReadFolder(path) != 0) return -1;
    // Taken from the end, the folders come in the order in which they were listed.
    std::reverse(pending_.begin() + static_cast<std::ptrdiff_t>(before), pending_.end());
  }
  return 0;
}

int FolderWalk::ReadFolder(const ustring& path) {
  DIR_HANDLE folder;
  FSOpenDir(path, options_.with_info ? kDirStat : 0, folder);
  // A link that took a folder's place is not entered.
  const Status opened =
      platform::files().OpenRealDirectory(path, options_.with_info, folder.handle);
  if (opened.is(ErrorKind::kNotFound)) return 0;
  if (opened.is(ErrorKind::kNotDirectory) && options_.takes_file_for_none && IsFileOrNone(path)) {
    return 0;
  }
  if (!opened.ok()) return OnError(path);
  DIR_ENTRY entry;
  for (;;) {
    if (options_.abort_flag != nullptr && options_.abort_flag->load() != 0) return -1;
    const int found = FSReadDir(folder, entry);
    if (found == 0) return 0;
    if (found < 0) return OnError(path);
    if (!Take(entry, path)) {
      ended_ = true;
      return 0;
    }
  }
}

int FolderWalk::OnError(const ustring& path) const {
  HANDLER_WARNING("Walk: folder '%s' cannot be read", path);
  return options_.skips_unreadable ? 0 : -1;
}

bool FolderWalk::Take(DIR_ENTRY& entry, const ustring& folder) {
  if (entry.name == "." || entry.name == "..") return true;
  if (!options_.sees_all && entry.name == kWorkingDirectory) return true;
  if (options_.coarse_times) entry.mtime &= ~1U;
  std::string path = folder.str();
  if (path.empty() || path.back() != '/') path += '/';
  path += entry.name.view();
  const ustring full_path(std::move(path));
  if (!visit_(entry, full_path)) return false;
  if (options_.recursive && entry.type == FT_DIR) pending_.push_back(full_path);
  return true;
}

}  // namespace tolven

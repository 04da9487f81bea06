#include "client/core/helpers/file-helper.h"

#include <utility>
#include <vector>

#include "client/core/event-context.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/folder-walk.h"
#include "client/core/recent-commits.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/force-hash-check-list-cpp.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {

namespace {

const char* Source() { return "file-helper"; }

// The path below the session's folder, "/" for the folder itself.
ustring RelativePath(const EventContext& context, const ustring& full_path) {
  const std::string_view root = context.GetLocalWatch().view();
  std::string_view path = full_path.view();
  if (path.starts_with(root)) path.remove_prefix(root.size());
  return path.empty() ? ustring("/") : ustring(path);
}

std::uint32_t LocalTime(const EventContext& context, std::uint32_t mtime) {
  return context.GetEntry().isMSDOS ? mtime & ~1U : mtime;
}

// By content, for a file whose size and time tell nothing, or are not trusted for its name. What
// twice cannot be read to the end counts as another one.
bool HasOtherContent(const EventContext& context, const File& file, const DBFileInfo& db_info,
                     const ustring& name, const std::atomic<int>* abort_flag) {
  const std::uint64_t session = context.GetEntry().sess_id;
  RecentCommits& commits = RecentCommits::getInstance();
  const bool compare =
      commits.NeedsHash(session, db_info.path) || context.GetForceHashCheckList().Test(name) > 0;
  if (!compare) return false;
  ustring hash;
  if (FileHelper::CalculateMd4FromFile(file.GetPath(), hash, abort_flag) != 0 &&
      FileHelper::CalculateMd4FromFile(file.GetPath(), hash, abort_flag) != 0) {
    return true;
  }
  if (hash != db_info.fileCheckSum) {
    HANDLER_DEBUG("ModificationCheck: '%s' is modified (content not match)", db_info.path);
    return true;
  }
  commits.Compared(context.GetEventDatabaseSafe(), session, db_info.path,
                   file.GetLastModifiedTime());
  return false;
}

// Whether the file is the one of the record, by what a look at it tells.
bool IsWeaklyEqual(const EventContext& context, const File& file, const DBFileInfo& db_info) {
  return file.GetSize() == db_info.fileSize &&
         LocalTime(context, file.GetLastModifiedTime()) == db_info.localFileModTime;
}

}  // namespace

int FileHelper::Walk(const ustring& root, const EventContext& context, const Walker& walker,
                     int options, const std::atomic<int>* abort_flag) {
  FolderWalk::Options walk;
  walk.recursive = (options & WALK_OPT_DFS) != 0;
  walk.with_info = (options & WALK_OPT_EXT_INFO) != 0;
  walk.coarse_times = (options & WALK_OPT_CUT_MTIME) != 0;
  walk.skips_unreadable = (options & WALK_OPT_SKIP_UNREADABLE) != 0;
  walk.takes_file_for_none = true;
  walk.abort_flag = abort_flag;
  walk.enters = [&context](const ustring& path) {
    return context.GetBlackList().TestDirectoryPath(RelativePath(context, path)) == 0;
  };
  return FolderWalk(std::move(walk), walker).Run(root);
}

int FileHelper::RemoveByRename(File& file, const ustring& working_directory,
                               const std::function<int(const ustring& place)>& is_to_stay) {
  const ustring from = file.GetPath();
  ustring target;
  if (FSCreateTempPath(working_directory, target) != 0 || !file.Rename(target)) {
    HANDLER_ERROR("Failed to remove '%s' by renaming to '%s'.", from, target);
    return -1;
  }
  const int stays = is_to_stay ? is_to_stay(target) : 0;
  if (stays == 0) {
    (void)file.Delete();
    return 0;
  }
  return stays < 0 && FSRenameNoReplace(target, from) == 0 ? -1 : 1;
}

bool FileHelper::LocallyModified(const EventContext& context, const File& file,
                                 const DBFileInfo& db_info) {
  if (file.IsFile() && db_info.IsDir()) {
    HANDLER_DEBUG("ModificationCheck: '%s' appears as DIR in database, but now it is a file",
                  db_info.path);
    return true;
  }
  if (file.IsDirectory() && db_info.IsFile()) {
    HANDLER_DEBUG("ModificationCheck: '%s' appears as FILE in database, but now it is a directory",
                  db_info.path);
    return true;
  }
  if (file.IsDirectory()) return false;
  if (!IsWeaklyEqual(context, file, db_info)) {
    HANDLER_DEBUG("ModificationCheck: '%s' is modified (size and mtime not match)", db_info.path);
    return true;
  }
  if (TestForceHash(context) > 0) {
    HANDLER_DEBUG("ModificationCheck: '%s' is modified (force hash check needed)", db_info.path);
    return true;
  }
  return HasOtherContent(context, file, db_info, GetBaseName(context.GetPath()), nullptr);
}

int FileHelper::TestForceHash(const EventContext& context) {
  const ustring& path = context.GetPath();
  if (path.empty() || path == "/") return -1;
  return context.GetForceHashCheckList().Test(GetBaseName(path));
}

int FileHelper::HasLocalEdits(const EventContext& context, const ustring& path,
                              const ustring& place, const std::atomic<int>* abort_flag,
                              Parked parked) {
  FILE_INFO info;
  if (FSStat(place, info, false) != 0) return -1;
  if (!info.isExist) return 0;
  if (info.type != FT_DIR) return 1;
  FileEventDB& db = context.GetEventDatabaseSafe();
  bool found = false, failed = false;
  FolderWalk::Options options;
  options.recursive = true;
  options.with_info = true;
  options.sees_all = true;
  options.abort_flag = abort_flag;
  const auto look = [&](const DIR_ENTRY& entry, const ustring& full_path) {
    if (entry.type != FT_FILE) return true;
    const ustring own_path = JoinPath(path, full_path.view().substr(place.size()));
    DBFileInfo record;
    const int known = db.getEventInfo(own_path, record);
    failed = known < 0;
    found = known == 0 || (known == 1 && (record.isExist == 0 || record.IsDir()));
    if (known == 1 && !found) {
      const File file(full_path, true);
      failed = !file.IsKnown();
      found = !failed && (!file.IsFile() || !IsWeaklyEqual(context, file, record) ||
                          HasOtherContent(context, file, record, entry.name, abort_flag));
    }
    if (found && parked == Parked::LEFT_OUT) {
      std::vector<FilteredEvent> held_back;
      failed = db.getLocalFilteredEvent(FilteredEvent::FILTERED_ALL, own_path, 0, held_back) != 0;
      found = held_back.empty();
    }
    return !found && !failed;
  };
  const int walked = FolderWalk(std::move(options), look).Run(place);
  if (abort_flag != nullptr && abort_flag->load() != 0) return -1;
  if (found) return 1;
  return walked < 0 || failed ? -1 : 0;
}

int FileHelper::CalculateMd4FromFile(const ustring& path, ustring& hash,
                                     const std::atomic<int>* abort_flag) {
  SimpleFileReader reader;
  reader.setFile(path);
  reader.setHashString(hash);
  reader.setAbortFlag(abort_flag);
  if (reader.readFile() >= 0) return 0;
  HANDLER_ERROR("Failed to calculate checksum for '%s'", path);
  return -1;
}

ustring FileHelper::GetBaseName(const ustring& path) {
  const std::string_view text = path.view();
  const std::size_t slash = text.rfind('/');
  return slash == std::string_view::npos ? path : ustring(text.substr(slash + 1));
}

void FileHelper::GetNameAndAttribute(const DIR_ENTRY& entry, const ustring&, ustring& name,
                                     FileList::Attribute& attribute) {
  name = entry.name;
  attribute.clear();
  attribute.mtime = entry.mtime;
  attribute.size = entry.size;
}

int FileHelper::CreateMacAttrFile(const ustring&, const ustring&) { return 0; }
int FileHelper::UpdatePathInode(const EventContext&, const ustring&) { return 0; }

}  // namespace tolven

#include "client/core/handlers/expand-local-delete-handler.h"

#include <memory>
#include <set>

#include "client/core/callbacks/create-dir-self-event-callback.h"
#include "client/core/event-helper.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/folder-walk.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "expand-local-delete-handler"; }

constexpr char kOldRecycleBin[] = "#recycle";

}  // namespace

bool ExpandLocalDeleteHandler::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  return event.isLocalSubDirRescan() || event.isLocalSubDirRescanWithStat();
}

int ExpandLocalDeleteHandler::Handle() {
  EventContext& context = GetContext();
  const ustring& path = context.GetPath();
  HANDLER_INFO("Worker (%d): Expand local delete event for '%s'.", GetWorkerId(), path);
  SetAbortable(true);
  std::set<ustring> known, present;  // folders
  const auto list_database = [&](FileList& list) {
    const int code = context.GetEventDatabaseSafe().getFileListWithoutRecursive(list, path);
    for (auto entry = list.rbegin(); entry != list.rend(); ++entry) {
      if (entry->is_dir()) known.insert(entry->path);
    }
    return code;
  };
  const auto list_disk = [&](FileList& list) {
    const int code = BuildLocalFileListWithoutResursive(context.GetFullPath(), list);
    for (auto entry = list.rbegin(); entry != list.rend(); ++entry) {
      if (entry->is_dir()) present.insert(entry->path);
    }
    return code;
  };
  const int code =
      EventHelper::CompareFolder(context, path, list_database, list_disk, false, GetAbortFlag());
  if (code < 0) {
    HANDLER_NOTE("Worker (%d): Interrupted while expanding local delete event for '%s'.",
                 GetWorkerId(), path);
    if (code == EventHelper::kRootNotProved) SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  for (const ustring& folder : present) {
    if (known.contains(folder)) LookBelow(folder);
  }
  SetCallback(std::make_unique<CreateDirSelfEventCallback>());
  return 0;
}

// What changed below a folder that stayed is not seen from here.
void ExpandLocalDeleteHandler::LookBelow(const ustring& folder) {
  const ustring& path = GetContext().GetPath();
  if (!GetContext().GetEntry().recursive) return;
  EventManager::getInstance().IssueRescan(
      GetContext().GetEntry().sess_id, path == "/" ? folder : JoinPath(path, folder.view()), false);
}

int ExpandLocalDeleteHandler::BuildLocalFileListWithoutResursive(const ustring& path,
                                                                 FileList& list) {
  const EventContext& context = GetContext();
  const bool is_root = context.GetPath().empty() || context.GetPath() == "/";
  FolderWalk::Options options;
  options.with_info = true;
  options.coarse_times = context.GetEntry().isMSDOS;
  options.takes_file_for_none = true;
  options.abort_flag = GetAbortFlag();
  const auto add = [&](const DIR_ENTRY& entry, const ustring&) {
    if (is_root && entry.name == kOldRecycleBin) return true;
    ustring name;
    FileList::Attribute attribute;
    FileHelper::GetNameAndAttribute(entry, path, name, attribute);
    if (entry.type == FT_FILE) {
      (void)list.AddFile(list.root(), name, attribute);
    } else if (entry.type == FT_DIR) {
      (void)list.AddDirectory(list.root(), name, attribute);
    }
    return true;
  };
  if (FolderWalk(options, add).Run(path) == 0) return 0;
  if (GetAbortFlag()->load() != 0) {
    HANDLER_NOTE("BuildLocalFileListWithoutResursive: User stopped.");
  } else {
    HANDLER_ERROR("BuildLocalFileListWithoutResursive: Failed to open directory '%s'.", path);
  }
  return -1;
}

}  // namespace tolven

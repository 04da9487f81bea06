#include "client/core/handlers/remove-local-handler.h"

#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/conflict-rename.h"
#include "client/core/handlers/filter-gate.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/filter-helper.h"
#include "client/core/helpers/handler-helper.h"
#include "client/file-event-db.h"
#include "platform/clock.h"

namespace tolven {

namespace {

const char* Source() { return "remove-local-handler"; }

// Whether it is not the server that told of this removal, but an upload whose file was gone.
bool IsOfUpload(const Event& event) { return event.m_sync_id == 0 && event.m_max_id == 0; }

}  // namespace

bool RemoveLocalHandler::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  return event.m_type == Event::EV_REMOVE && event.isServerEvent();
}

int RemoveLocalHandler::Handle() {
  EventContext& context = GetContext();
  File local(context.GetFullPath(), true);
  SetAbortable(true);
  const int filter_type = FilterGate(context, Source()).TestPath();
  if (filter_type != 0) return HandleFilteredEvent(filter_type);
  int result = 0;
  if (IsFakeRemoveLocalEvent(local, result)) return result;
  if (!local.CanWrite()) {
    HANDLER_ERROR("Worker (%d): Unable to handle locked/no permission file '%s'.", GetWorkerId(),
                  context.GetPath());
    return ERR_LOCKED_FILE;
  }
  const DBFileInfo& db_info = context.GetDatabaseInfo();
  if (db_info.syncID == 0 || FileHelper::LocallyModified(context, local, db_info)) {
    HANDLER_NOTE("Worker (%d): Detect local modification to '%s', resolve conflict.", GetWorkerId(),
                 context.GetPath());
    if (ConflictRename(context.GetFullPath(), context.GetConnectionInfo().computer_name,
                       "Conflict") < 0) {
      return ERR_SYS;
    }
    // Neither here nor on the server is now what the record tells of.
    if (context.CommitRemoveDatabase() < 0) return ERR_SYS;
  } else {
    result = RemoveObject(local);
    if (result != 0 || GetErrorAction() != ACTION_DEFAULT) return result;
  }
  SetUINotification(UI_NOTIFY_SERVER_REMOVE);
  return 0;
}

int RemoveLocalHandler::HandleFilteredEvent(int filter_type) {
  if (filter_type == FilterHelper::kNotLookedAt) return ERR_LOCKED_FILE;
  EventContext& context = GetContext();
  SetUINotification(UI_NOTIFY_FILTERED);
  if (!FilterGate(context, Source()).CanBeRemembered(filter_type)) return 0;
  // What an upload told whose file was gone is nothing of the server's, whose own event may be
  // parked.
  Event event = context.GetEvent();
  const bool is_local = IsOfUpload(event);
  if (is_local) event.setLocalEvent();
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(event, FilteredEvent::FILTERED_SELECTIVE_SYNC);
  FileEventDB& db = context.GetEventDatabaseSafe();
  if ((is_local ? db.setLocalFilteredEvent(filtered) : db.setServerFilteredEvent(filtered)) < 0) {
    HANDLER_ERROR("serServerFilteredEvent: failed to set server filtered database");
    return ERR_SYS;
  }
  HANDLER_INFO("Worker (%d): File '%s' cannot pass filter testing.", GetWorkerId(),
               context.GetPath());
  return 0;
}

// Whether there is nothing to remove; `result` is then the handler's.
bool RemoveLocalHandler::IsFakeRemoveLocalEvent(const File& local_file, int& result) {
  const EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  const DBFileInfo& db_info = context.GetDatabaseInfo();
  result = 0;
  if (!local_file.Exists()) {
    result = OnMissing();
    return true;
  }
  if (db_info.syncID == 0 && IsOfUpload(event)) {
    UploadWhatCameBack(local_file);
    return true;
  }
  if (db_info.syncID == 0 || db_info.maxSyncID <= event.m_max_id) return false;
  HANDLER_NOTE(
      "Worker (%d): Based sync id was changed. Can't remove local [%s]. db max_id = '%llu', event "
      "max_id = '%llu'.",
      GetWorkerId(), event.m_path, db_info.maxSyncID, event.m_max_id);
  if (local_file.IsDirectory()) result = Expand();
  return true;
}

// The server has nothing that it could be in conflict with. Its own event may have been merged into
// this one.
void RemoveLocalHandler::UploadWhatCameBack(const File& local_file) {
  const ustring& path = GetContext().GetPath();
  HANDLER_INFO("Worker (%d): File '%s' has come back before its upload.", GetWorkerId(), path);
  auto callback = std::make_unique<CreateEventCallback>();
  callback->SetUploadEvent(path, local_file.IsDirectory());
  SetErrorAction(ACTION_DONE, std::move(callback));
}

int RemoveLocalHandler::OnMissing() {
  EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  FILE_INFO info;
  const bool is_gone = FSStat(context.GetFullPath(), info, true) == 0 && !info.isExist;
  if (!is_gone || !HandlerHelper::IsRootProved(context)) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  if (IsOfUpload(event) && context.GetDatabaseInfo().syncID != 0) {
    auto callback = std::make_unique<CreateEventCallback>();
    callback->SetLocalRemoveEvent(event.m_path, context.GetDatabaseInfo().IsDir());
    SetErrorAction(ACTION_DONE, std::move(callback));
    return 0;
  }
  HANDLER_INFO("Worker (%d): File '%s' has already been removed.", GetWorkerId(), event.m_path);
  return context.CommitRemoveDatabase() < 0 ? static_cast<int>(ERR_SYS) : 0;
}

// The members are taken one by one, so that newer ones survive.
int RemoveLocalHandler::Expand() {
  const Event& event = GetContext().GetEvent();
  HANDLER_NOTE("Worker (%d): Expand server delete event for '%s'.", GetWorkerId(), event.m_path);
  auto callback = std::make_unique<CreateEventCallback>();
  callback->SetExpandServerDeleteEvent(event.m_path, event.isDir(), event.m_sync_id,
                                       event.m_max_id);
  SetErrorAction(ACTION_DONE, std::move(callback));
  return 0;
}

int RemoveLocalHandler::RemoveObject(File& local_file) {
  const EventContext& context = GetContext();
  const bool is_dir = local_file.IsDirectory();
  if (!HandlerHelper::IsRootProved(context)) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  if (is_dir) {
    const int edits =
        FileHelper::HasLocalEdits(context, context.GetPath(), local_file.GetPath(), GetAbortFlag());
    if (edits < 0) return ERR_INT;
    if (edits > 0) return Expand();
  }
  const int removed = Remove(local_file);
  if (removed == 0) return ForgetParked();
  if (removed > 0) return is_dir ? Expand() : static_cast<int>(ERR_INT);
  HANDLER_ERROR("Worker (%d): Failed to remove '%s'", GetWorkerId(), context.GetPath());
  return ERR_SYS;
}

// What was parked of it, and of what was in it, would bring back what is gone from the server.
int RemoveLocalHandler::ForgetParked() {
  const EventContext& context = GetContext();
  if (context.GetEventDatabaseSafe().rmServerFilteredEvent(
          FilteredEvent::FILTERED_ALL, context.GetPath(), FileEventDB::FILTER_FLAG_INCLUDE_CHILD) ==
      0) {
    return 0;
  }
  HANDLER_ERROR("Worker (%d): Failed to remove server filtered entry path [%s]", GetWorkerId(),
                context.GetPath());
  return ERR_SYS;
}

int RemoveLocalHandler::Remove(File& file) {
  const int removed = RemoveToRecycleBin(file);
  if (removed < 0) {
    HANDLER_ERROR("Worker (%d): Failed to remove '%s'", GetWorkerId(), GetContext().GetPath());
  } else if (removed == 0) {
    RemoveZentIndex(file);
  }
  return removed;
}

int RemoveLocalHandler::MoveToRecycleBin(File& file, ustring& name) {
  const EventContext& context = GetContext();
  const ustring bin = context.GetRecycleBinDir();
  const ustring from = file.GetPath();
  ustring target;
  if (FSCreateTempPath(bin, target) != 0) return -1;
  name = ustring("/" + FileHelper::GetBaseName(target).str());
  // Somebody may have removed the bin, and where it was; not the session's own folder.
  const auto make_bin = [&] {
    return FSMKDir(context.GetWorkingDirectory(), false) == 0 && FSMKDir(bin, false) == 0;
  };
  if (!file.Rename(target) && !(make_bin() && file.Rename(target))) {
    HANDLER_ERROR("Worker (%d): Failed to (re)move directory from '%s' to '%s'", GetWorkerId(),
                  from, target);
    return -1;
  }
  return 0;
}

int RemoveLocalHandler::RemoveToRecycleBin(File& file) {
  const EventContext& context = GetContext();
  const FILE_INFO before = file.GetInfo();
  const ustring& path = context.GetPath();
  ustring name;
  if (MoveToRecycleBin(file, name) != 0) return -1;
  // Out of reach now, so that nothing is written by its name any more.
  if (WasEdited(before, file.GetPath())) {
    PutBack(file.GetPath());
    return 1;
  }
  if (context.GetEventDatabase() == nullptr) {
    HANDLER_CRIT("Worker (%d): Missing event db handle.", GetWorkerId());
    return -1;
  }
  FileEventDB& db = *context.GetEventDatabase();
  if (before.type == FT_DIR) {
    if (db.dumpDirToRecycleBin(path, name) != 0) {
      HANDLER_ERROR("Worker (%d): Failed to dumpDirToRecycleBin '%s'.", GetWorkerId(), path);
      return -1;
    }
  } else if (db.dumpFileToRecycleBin(path, name) != 0) {
    HANDLER_ERROR("Worker (%d): Failed to dumpFileToRecycleBin '%s'.", GetWorkerId(), path);
    return -1;
  }
  Registry::getInstance().InitRecycleTime(
      context.GetEntry(), static_cast<std::uint32_t>(platform::clock().WallSeconds()));
  return 0;
}

// Between the last look and the move.
bool RemoveLocalHandler::WasEdited(const FILE_INFO& before, const ustring& place) {
  const EventContext& context = GetContext();
  if (before.type == FT_DIR) {
    return FileHelper::HasLocalEdits(context, context.GetPath(), place, nullptr) > 0;
  }
  FILE_INFO now;
  return FSStat(place, now, true) == 0 && !IsUntouched(before, now);
}

void RemoveLocalHandler::PutBack(const ustring& place) {
  const EventContext& context = GetContext();
  const ustring& path = context.GetFullPath();
  if (FSRenameNoReplace(place, path) == 0) return;
  const ustring aside =
      GenerateNewFileName(path, context.GetConnectionInfo().computer_name, "Conflict");
  if (FSRenameNoReplace(place, aside) == 0) return;
  HANDLER_CRIT("Worker (%d): '%s' was edited and is kept at '%s'", GetWorkerId(), path, place);
}

}  // namespace tolven

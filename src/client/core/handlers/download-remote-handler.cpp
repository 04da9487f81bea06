#include "client/core/handlers/download-remote-handler.h"

#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/callbacks/unsupported-name-callback.h"
#include "client/core/event-generator.h"
#include "client/core/handlers/filter-gate.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/filter-helper.h"
#include "client/core/helpers/handler-helper.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

constexpr std::uint64_t kLargestFatFile = 0xFFFFFFFE;
constexpr int kTooLargeForFat = -523;

}  // namespace

bool DownloadRemoteHandler::FilterEvent() { return GetContext().GetEvent().isServerEvent(); }

int DownloadRemoteHandler::Handle() {
  int result = Apply();
  if (result == kNameNotSupported) result = ParkUnsupportedName();
  // What a broken transfer has left is for another attempt, and there will be none.
  if (result == 0 && IsDownloadResumable()) ResumeTransMgr::GetInstance().Erase(GetResumeToken());
  return result;
}

int DownloadRemoteHandler::Apply() {
  EventContext& context = GetContext();
  SetAbortable(true);
  const int filter_type = TestDownloadRemoteFilter();
  if (filter_type != 0) return HandleFilteredEvent(filter_type);
  if (const int refused = CheckPermission(); refused != 0) return refused;
  const int root = HandleDownloadRootFolder();
  if (root < 0) {
    HANDLER_ERROR("Handle download root folder failed");
    return ERR_SYS;
  }
  if (root > 0) {
    HANDLER_DEBUG("Commit server root folder event and abort.");
    return 0;
  }
  if (const int taken = CheckSpelling(); taken != 0) return taken;
  File local(context.GetFullPath(), true);
  if (!local.IsKnown() || !local.CanRead()) {
    HANDLER_ERROR("Worker (%d): Unable to handle locked/no permission file '%s'.", GetWorkerId(),
                  context.GetPath());
    return ERR_LOCKED_FILE;
  }
  SetWorkingType(W_TYPE_DOWNLOAD);
  DBFileInfo db_info = context.GetDatabaseInfo();
  const Event& event = context.GetEvent();
  const Installed installed = std::exchange(installed_, Installed());
  if (!local.Exists()) {
    if (installed == Installed(event) && db_info.syncID == event.m_sync_id) return OnRemovedSince();
    const int forgotten = ForgetVanished(db_info);
    if (forgotten != 0) return forgotten;
  }
  if (event.m_sync_id <= db_info.syncID) return HandleEcho(local, db_info);
  if (IsFakeDownloadRemoteEvent(event, local, db_info)) {
    HANDLER_INFO("Worker (%d): Fake download event merged for '%s'.", GetWorkerId(),
                 context.GetPath());
    return CommitDatabaseForFakeEvent(event, db_info) < 0 ? ERR_SYS : 0;
  }
  if (!local.CanReadAndWrite()) {
    HANDLER_ERROR("Worker (%d): Unable to handle locked/no permission file '%s'.", GetWorkerId(),
                  context.GetPath());
    return ERR_LOCKED_FILE;
  }
  const int result = HandleDownload(local, db_info);
  if (result < 0) return result;
  patch_err_count = 0;
  whole_file_key_.clear();
  installed_ = Installed(event);
  return 0;
}

int DownloadRemoteHandler::TestDownloadRemoteFilter() {
  const EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  const FilterGate gate(context, Source());
  int filter_type = gate.TestPath();
  if (filter_type != 0 || event.isDir()) return filter_type;
  filter_type = gate.TestSize(event.m_data_size);
  if (filter_type != 0) return filter_type;
  if (event.m_data_size <= kLargestFatFile || !context.GetEntry().isMSDOS) return 0;
  HANDLER_DEBUG("Filtered Event: '%s'. (file system is not support large file)", event.m_path);
  return FilterGate::BlockBySystem(kTooLargeForFat);
}

int DownloadRemoteHandler::HandleFilteredEvent(int filter_type) {
  if (filter_type == FilterHelper::kNotLookedAt) return ERR_LOCKED_FILE;
  EventContext& context = GetContext();
  SetUINotification(UI_NOTIFY_FILTERED);
  if (!FilterGate(context, Source()).CanBeRemembered(filter_type)) return 0;
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_SELECTIVE_SYNC);
  if (context.GetEventDatabaseSafe().setServerFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("setFilteredEvent: failed to update server filtered database");
    return ERR_SYS;
  }
  HANDLER_INFO("Worker (%d): File '%s' cannot pass filter testing '%d'.", GetWorkerId(),
               context.GetPath(), filter_type);
  return 0;
}

// What is gone here is downloaded as new, whatever the database says; but where the whole folder is
// gone nothing is known.
int DownloadRemoteHandler::ForgetVanished(DBFileInfo& db_info) {
  EventContext& context = GetContext();
  if (!HandlerHelper::IsRootProved(context)) return ReturnEvent();
  db_info.Clear();
  context.SetDatabaseInfo(db_info);
  if (!context.GetEvent().isDir()) (void)context.RemoveLocalDatabaseInfo();
  return 0;
}

// This very event put it there a moment ago and was only repeated for what arrived meanwhile: who
// removed it has seen it.
int DownloadRemoteHandler::OnRemovedSince() {
  const EventContext& context = GetContext();
  if (!HandlerHelper::IsRootProved(context)) return ReturnEvent();
  const Event& event = context.GetEvent();
  installed_ = Installed(event);
  auto callback = std::make_unique<CreateEventCallback>();
  callback->SetLocalRemoveEvent(event.m_path, event.isDir());
  SetErrorAction(ACTION_DONE, std::move(callback));
  return 0;
}

int DownloadRemoteHandler::HandleEcho(const File& local_file, const DBFileInfo& db_info) {
  EventContext& context = GetContext();
  const ustring& path = context.GetPath();
  HANDLER_INFO("Worker (%d): File '%s' is already up-to-date (server echo).", GetWorkerId(), path);
  if (context.GetEventDatabaseSafe().rmServerFilteredEvent(FilteredEvent::FILTERED_ALL, path, 0) <
      0) {
    HANDLER_ERROR("Worker (%d): Failed to remove server filtered entry path [%s]", GetWorkerId(),
                  path);
    return ERR_SYS;
  }
  if (!local_file.Exists()) return 0;
  if (!FileHelper::LocallyModified(context, local_file, db_info)) {
    // What was parked of this side has nothing left to tell.
    return context.GetEventDatabaseSafe().rmLocalFilteredEvent(FilteredEvent::FILTERED_ALL, path,
                                                               0) < 0
               ? static_cast<int>(ERR_SYS)
               : 0;
  }
  // The local change that this event was merged with is still to be told.
  if (context.GetEvent().isConflict()) {
    auto callback = std::make_unique<CreateEventCallback>();
    callback->SetUploadEvent(path, local_file.IsDirectory());
    SetCallback(std::move(callback));
  }
  return 0;
}

bool DownloadRemoteHandler::IsFakeDownloadRemoteEvent(const Event& event, const File& local_file,
                                                      const DBFileInfo& db_info) {
  if (db_info.syncID == 0 || event.m_sync_id == kForcedDownload || !local_file.Exists()) {
    return false;
  }
  if (FileHelper::LocallyModified(GetContext(), local_file, db_info)) return false;
  if (event.isDir() != db_info.IsDir()) return false;
  const bool same_content = event.isDir() || (event.m_data_size == db_info.fileSize &&
                                              event.m_data_hash == db_info.fileCheckSum);
  return same_content && event.m_time == db_info.fileModTime;
}

bool DownloadRemoteHandler::IsRootFolderEvent() const {
  const Event& event = GetContext().GetEvent();
  return event.isDir() && (event.m_path.empty() || event.m_path == "/") && !event.isExpand() &&
         !event.isRescan() && !event.isSubDirRescan();
}

int DownloadRemoteHandler::HandleDownloadRootFolder() {
  if (!IsRootFolderEvent()) return 0;
  HANDLER_INFO("Worker (%d): Ignore root folder event: sess_id = '%llu'", GetWorkerId(),
               GetContext().GetEntry().sess_id);
  if (GetContext().GetEvent().isServerEvent() && CommitRootFolder() < 0) return -1;
  return 1;
}

// An object whose name differs from one that is here in case alone has no place of its own. When
// the other one is about to go, it is waited for.
int DownloadRemoteHandler::CheckSpelling() {
  const EventContext& context = GetContext();
  ustring taken;
  if (!HandlerHelper::HasOtherSpelling(context, taken)) return 0;
  const std::uint64_t session = context.GetEntry().sess_id;
  EventManager& manager = EventManager::getInstance();
  if (manager.IsServerRemovalPending(session, taken) ||
      manager.IsServerEventPendingBelow(session, taken)) {
    return ReturnEvent();
  }
  HANDLER_ERROR("Worker (%d): '%s' and '%s' differ only in case.", GetWorkerId(), context.GetPath(),
                taken);
  return kNameNotSupported;
}

// The event is kept for a time when the path can be held, and counts as finished.
int DownloadRemoteHandler::ParkUnsupportedName() {
  EventContext& context = GetContext();
  HANDLER_CRIT("Worker (%d): Encounter MAX_PATH_ERR when renaming '%s'.", GetWorkerId(),
               context.GetPath());
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_SELECTIVE_SYNC);
  if (context.GetEventDatabaseSafe().setServerFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("setFilteredEvent: failed to update server filtered database");
    return ERR_SYS;
  }
  SetUINotification(UI_NOTIFY_FILTERED);
  SetErrorAction(ACTION_DONE, std::make_unique<UnsupportedNameCallback>());
  return 0;
}

int DownloadRemoteHandler::ReturnEvent() {
  SetErrorAction(ACTION_RETURN_EVENT);
  return ERR_INT;
}

}  // namespace tolven

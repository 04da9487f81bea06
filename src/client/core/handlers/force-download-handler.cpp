#include "client/core/handlers/force-download-handler.h"

#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/event-generator.h"
#include "client/core/file.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/server-record.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "force-download-handler"; }

// Whether a folder above became a file, here and on the server: its members went with it.
bool IsBelowFile(FileEventDB& db, const ustring& path) {
  const std::string_view text = path.view();
  for (std::size_t slash = text.rfind('/'); slash != std::string_view::npos && slash > 0;
       slash = text.rfind('/', slash - 1)) {
    DBFileInfo above;
    if (db.getEventInfo(ustring(text.substr(0, slash)), above) == 1) {
      return above.isExist != 0 && above.IsFile();
    }
  }
  return false;
}

}  // namespace

bool ForceDownloadHandler::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  return event.isServerEvent() && event.m_sync_id == kForcedDownload;
}

int ForceDownloadHandler::Handle() {
  EventContext& context = GetContext();
  const DBFileInfo db_info = context.GetDatabaseInfo();
  const ustring& path = context.GetPath();
  const File local(context.GetFullPath(), true);
  SetAbortable(true);
  if (db_info.syncID == 0) {
    HANDLER_NOTE("Force download '%s' but cannot find any record in event DB, skipping.", path);
    // A removal that was parked has nothing left to remove.
    return local.IsKnown() && !local.Exists() ? Unpark() : 0;
  }
  if (local.Exists() && !FileHelper::LocallyModified(context, local, db_info)) {
    HANDLER_INFO("Force download '%s' but NO local modification.", path);
    return Unpark();
  }
  if (!local.IsKnown() || (!local.Exists() && !HandlerHelper::IsRootProved(context))) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  return DownloadAnew(db_info);
}

int ForceDownloadHandler::Unpark() {
  const EventContext& context = GetContext();
  if (context.GetEventDatabaseSafe().rmLocalFilteredEvent(FilteredEvent::FILTERED_ALL,
                                                          context.GetPath(), 0) == 0) {
    return 0;
  }
  HANDLER_ERROR("RemoveRemote: Failed to remove filtered local event [%s]", context.GetPath());
  return ERR_SYS;
}

// Without a number of its own the path is downloaded as new, at the version of its record.
int ForceDownloadHandler::DownloadAnew(const DBFileInfo& db_info) {
  EventContext& context = GetContext();
  FileEventDB& db = context.GetEventDatabaseSafe();
  const ustring& path = context.GetPath();
  const Event forced = context.GetEvent();
  DBFileInfo original = db_info;
  if (db.fillServerColumns(path, original) < 0) return ERR_SYS;
  // A newer version may be parked for the path, and its own event gave way to this one.
  DBFileInfo told;
  if (db.getServerEventByPath(path, told) < 0) return ERR_SYS;
  const bool is_newer = told.syncID > db_info.syncID;
  if (is_newer && told.isExist == 0) {
    // There is nothing to fetch any more.
    auto callback = std::make_unique<CreateEventCallback>();
    callback->SetServerRemoveEvent(path, told.IsDir(), told.syncID, told.maxSyncID);
    SetErrorAction(ACTION_DONE, std::move(callback));
    return 0;
  }
  HANDLER_INFO("Replace force download sync_id to synic_id in DB [%llu].", db_info.syncID);
  Event event = forced;
  event.m_sync_id = is_newer ? told.syncID : db_info.syncID;
  event.m_max_id = is_newer ? told.maxSyncID : db_info.maxSyncID;
  if (is_newer) {
    // It may even be of the other kind.
    told.IsDir() ? event.setDir() : event.setFile();
    FillFromServerView(told, event);
  }
  DBFileInfo record = db_info;
  record.syncID = 0;
  record.maxSyncID = 0;
  const bool is_old =
      context.GetConnectionInfo().version_info.build_number <= DownloadRemoteHandlerV0::kLastBuild;
  DownloadRemoteHandler& download = is_old ? download_v0_ : download_;
  download.SetContext(&context);
  download.SetWorkerController(&GetWorkerController());
  context.SetEvent(event);
  context.SetDatabaseInfo(record);
  const int result = download.Handle();
  // The next attempt begins as this one did.
  context.SetEvent(forced);
  // What was not downloaded is not forgotten. Writing a record also brings back what is parked for
  // its path, so one that is still there is left alone.
  DBFileInfo record_now;
  const int found = db.getEventInfo(path, record_now);
  if (found == 1 || (found < 0 && result == 0) || IsBelowFile(db, path)) return result;
  original.signaturePath.clear();  // it went with the row
  if (context.UpdateDatabaseInfo(original) != 0) {
    HANDLER_ERROR("Failed to write back the record of '%s'", path);
  }
  return result;
}

}  // namespace tolven

#include "client/core/handlers/remove-remote-handler.h"

#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/handlers/filter-gate.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/filter-helper.h"
#include "client/core/helpers/folder-knowledge.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/protocol-client.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "lib/proto-constants.h"

namespace tolven {

namespace {

const char* Source() { return "remove-remote-handler"; }

// The folder that an object is in; "/" for the first level.
ustring ParentOf(const ustring& path) {
  const std::string_view text = path.view();
  const std::size_t slash = text.rfind('/');
  return slash == 0 ? ustring("/") : ustring(text.substr(0, slash));
}

}  // namespace

bool RemoveRemoteHandler::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  return event.m_type == Event::EV_REMOVE && event.isLocalEvent();
}

int RemoveRemoteHandler::Handle() {
  is_removed_ = is_guess_ = false;
  const int result = Apply();
  const Event& event = GetContext().GetEvent();
  // A server's change that this event took the place of would be forgotten with it.
  if (result == 0 && !is_removed_ && event.hasReplacedServerEvent()) {
    EventManager::getInstance().CountUnappliedServerEvent(event.m_sess_id);
  }
  return result;
}

int RemoveRemoteHandler::Apply() {
  EventContext& context = GetContext();
  const File local(context.GetFullPath(), true);
  SetAbortable(true);
  const int filter_type = TestRemoveRemoteFilter();
  if (filter_type != 0) return HandleFilteredEvent(filter_type);
  const Registry::Entry& entry = context.GetEntry();
  if (entry.read_only && context.GetEvent().isLocalEvent()) {
    HANDLER_INFO(
        "Worker (%d): File '%s' in registry entry (with session id %llu) is read-only, ignore "
        "event.",
        GetWorkerId(), context.GetPath(), entry.sess_id);
    return 0;
  }
  const DBFileInfo db_info = context.GetDatabaseInfo();
  if (IsFakeRemoveRemoteEvent()) return 0;
  if (!IsEventTypeMatched(local)) return 0;
  FILE_INFO info;
  const bool is_certain = local.Exists() || FSStat(context.GetFullPath(), info, true) == 0;
  if (!is_certain || !HandlerHelper::IsRootProved(context)) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  std::uint64_t max_id = db_info.maxSyncID;
  if (!IsRemovalInformed(db_info, max_id)) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  const int code = SendRemoveRequest(db_info, max_id);
  if (code < 0) {
    HANDLER_ERROR("Worker (%d): Failed to send remove rquest.", GetWorkerId());
    return code;
  }
  // A refusal that is no error leaves the record as it is.
  if (!is_removed_) return 0;
  const int committed = context.CommitRemoveDatabase();
  if (committed != 0) {
    HANDLER_ERROR("Worker (%d): Failed to update local event database. (code: %d)", GetWorkerId(),
                  committed);
    return ERR_SYS;
  }
  if (local.Exists()) {
    // What is here by now is news.
    auto callback = std::make_unique<CreateEventCallback>();
    callback->SetUploadEvent(context.GetPath(), local.IsDirectory());
    SetCallback(std::move(callback));
  }
  SetUINotification(UI_NOTIFY_CLIENT_REMOVE);
  return 0;
}

int RemoveRemoteHandler::TestRemoveRemoteFilter() {
  const EventContext& context = GetContext();
  const FilterGate gate(context, Source());
  const int filter_type = gate.TestPath();
  if (filter_type != 0 || context.GetEvent().isDir()) return filter_type;
  return gate.TestSize(context.GetDatabaseInfo().fileSize);
}

int RemoveRemoteHandler::HandleFilteredEvent(int filter_type) {
  if (filter_type == FilterHelper::kNotLookedAt) return ERR_LOCKED_FILE;
  EventContext& context = GetContext();
  SetUINotification(UI_NOTIFY_FILTERED);
  if (!FilterGate(context, Source()).CanBeRemembered(filter_type)) return 0;
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_SELECTIVE_SYNC);
  if (context.GetEventDatabaseSafe().setLocalFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("Worker(%d): Failed to setFilteredEvent for session '%llu', path '%s' .",
                  GetWorkerId(), context.GetEntry().sess_id, context.GetPath());
    return ERR_SYS;
  }
  HANDLER_INFO("Worker (%d): File '%s' cannot pass filter testing.", GetWorkerId(),
               context.GetPath());
  return 0;
}

// The server is told only of what it is known to hold.
bool RemoveRemoteHandler::IsFakeRemoveRemoteEvent() {
  const EventContext& context = GetContext();
  if (context.GetDatabaseInfo().syncID != 0) return false;
  HANDLER_INFO("Worker (%d): Path '%llu:%s' can't be removed (event db has no record).",
               GetWorkerId(), context.GetEntry().sess_id, context.GetPath());
  if (context.GetEventDatabaseSafe().rmLocalFilteredEvent(
          FilteredEvent::FILTERED_ALL, context.GetPath(), FileEventDB::FILTER_FLAG_INCLUDE_CHILD) <
      0) {
    HANDLER_ERROR("RemoveRemote: Failed to remove ACL filtered local event [%s]",
                  context.GetPath());
  }
  return true;
}

bool RemoveRemoteHandler::IsEventTypeMatched(const File& local_file) {
  if (!local_file.Exists()) return true;
  const Event& event = GetContext().GetEvent();
  HANDLER_NOTE("Worker (%d): Path '%s' exists, but should be deleted.", GetWorkerId(),
               event.m_path);
  auto callback = std::make_unique<CreateEventCallback>();
  if (!local_file.IsDirectory()) {
    if (!event.isDir() || GetContext().GetDatabaseInfo().IsDir()) return true;
    // The folder's removal is known by now: the record is that of the file that took its place.
    callback->SetUploadEvent(event.m_path, false);
    SetErrorAction(ACTION_DONE, std::move(callback));
    return false;
  }
  HANDLER_NOTE("Worker (%d): Expand local delete event for '%s'.", GetWorkerId(), event.m_path);
  callback->SetExpandLocalDeleteEvent(event.m_path, event.isDir(), event.m_sync_id, event.m_max_id);
  SetErrorAction(ACTION_DONE, std::move(callback));
  return false;
}

// The removal waits for the pull of what others may have changed below; where the pull waits for
// the removal, it is for the server to judge by what was pulled before.
bool RemoveRemoteHandler::IsRemovalInformed(const DBFileInfo& db_info, std::uint64_t& max_id) {
  if (!db_info.IsDir()) return true;
  const EventContext& context = GetContext();
  FolderKnowledge known;
  if (known.Read(context, db_info) != 0) return false;
  max_id = known.max_id;
  is_guess_ = known.is_behind;
  return !is_guess_ || EventManager::getInstance().IsServerEventBehind(context.GetEntry().sess_id,
                                                                       context.GetPath());
}

int RemoveRemoteHandler::SendRemoveRequest(const DBFileInfo& db_info, std::uint64_t max_id) {
  PObject request, response;
  HandlerHelper::InitObjectRequest(request, "remove", GetContext(), db_info);
  request["max_id"] = max_id;
  ProtocolClient client = GetContext().GetProtocolClient();
  client.SetAbortFlag(GetAbortFlag());
  const int code = client.Request(SCMD_EVT_REMOVE, request, response);
  if (code < 0) return code;
  const PObject& answer = response;
  if (answer.hasMember("error")) {
    return HandleRemoveResponseError(answer["error"]["code"].asUInt32(), db_info);
  }
  is_removed_ = true;
  return 0;
}

int RemoveRemoteHandler::HandleRemoveResponseError(std::uint32_t code, const DBFileInfo& db_info) {
  const ustring& path = GetContext().GetPath();
  switch (code) {
    case SPROTO_ERR_REMOVE_NOFILE:
      HANDLER_NOTE(
          "Worker (%d): Fake event on '%s' ... how did you do that? remove local entry anyway.",
          GetWorkerId(), path);
      is_removed_ = true;
      return 0;
    case SPROTO_ERR_REMOVE_MODIFIED:
      return OnModified(db_info);
    case SPROTO_ERR_REMOVE_NO_ACCESS:
    case SPROTO_ERR_REMOVE_NO_PERM:
    case SPROTO_ERR_UPLOAD_FILTERED:
      return OnRefused(db_info);
    default:
      break;
  }
  const int result = HandlerHelper::ConvertResponseErrorToHandlerError(code);
  HANDLER_ERROR("Worker (%d): Failed to remove '%s'. %s", GetWorkerId(), path, ErrorText(result));
  return result;
}

int RemoveRemoteHandler::OnModified(const DBFileInfo& db_info) {
  const EventContext& context = GetContext();
  HANDLER_NOTE("Worker (%d): Object '%s' on the server is modified, abort anyway.", GetWorkerId(),
               context.GetPath());
  if (db_info.IsFile()) return 0;
  HANDLER_NOTE("Worker (%d): Fail to remove directory '%s', rescan directory it.", GetWorkerId(),
               context.GetPath());
  // Where the number was too low to be certain, the folder above finds the removal once more, when
  // nothing else is left to do.
  EventManager::getInstance().IssueRescan(
      context.GetEntry().sess_id, is_guess_ ? ParentOf(context.GetPath()) : context.GetPath(),
      false);
  SetErrorAction(ACTION_DONE);
  return ERR_INT;
}

int RemoveRemoteHandler::OnRefused(const DBFileInfo& db_info) {
  EventContext& context = GetContext();
  const ustring& path = context.GetPath();
  FileEventDB& db = context.GetEventDatabaseSafe();
  HANDLER_WARNING("RemoveRemote: no permission to remove path '%s'", path);
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_ACL);
  if (db.setLocalFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("setLocalFilteredEvent failed for path '%s'", path);
    return ERR_SYS;
  }
  if (db_info.IsDir() && db.expandLocalFilteredEvent(path) < 0) {
    HANDLER_ERROR("expandLocalAclFilteredEvent failed for path '%s'", path);
    return ERR_SYS;
  }
  SetErrorAction(ACTION_DONE);
  return ERR_INT;
}

}  // namespace tolven

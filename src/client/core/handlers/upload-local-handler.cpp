#include "client/core/handlers/upload-local-handler.h"

#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/conflict-rename.h"
#include "client/core/event-generator.h"
#include "client/core/handlers/filter-gate.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/filter-helper.h"
#include "client/core/helpers/folder-knowledge.h"
#include "client/core/helpers/handler-helper.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "upload-local-handler"; }

}  // namespace

bool UploadLocalHandler::FilterEvent() { return GetContext().GetEvent().isLocalEvent(); }

int UploadLocalHandler::Handle() {
  is_sent_ = false;
  const int result = Apply();
  const Event& event = GetContext().GetEvent();
  // A server's change that this event took the place of would be forgotten with it.
  if (result == 0 && !is_sent_ && event.hasReplacedServerEvent()) {
    EventManager::getInstance().CountUnappliedServerEvent(event.m_sess_id);
  }
  return result;
}

int UploadLocalHandler::Apply() {
  EventContext& context = GetContext();
  const File local(context.GetFullPath(), true);
  SetAbortable(true);
  if (!IsEventTypeMatched(local)) return local.Exists() ? 0 : OnVanished();
  const int filter_type = TestUploadLocalFilter(local);
  if (filter_type != 0) return HandleFilteredEvent(filter_type);
  const Registry::Entry& entry = context.GetEntry();
  if (entry.read_only && context.GetEvent().isLocalEvent()) {
    HANDLER_INFO(
        "Worker (%d): File '%s' in registry entry (with session id %llu) is read-only, ignore "
        "event.",
        GetWorkerId(), context.GetPath(), entry.sess_id);
    return 0;
  }
  if (!local.CanRead()) {
    HANDLER_ERROR("Worker (%d): unable to handle locked/no permission file '%s'.", GetWorkerId(),
                  context.GetPath());
    return ERR_LOCKED_FILE;
  }
  SetWorkingType(W_TYPE_UPLOAD);
  const DBFileInfo db_info = context.GetDatabaseInfo();
  if (const int unknown = CheckReplacedFolder(local, db_info); unknown != 0) return unknown;
  const int result = HandleUpload(local, db_info);
  if (result < 0) return result;
  CheckAndHandleFileRemovedDuringUpload(local);
  SetUINotification(UI_NOTIFY_CLIENT_MODIFY);
  return 0;
}

bool UploadLocalHandler::IsEventTypeMatched(const File& local_file) {
  if (!local_file.Exists()) {
    HANDLER_INFO("Path '%s' cannot be uploaded. (vanish)", GetContext().GetPath());
    return false;
  }
  if (local_file.IsFile() || local_file.IsDirectory()) return true;
  HANDLER_INFO("Path '%s' cannot be uploaded. (unsupported file type)", GetContext().GetPath());
  return false;
}

// That nothing is there says only where the session's folder is there that it was removed.
int UploadLocalHandler::OnVanished() {
  const EventContext& context = GetContext();
  FILE_INFO info;
  const bool is_gone = FSStat(context.GetFullPath(), info, true) == 0 && !info.isExist;
  if (!is_gone || !HandlerHelper::IsRootProved(context)) {
    SetErrorAction(ACTION_RETURN_EVENT);
    return ERR_INT;
  }
  const Event& event = context.GetEvent();
  auto callback = std::make_unique<CreateEventCallback>();
  callback->SetServerRemoveEvent(event.m_path, event.isDir(), event.m_sync_id, event.m_max_id);
  SetErrorAction(ACTION_DONE, std::move(callback));
  return 0;
}

int UploadLocalHandler::TestUploadLocalFilter(const File& local_file) {
  const FilterGate gate(GetContext(), Source());
  const int filter_type = gate.TestPath();
  // By what is there now, whatever the event was about.
  if (filter_type != 0 || local_file.IsDirectory()) return filter_type;
  return gate.TestSize(local_file.GetSize());
}

int UploadLocalHandler::HandleFilteredEvent(int filter_type) {
  if (filter_type == FilterHelper::kNotLookedAt) return ERR_LOCKED_FILE;
  EventContext& context = GetContext();
  SetUINotification(UI_NOTIFY_FILTERED);
  if (!FilterGate(context, Source()).CanBeRemembered(filter_type)) return 0;
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_SELECTIVE_SYNC);
  if (context.GetEventDatabaseSafe().setLocalFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("Failed to setLocalFilteredEvent for session '%llu', path '%s'.",
                  context.GetEntry().sess_id, context.GetPath());
    return ERR_SYS;
  }
  HANDLER_INFO("Worker (%d): File '%s' cannot pass filter testing.", GetWorkerId(),
               context.GetPath());
  return 0;
}

// A server cannot hold a name that ends in a blank or a dot.
int UploadLocalHandler::CheckAndHandleBaseNameConflict() {
  const EventContext& context = GetContext();
  const ustring name = FileHelper::GetBaseName(context.GetPath());
  const ustring& computer = context.GetConnectionInfo().computer_name;
  if (name.empty() || (name.view().back() != ' ' && name.view().back() != '.')) return kNameIsFine;
  int code = 0;
  if (name.view().back() == ' ') {
    HANDLER_NOTE("TestBaseNameConflict: WhiteSpaceConflict '%s'.", context.GetPath());
    code = WhiteSpaceConflictRename(context.GetFullPath(), computer, "WhiteSpaceConflict");
  } else {
    HANDLER_NOTE("TestBaseNameConflict: TailCharacterConflict '%s'.", context.GetPath());
    code = ConflictRename(context.GetFullPath(), computer, "TailCharacterConflict");
  }
  return code < 0 ? static_cast<int>(ERR_SYS) : 0;
}

// A file that took the place of a folder takes from the server all that is in the folder. 0 when
// that is known here.
int UploadLocalHandler::CheckReplacedFolder(const File& local_file, const DBFileInfo& db_info) {
  if (!local_file.IsFile() || db_info.syncID == 0 || !db_info.IsDir()) return 0;
  const EventContext& context = GetContext();
  FolderKnowledge known;
  if (known.Read(context, db_info) != 0) return ERR_SYS;
  if (known.is_held_back) {
    HANDLER_NOTE("Folder '%s' holds what is filtered here, resolve conflict.", context.GetPath());
    const int renamed = ConflictRename(context.GetFullPath(),
                                       context.GetConnectionInfo().computer_name, "Conflict");
    return renamed < 0 ? static_cast<int>(ERR_SYS) : static_cast<int>(ERR_INT);
  }
  if (!known.is_behind) return 0;
  // The folder goes first, since its removal waits for the pull. The file is news then.
  auto callback = std::make_unique<CreateEventCallback>();
  callback->SetLocalRemoveEvent(context.GetPath(), true);
  SetErrorAction(ACTION_DONE, std::move(callback));
  return ERR_INT;
}

// It was recorded as existing, and the watcher's event may have come before that.
void UploadLocalHandler::CheckAndHandleFileRemovedDuringUpload(const File& local_file) {
  const EventContext& context = GetContext();
  FILE_INFO info;
  const bool is_gone = FSStat(local_file.GetPath(), info, true) == 0 && !info.isExist;
  if (!is_gone) return;
  HANDLER_INFO("File removed during upload progress, add event remove for '%s'.",
               context.GetPath());
  Registry::Entry entry = context.GetEntry();
  PushLocalRemoveEvent(entry, context.GetPath(), local_file.IsDirectory());
}

std::uint32_t UploadLocalHandler::AdjustMtime(std::uint32_t mtime) const {
  return GetContext().GetEntry().isMSDOS ? mtime & ~1U : mtime;
}

}  // namespace tolven

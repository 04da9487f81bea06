#include "client/core/handlers/expand-server-delete-handler.h"

#include <memory>

#include "client/core/callbacks/create-dir-self-event-callback.h"
#include "client/core/event-generator.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "client/file-list.h"
#include "client/string-buffer.h"

namespace tolven {

namespace {

const char* Source() { return "expand-server-delete-handler"; }

constexpr std::size_t kFirstChunk = 0x200;

}  // namespace

bool ExpandServerDeleteHandler::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  return event.isServerSubDirRescan() || event.isServerSubDirRescanWithStat();
}

int ExpandServerDeleteHandler::Handle() {
  EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  SetAbortable(true);
  // What keeps the folder here will make it anew on the server. Where there is no such thing, the
  // folder itself is still to go, once its members are gone.
  const int edits =
      FileHelper::HasLocalEdits(context, event.m_path, context.GetFullPath(), GetAbortFlag());
  StringBuffer names(kFirstChunk);
  FileList list(names);
  if (edits < 0 || context.GetEventDatabaseSafe().getFileListWithoutRecursive(
                       list, event.m_path, event.m_sync_id) < 0) {
    return ERR_INT;
  }
  Registry::Entry entry = context.GetEntry();
  for (auto member = list.rbegin(); member != list.rend(); ++member) {
    if (GetAbortFlag()->load() != 0) {
      HANDLER_NOTE("Worker (%d): Interrupted while expanding server delete event (%s).",
                   GetWorkerId(), event.m_path);
      return ERR_INT;
    }
    PushServerRemoveEvent(
        entry, JoinPath(event.m_path == "/" ? ustring() : event.m_path, member->path.view()),
        member->is_dir(), event.m_sync_id, event.m_max_id);
  }
  if (edits == 0) {
    EventManager::getInstance().CountUnappliedServerEvent(event.m_sess_id);
  } else if (ForgetFolder() < 0) {
    return ERR_INT;
  }
  SetErrorAction(ACTION_DONE, std::make_unique<CreateDirSelfEventCallback>());
  return 0;
}

// The folder itself is made anew, also when what keeps it here is gone by then. For what a filter
// holds back it stays here alone.
int ExpandServerDeleteHandler::ForgetFolder() {
  const EventContext& context = GetContext();
  const DBFileInfo& record = context.GetDatabaseInfo();
  if (!record.IsDir() || record.syncID > context.GetEvent().m_sync_id) return 0;
  const int news = FileHelper::HasLocalEdits(context, context.GetPath(), context.GetFullPath(),
                                             GetAbortFlag(), FileHelper::Parked::LEFT_OUT);
  return news <= 0 ? news : context.GetEventDatabaseSafe().rmOwnEventInfo(context.GetPath());
}

}  // namespace tolven

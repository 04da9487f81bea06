#include "client/core/callbacks/create-dir-self-event-callback.h"

#include "client/core/event-context.h"
#include "client/core/event-generator.h"
#include "client/core/file.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/handler-helper.h"
#include "client/event-manager.h"

namespace tolven {

namespace {

const char* Source() { return "create-dir-self-event"; }

constexpr std::uint32_t kSubDirRescans =
    Event::F_LOCAL_SUBDIR_RESCAN | Event::F_SERVER_SUBDIR_RESCAN |
    Event::F_LOCAL_SUBDIR_RESCAN_STAT | Event::F_SERVER_SUBDIR_RESCAN_STAT;

// A folder that cannot be read counts as one with content.
bool IsEmptyFolder(const ustring& path) {
  DIR_HANDLE handle;
  DIR_ENTRY entry;
  FSOpenDir(path, 0, handle);
  int found = FSReadDir(handle, entry);
  while (found == 1 && (entry.name == "." || entry.name == "..")) {
    found = FSReadDir(handle, entry);
  }
  return found == 0;
}

}  // namespace

void CreateDirSelfEventCallback::Exec(EventContext& context) {
  CreateDirSelfEvent(context);
  RepeatServerEvent(context);
}

void CreateDirSelfEventCallback::CreateDirSelfEvent(const EventContext& context) {
  const Event& current = context.GetEvent();
  const File folder(context.GetFullPath(), true);
  EventManager& manager = EventManager::getInstance();
  if (!folder.IsKnown()) return;
  if (!folder.Exists() && (manager.IsServerEventPendingBelow(current.m_sess_id, current.m_path) ||
                           !HandlerHelper::IsRootProved(context))) {
    return;
  }
  Event event;
  event.m_sess_id = current.m_sess_id;
  event.m_path = current.m_path;
  event.m_type = folder.Exists() ? Event::EV_CREATE : Event::EV_REMOVE;
  event.setDir();
  HANDLER_DEBUG("CreateDirSelfEvent: create self event [%s].", event.toString());
  manager.PushLocalEvent(event);
}

void CreateDirSelfEventCallback::RepeatServerEvent(const EventContext& context) {
  const Event& current = context.GetEvent();
  const bool has_change =
      current.isServerEvent() && current.m_sync_id != 0 && current.m_sync_id != kForcedDownload;
  if (!has_change) return;
  if (current.m_type == Event::EV_REMOVE && !IsEmptyFolder(context.GetFullPath())) return;
  Event event = current;
  event.m_mode &= ~kSubDirRescans;
  EventManager::getInstance().PushServerEvent(event);
}

}  // namespace tolven

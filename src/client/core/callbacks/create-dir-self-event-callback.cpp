#include "client/core/callbacks/create-dir-self-event-callback.h"

#include "client/core/event-context.h"
#include "client/core/event-generator.h"
#include "client/core/file.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/rescan-requests.h"
#include "client/event-manager.h"

namespace tolven {

namespace {

const char* Source() { return "create-dir-self-event"; }

constexpr std::uint32_t kSubDirRescans =
    Event::F_LOCAL_SUBDIR_RESCAN | Event::F_SERVER_SUBDIR_RESCAN |
    Event::F_LOCAL_SUBDIR_RESCAN_STAT | Event::F_SERVER_SUBDIR_RESCAN_STAT;

// Whether the server told a change that was expanded here.
bool IsServerChange(const Event& event) {
  return event.isServerEvent() && event.m_sync_id != 0 && event.m_sync_id != kForcedDownload;
}

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
  // The server has a folder there, which comes (back) with its repeated event.
  if (!folder.IsDirectory() && IsServerChange(current) && current.m_type != Event::EV_REMOVE) {
    return;
  }
  if (!folder.IsDirectory() &&
      manager.IsServerEventPendingBelow(current.m_sess_id, current.m_path)) {
    // They may bring the folder back. If they do not (the last was being put in place when the
    // folder went), a rescan tells the server of its end.
    RescanRequests::getInstance().Add(current.m_sess_id);
    return;
  }
  if (!folder.IsDirectory() && !HandlerHelper::IsRootProved(context)) return;
  Event event;
  event.m_sess_id = current.m_sess_id;
  event.m_path = current.m_path;
  event.m_type = folder.IsDirectory() ? Event::EV_CREATE : Event::EV_REMOVE;
  event.setDir();
  HANDLER_DEBUG("CreateDirSelfEvent: create self event [%s].", event.toString());
  manager.PushLocalEvent(event);
}

void CreateDirSelfEventCallback::RepeatServerEvent(const EventContext& context) {
  const Event& current = context.GetEvent();
  if (!IsServerChange(current)) return;
  if (current.m_type == Event::EV_REMOVE && !IsEmptyFolder(context.GetFullPath())) return;
  Event event = current;
  event.m_mode &= ~kSubDirRescans;
  EventManager::getInstance().PushServerEvent(event);
}

}  // namespace tolven

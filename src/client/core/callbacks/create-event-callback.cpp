#include "client/core/callbacks/create-event-callback.h"

#include "client/core/event-context.h"
#include "client/core/event-generator.h"

namespace tolven {

void CreateEventCallback::Set(EventType event_type, const ustring& event_path, bool directory,
                              std::uint64_t sync, std::uint64_t max) {
  type = event_type;
  path = event_path;
  is_dir = directory;
  sync_id = sync;
  max_id = max;
}

void CreateEventCallback::SetServerRemoveEvent(const ustring& event_path, bool directory,
                                               std::uint64_t sync, std::uint64_t max) {
  Set(EV_REMOTE_REMOVE, event_path, directory, sync, max);
}

void CreateEventCallback::SetLocalRemoveEvent(const ustring& event_path, bool directory) {
  Set(EV_LOCAL_REMOVE, event_path, directory, 0, 0);
}

void CreateEventCallback::SetUploadEvent(const ustring& event_path, bool directory) {
  Set(EV_UPLOAD, event_path, directory, 0, 0);
}

void CreateEventCallback::SetDownloadEvent(const ustring& event_path, bool directory) {
  Set(EV_DOWNLOAD, event_path, directory, 0, 0);
}

void CreateEventCallback::SetExpandLocalDeleteEvent(const ustring& event_path, bool directory,
                                                    std::uint64_t sync, std::uint64_t max) {
  Set(EV_EXPAND_LOCAL_DELETE, event_path, directory, sync, max);
}

void CreateEventCallback::SetExpandServerDeleteEvent(const ustring& event_path, bool directory,
                                                     std::uint64_t sync, std::uint64_t max) {
  Set(EV_EXPAND_SERVER_DELETE, event_path, directory, sync, max);
}

void CreateEventCallback::Exec(EventContext& context) {
  Registry::Entry entry = context.GetEntry();
  switch (type) {
    case EV_REMOTE_REMOVE:
      PushServerRemoveEvent(entry, path, is_dir, sync_id, max_id);
      break;
    case EV_LOCAL_REMOVE:
      PushLocalRemoveEvent(entry, path, is_dir);
      break;
    case EV_UPLOAD:
      PushUploadEvent(entry, path, is_dir);
      break;
    case EV_DOWNLOAD:
      PushDownloadEvent(entry, path, is_dir);
      break;
    case EV_EXPAND_LOCAL_DELETE:
      PushExpandLocalDeleteEvent(entry, path, is_dir, sync_id, max_id);
      break;
    case EV_EXPAND_SERVER_DELETE:
      PushExpandServerDeleteEvent(entry, path, is_dir, sync_id, max_id);
      break;
  }
}

}  // namespace tolven

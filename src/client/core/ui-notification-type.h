#pragma once

namespace tolven {

// What the UI and the file status database are told of a finished event.
enum UINotificationType {
  UI_NOTIFY_NONE = 0,
  UI_NOTIFY_FILTERED = 1,
  UI_NOTIFY_SERVER_MODIFY = 2,
  UI_NOTIFY_SERVER_REMOVE = 3,
  UI_NOTIFY_CLIENT_MODIFY = 4,
  UI_NOTIFY_CLIENT_REMOVE = 5,
  UI_NOTIFY_READ_ONLY = 6,
  UI_NOTIFY_NO_ACCESS_PERM = 7,
};

}  // namespace tolven

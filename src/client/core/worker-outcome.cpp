// What the result of a handler means for its event, and who is told of it.
#include <iterator>

#include "client/core/worker-log.h"
#include "client/core/worker.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/ui-ipc.h"

namespace tolven {
namespace {

constexpr int kMaxErrors = 3;

enum ReportType { REPORT_NONE = 0, REPORT_SESSION = 1, REPORT_CONNECTION = 2, REPORT_FILE = 3 };

struct Outcome {
  ErrorAction action = ACTION_DEFAULT;  // that one: no handler should end so
  ReportType report = REPORT_NONE;
};

// By the absolute value of the error.
constexpr Outcome kOutcomes[] = {
    {ACTION_DONE, REPORT_NONE},
    {ACTION_RETURN_EVENT, REPORT_NONE},        // ERR_INT
    {ACTION_RETRY, REPORT_NONE},               // ERR_IO
    {ACTION_RETRY, REPORT_NONE},               // ERR_SYS
    {},                                        // ERR_INVAL
    {},                                        // ERR_PROTO
    {ACTION_RETURN_EVENT, REPORT_CONNECTION},  // ERR_AUTH
    {ACTION_RETRY, REPORT_NONE},               // ERR_SERVER
    {},                                        // ERR_CONFLICT
    {ACTION_RETRY, REPORT_NONE},               // ERR_TIMEOUT
    {ACTION_RETURN_EVENT, REPORT_CONNECTION},  // ERR_VERSION
    {},                                        // ERR_NOENT
    {},                                        // ERR_USER
    {},                                        // ERR_PASSWORD
    {},                                        // ERR_VRKDISABLE
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_QUOTA
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_DISKFULL
    {},                                        // ERR_SYNCFOLDER_MISS
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_VIEW
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_PERMISS
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_VIEW_PATH
    {ACTION_RETRY, REPORT_NONE},               // ERR_CH_CONNECTION_ABORT
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_LOCAL_DISKFULL
    {ACTION_RETURN_EVENT, REPORT_FILE},        // ERR_LOCKED_FILE
    {},                                        // ERR_SSL_VERIFY_FAIL
    {ACTION_DONE, REPORT_SESSION},             // ERR_PERMISS_READ_ONLY
    {ACTION_DONE, REPORT_NONE},                // ERR_NO_UPLOAD_PERM
    {ACTION_RETRY, REPORT_NONE},               // ERR_CONFLICT_DOWNLOAD
    {ACTION_RETURN_EVENT, REPORT_SESSION},     // ERR_NOT_MOUNTED
    {},                                        // ERR_WATCH_VOL_UMOUNT
    {},                                        // ERR_SESSION_INITIAL
    {ACTION_DONE, REPORT_NONE},                // ERR_NO_ACCESS_PERM
    {ACTION_RETRY, REPORT_CONNECTION},         // ERR_BUILD_NUM_CHANGED
    {ACTION_DONE, REPORT_NONE},                // ERR_FILE_TOO_BIG
};
static_assert(std::size(kOutcomes) == ErrorCodes::ERR_MAX);

struct Told {
  Event::Type type;  // as the UI sees it
  int status;        // FSTAT_...
};

// By UINotificationType.
constexpr Told kTold[] = {
    {Event::EV_EMPTY, FSTAT_SYNCED},     // UI_NOTIFY_NONE
    {Event::EV_EMPTY, FSTAT_UNSUPPORT},  // UI_NOTIFY_FILTERED
    {Event::EV_MODIFY, FSTAT_SYNCED},    // UI_NOTIFY_SERVER_MODIFY
    {Event::EV_REMOVE, FSTAT_UNKNOWN},   // UI_NOTIFY_SERVER_REMOVE
    {Event::EV_MODIFY, FSTAT_SYNCED},    // UI_NOTIFY_CLIENT_MODIFY
    {Event::EV_REMOVE, FSTAT_UNKNOWN},   // UI_NOTIFY_CLIENT_REMOVE
    {Event::EV_EMPTY, FSTAT_READ_ONLY},  // UI_NOTIFY_READ_ONLY
    {Event::EV_EMPTY, FSTAT_NO_PERM},    // UI_NOTIFY_NO_ACCESS_PERM
};
static_assert(std::size(kTold) == UI_NOTIFY_NO_ACCESS_PERM + 1);

// Whether a status stays with a path whose event is finished.
bool IsLasting(int status) { return status == FSTAT_READ_ONLY || status == FSTAT_NO_PERM; }

FileStatusInfo MakeStatus(const ustring& key, bool is_dir, int status) {
  FileStatusInfo info;
  info.fileType = is_dir ? 1 : 0;
  info.syncStatus = status;
  info.path = key.str();
  return info;
}

}  // namespace

ErrorAction Worker::HandleError(int err) {
  if (err > 0 || err <= -ErrorCodes::ERR_MAX) {
    WORKER_CRIT("Worker (%d): Unknown error code (%d).\n", GetId(), err);
    return ACTION_RETRY;
  }
  WORKER_INFO("Worker (%d): Handle error: %s.\n", GetId(), ErrorText(err));
  const Outcome& outcome = kOutcomes[-err];
  ErrorAction action = outcome.action;
  if (action == ACTION_DEFAULT) {
    WORKER_CRIT("Worker (%d): Unexpected action (%d).\n", GetId(), static_cast<int>(action));
    return ACTION_RETRY;
  }
  if (err == ErrorCodes::ERR_PERMISS_READ_ONLY || err == ErrorCodes::ERR_NO_UPLOAD_PERM) {
    controller.SetUINotification(UI_NOTIFY_READ_ONLY);
  } else if (err == ErrorCodes::ERR_NO_ACCESS_PERM) {
    controller.SetUINotification(UI_NOTIFY_NO_ACCESS_PERM);
  }
  bool too_many = false;
  {
    MutexLock lock(obj_lock);
    if (err == ErrorCodes::ERR_SYS) worker_status.IncreaseErrorCount();
    too_many = worker_status.GetErrorCount() > kMaxErrors;
  }
  if (too_many) {
    WORKER_WARNING("Worker (%d): Hit maximum error count, return this event.\n", GetId());
    action = ACTION_RETURN_EVENT;
  }
  ReportErorrToUI(err, outcome.report);
  return action;
}

void Worker::HandleErrorCallback(bool at_end) {
  ErrorCallback* const callback = controller.GetErrorCallback();
  if (callback != nullptr && (at_end || !callback->RunsOnlyAtEnd())) callback->Exec(context);
}

void Worker::ReportErorrToUI(int err, int type) {
  const Registry::Entry& entry = context.GetEntry();
  if (type == REPORT_SESSION) {
    UI_IPC::ReportSessionErrorToUI(entry.conn_id, entry.sess_id, err);
  } else if (type == REPORT_CONNECTION) {
    UI_IPC::ReportConnectionErrorToUI(entry.conn_id, entry.sess_id, err);
  } else if (type == REPORT_FILE) {
    UI_IPC::ReportFileLockedEventToUI(EventForUI(context.GetEvent().m_type), err);
  }
}

void Worker::ProcessUINotification() {
  const UINotificationType type = controller.GetUINotification();
  if (type > UI_NOTIFY_FILTERED) NotifyUI(type);
}

void Worker::NotifyUI(UINotificationType type) {
  WORKER_DEBUG("Worker (%d): NotifyUI with event type = %d, path = %s.\n", GetId(),
               static_cast<int>(type), context.GetPath());
  const Event event = EventForUI(kTold[type].type);
  if (type == UI_NOTIFY_READ_ONLY) {
    UI_IPC::ReportFileROToUI(event);
  } else if (type == UI_NOTIFY_NO_ACCESS_PERM) {
    UI_IPC::ReportFileNoPermToUI(event);
  } else {
    UI_IPC::ReportFileEventToUI(event);
  }
}

Event Worker::EventForUI(Event::Type type) const {
  Event event;
  event.m_type = type;
  event.m_sess_id = context.GetEvent().m_sess_id;
  event.m_path = context.GetPath();
  if (context.GetEvent().isDir()) event.setDir();
  return event;
}

void Worker::UpdateFileStatus() {
  // Without a session there is no local path; its removal has cleared all of them.
  if (context.GetLocalWatch().empty()) return;
  const int status = kTold[controller.GetUINotification()].status;
  std::vector<FileStatusInfo> list;
  PrepareFileStatusList(status, list);
  UpdateFileStatus(status, list);
}

void Worker::UpdateFileStatus(int status, const std::vector<FileStatusInfo>& list) {
  if (IsLasting(status)) {
    for (const FileStatusInfo& info : list) {
      if (FileStatusDB::setFileSyncStat(info) == 0) continue;
      WORKER_ERROR("Failed to set event into FStatDB at path [%s], status %d\n", info.path,
                   info.syncStatus);
    }
    return;
  }
  const Event& event = context.GetEvent();
  if (event.isExpand() || event.isRescan()) return;
  FileStatusDB::rmFileStatByPath(FileStatusKey(context.GetLocalWatch(), event.m_path.view()));
}

void Worker::PrepareFileStatusList(int status, std::vector<FileStatusInfo>& list) {
  if (!IsLasting(status)) return;
  const Event& event = context.GetEvent();
  const ustring& root = context.GetLocalWatch();
  list.push_back(MakeStatus(FileStatusKey(root, event.m_path.view()), event.isDir(), status));
  if (status != FSTAT_NO_PERM) return;
  std::vector<FilteredEvent> parked;
  if (context.GetEventDatabaseSafe().getServerFilteredEvent(
          FilteredEvent::FILTERED_ACL, event.m_path, FileEventDB::FILTER_FLAG_INCLUDE_CHILD,
          parked) < 0) {
    WORKER_WARNING("failed to dump server event for session '%llu'. path [%s]... \n",
                   event.m_sess_id, event.m_path);
    return;
  }
  for (const FilteredEvent& below : parked) {
    if (below.path == event.m_path) continue;
    list.push_back(MakeStatus(FileStatusKey(root, below.path.view()), below.IsDir(), status));
  }
}

}  // namespace tolven

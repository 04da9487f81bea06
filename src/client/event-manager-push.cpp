// How events enter the event manager.
#include <algorithm>

#include "client/event-manager-log.h"
#include "client/event-manager.h"
#include "client/event-merge.h"
#include "client/event-path.h"
#include "lib/file-status-db.h"
#include "lib/ui-ipc.h"

namespace tolven {

namespace {

bool IsSamePath(const Event& a, const Event& b) {
  return a.m_sess_id == b.m_sess_id && a.isDir() == b.isDir() && a.m_path == b.m_path;
}

bool IsUpload(const Event& event) {
  return event.isLocalEvent() &&
         (event.m_type == Event::EV_CREATE || event.m_type == Event::EV_MODIFY);
}

bool IsForcedDownload(const Event& event) {
  return event.isServerEvent() && event.m_sync_id == kForcedDownloadSyncId;
}

bool IsNews(const Event& event) {
  return event.isValid() && event.isServerEvent() && event.m_sync_id != 0 &&
         event.m_sync_id != kForcedDownloadSyncId;
}

Event MakeWalk(uint64_t sess_id, const ustring& path) {
  Event walk;
  walk.m_type = Event::EV_CREATE;
  walk.m_sess_id = sess_id;
  walk.m_path = path.empty() ? ustring("/") : path;
  walk.setDir();
  walk.setExpand();
  return walk;
}

std::string StatusKey(const ustring& path) {
  std::string key = path.str();
  std::replace(key.begin(), key.end(), '/', '\\');
  return key;
}

}  // namespace

void EventManager::PushLocalEvent(const Event& event) { Push(event, Side::LOCAL); }

void EventManager::PushServerEvent(const Event& event) {
  Event copy = event;
  copy.setServerEvent();
  Push(copy, Side::SERVER);
}

void EventManager::Push(const Event& event, Side side) {
  if (!ustring::is_valid(event.m_path)) {
    EVENT_MGR_WARNING("File path is not valid, drop it.\n");
    return;
  }
  Event named = event;
  if (named.m_path.empty()) named.m_path = "/";
  {
    MutexLock lock(m_lock);
    PushLocked(named, side);
  }
  work_.Notify();
}

void EventManager::PushLocked(const Event& event, Side side) {
  NoteArrival(event, side);
  ustring local_path;
  if (!find_local_path_ || find_local_path_(event.m_sess_id, local_path) != 1) {
    EVENT_MGR_ERROR("Can not find registry by session %llu.\n", event.m_sess_id);
    return;
  }
  event_pool& pool = PoolForPush(event.m_sess_id, local_path);
  Event before;
  const int taken = pool.push(event, before);
  // A download of what is known here took the place of news.
  if (IsNews(before) && IsForcedDownload(event)) CountUnappliedServerEvent(event.m_sess_id);
  if (side == Side::LOCAL) {
    EVENT_MGR_DEBUG("EventManager::PushLocalEvent = [%s].\n", event.toString());
  } else {
    EVENT_MGR_DEBUG("EventManager::PushServerEvent = [%s].\n", event.toString());
  }
  MakeReady(pool);
  // What was not queued would be reported as pending for ever.
  if (taken != 0) return;
  if (side == Side::LOCAL && (event.isExpand() || event.isRescan())) return;
  SyncingEvent2FStatDB(FileStatusKey(local_path, event.m_path.view()), event.isDir());
  UI_IPC::ReportFileSyncingEventToUI(event);
}

// Lets the task that works on the path know of the event, and stops what it makes pointless.
void EventManager::NoteArrival(const Event& event, Side side) {
  if (!event.isValid()) return;
  for (auto& [task, entry] : registry) {
    const Event& processing = entry.processing;
    if (!IsSamePath(processing, event)) continue;
    if (!event.isExpand()) entry.waiting = event;
    if (side == Side::SERVER) continue;
    if (IsUpload(processing) && event.m_type == Event::EV_REMOVE) {
      EVENT_MGR_DEBUG(
          "old event is UploadLocal but new event is RemoveRemote, abort UploadLocal progress "
          "'%s'.\n",
          event.m_path);
      task->SetAbort(true);
    }
    if (event.isExpand() && event.m_mode == processing.m_mode) {
      EVENT_MGR_DEBUG("interrupt previous expander\n");
      task->SetAbort(true);
    }
  }
}

event_pool& EventManager::PoolForPush(uint64_t sess_id, const ustring& local_path) {
  std::unique_ptr<event_pool>& pool = pool_index[sess_id];
  if (pool == nullptr) {
    pool = std::make_unique<event_pool>(local_path, ++last_generation_);
    MutexLock lock(m_pool_index_lock);
    pool_counter_index[sess_id] = pool.get();
  }
  return *pool;
}

void EventManager::IssueRescan(uint64_t sess_id, const ustring& path, bool merge) {
  Event walk = MakeWalk(sess_id, path);
  walk.setRescan();
  if (merge) walk.setMerge();
  if (walk.m_path == "/") {
    Event root;
    root.m_type = Event::EV_MODIFY;
    root.m_sess_id = sess_id;
    root.m_path = walk.m_path;
    root.setDir();
    PushLocalEvent(root);
  }
  PushLocalEvent(walk);
  EVENT_MGR_DEBUG("EventManager::IssueRescan at [%llu], ev=[%s]\n", sess_id, walk.toString());
}

void EventManager::IssueExpand(uint64_t sess_id, const ustring& path) {
  PushLocalEvent(MakeWalk(sess_id, path));
}

int EventManager::SyncingEvent2FStatDB(const ustring& path, bool isDir) {
  FileStatusInfo info;
  info.fileType = isDir ? 1 : 0;
  info.syncStatus = FSTAT_SYNCING;
  info.path = StatusKey(path);
  if (FileStatusDB::setFileSyncStat(info) == 0) return 0;
  EVENT_MGR_ERROR("Failed to set syncing event into FStatDB at path [%s].\n", path);
  return -1;
}

int EventManager::SyncedEvent2FStatDB(const ustring& path) {
  if (FileStatusDB::rmFileStatByPath(ustring(StatusKey(path))) == 0) return 0;
  EVENT_MGR_ERROR("Failed to rm synced event from FStatDB by path [%s].\n", path);
  return -1;
}

}  // namespace tolven

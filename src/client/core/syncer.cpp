#include "client/core/syncer.h"

#include <chrono>
#include <utility>
#include <vector>

#include "client/core/connection-manager.h"
#include "client/core/event-generator.h"
#include "client/core/rescan-requests.h"
#include "client/core/session-layout.h"
#include "client/core/syncer-error-table.h"
#include "client/core/syncer-log.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/ui-ipc.h"
#include "platform/clock.h"

namespace tolven {

namespace {

constexpr unsigned kRetrySeconds = 3;
constexpr unsigned kLongWaitSeconds = 120;
constexpr unsigned kCaughtUpSeconds = 5;
// How long no event may come to its end before other sessions have their turn.
constexpr std::int64_t kStuckMilliseconds = 60'000;
// How often a batch is pulled again of which something was not applied.
constexpr int kUnappliedTries = 3;

constexpr std::chrono::milliseconds kStep{100};
constexpr int kStepsPerSecond = 10;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

unsigned SecondsAfter(int action) {
  switch (action) {
    case SyncerErrors::ACTION_DONE:
      return 0;
    case SyncerErrors::ACTION_RETRY:
      return kRetrySeconds;
    case SyncerErrors::ACTION_RETRY_LONG_WAIT:
      return kLongWaitSeconds;
    default:
      SYNCER_CRIT("retry\n");
      return kRetrySeconds;
  }
}

// Finds the session itself, and not one that took its place.
bool FindSession(const Registry::Entry& wanted, Registry::Entry& found) {
  return Registry::getInstance().Find(wanted.sess_id, found) == 1 &&
         found.generation == wanted.generation;
}

}  // namespace

const ustring Syncer::WORKING_DIR = kWorkingDirectory;

Syncer::Syncer(ReplaceFilterFunction replace_filter) : replace_filter_(std::move(replace_filter)) {}

int Syncer::Pause() {
  abort_flag = 1;
  return Task::Pause();
}

int Syncer::Resume() {
  abort_flag = 0;
  return Task::Resume();
}

int Syncer::Stop() {
  abort_flag = 1;
  return Task::Stop();
}

void Syncer::AddRescanEvent(std::uint64_t session, bool merge) {
  const MutexLock lock(rescan_events_lock);
  rescan_events[session] = merge;
}

const ConnectionInfo& Syncer::GetConnectionInfo() const {
  return context.connection.getConnectionInfo();
}

void Syncer::DoTask() {
  for (;;) {
    const State state = GetState();
    if (state == STOP) break;
    if (state == PAUSE) {
      WaitPaused();
      continue;
    }
    if (UpdateContext() < 0 || !IsSessionReady()) {
      Wait(1);
      continue;
    }
    const int code = PullEvent();
    Wait(SecondsAfter(HandleError(code)));
  }
  SYNCER_DEBUG("Syncer: stop working, now on view_id %llu, sync_id %llu.\n", context.entry.view_id,
               context.sync_id);
}

int Syncer::UpdateContext() {
  Registry::Entry entry;
  if (Registry::getInstance().FindNext(context.entry.sess_id, entry) != 1) {
    SYNCER_DEBUG("invalid session id %llu\n", context.entry.sess_id);
    return -1;
  }
  // Whatever becomes of this session, the next one has its turn.
  context.entry = std::move(entry);
  Connection connection;
  if (ConnectionManager::getInstance().get(context.entry.conn_id, connection) != 0) {
    SYNCER_ERROR("invalid connection id %llu\n", context.entry.conn_id);
    return -1;
  }
  context.connection = std::move(connection);
  return 0;
}

bool Syncer::RefreshEntry() {
  Registry::Entry entry;
  if (!FindSession(context.entry, entry)) return false;
  context.entry = std::move(entry);
  return true;
}

bool Syncer::IsSessionReady() {
  if (context.entry.pause) return false;
  if (EventManager::getInstance().GetPendingServerEvent(context.entry.sess_id) > 0) {
    SYNCER_DEBUG("session '%llu' still has server events in event queue.\n", context.entry.sess_id);
    return false;
  }
  return true;
}

int Syncer::PullEvent() {
  unapplied_before_ =
      EventManager::getInstance().GetUnappliedServerEventCount(context.entry.sess_id);
  acl_rescan_ = false;
  PObject response;
  int code = PullEventFromServer(response);
  if (code >= 0) code = ReloadGroupSet(response);
  if (code >= 0) code = ReloadServerFilter(response);
  if (code >= 0) code = ProcessEvents(response);
  return code;
}

int Syncer::ProcessEvents(const PObject& response) {
  const std::uint64_t next = response["next_sync_id"].asUInt64();
  const bool caught_up = next == context.sync_id;
  if (!caught_up) {
    uptodate_set.erase(context.entry.sess_id);
    QueueEvents(response["event_list"]);
  }
  if (!caught_up || acl_rescan_) {
    WaitEnd end = WaitEnd::LEFT;
    const int code = WaitForWorkers(end);
    if (code < 0) {
      SYNCER_NOTE("ProcessEvents: interrupted while waiting events being done ...\n");
      return code;
    }
    if (end == WaitEnd::LEFT) return 0;
    if (const int finished = FinishBatch(next); finished < 0) return finished;
  }
  return caught_up ? FinishCaughtUp() : 0;
}

void Syncer::QueueEvents(const PObject& event_list) {
  FileEventDB& db = *context.entry.event_db;
  for (const PObject& record : event_list.asArray()) {
    switch (PushEvent(context.entry, record)) {
      case 0:
        SYNCER_INFO("Fake server modify event [%s]\n", record.toString());
        db.rmServerFilteredEvent(FilteredEvent::FILTERED_ALL, record["path"].asString(), 0);
        break;
      case 2:
        SYNCER_INFO("Fake server delete event [%s]\n", record.toString());
        db.rmServerFilteredEvent(FilteredEvent::FILTERED_ALL, record["path"].asString(), 0);
        break;
      default:
        break;
    }
  }
}

int Syncer::FinishCaughtUp() {
  SendRescanEvent(context.entry.sess_id);
  uptodate_set.insert(context.entry.sess_id);
  SYNCER_DEBUG("session '%llu' is uptodate.\n", context.entry.sess_id);
  if (!AreAllUptodate()) return 0;
  SYNCER_DEBUG("all session is uptodate, wait for 5 seconds.\n");
  uptodate_set.clear();
  Wait(kCaughtUpSeconds);
  return 0;
}

// Forgets sessions that are gone on the way.
bool Syncer::AreAllUptodate() {
  std::vector<Registry::Entry> entries;
  Registry::getInstance().GetAll(entries);
  std::set<std::uint64_t> sessions;
  for (const Registry::Entry& entry : entries) sessions.insert(entry.sess_id);
  const auto is_gone = [&sessions](const auto& item) { return !sessions.contains(item); };
  const auto has_gone = [&sessions](const auto& item) { return !sessions.contains(item.first); };
  std::erase_if(uptodate_set, is_gone);
  std::erase_if(unapplied_batches_, has_gone);
  std::erase_if(asked_profiles_, has_gone);
  return sessions.size() <= uptodate_set.size();
}

int Syncer::WaitForWorkers(WaitEnd& end) {
  const std::uint64_t session = context.entry.sess_id;
  Registry::Entry entry;
  end = WaitEnd::LEFT;
  if (!FindSession(context.entry, entry)) {
    SYNCER_WARNING("session %llu is removed, events might be dropped\n", session);
    return 0;
  }
  std::int32_t before = INT32_MAX;
  std::int64_t progress_at = 0;
  for (;;) {
    // A local change that took an event's place may turn out to have nothing to send.
    EventManager& manager = EventManager::getInstance();
    const std::int32_t pending = manager.GetPendingServerEvent(session);
    if (pending <= 0 && !manager.IsReplacedServerEventPending(session)) break;
    // Events may bring new ones with them, so each fall counts, from wherever.
    if (pending < before) progress_at = Now();
    before = pending;
    if (Now() - progress_at >= kStuckMilliseconds) {
      SYNCER_NOTE("session %llu: %d server events do not come to an end\n", session, pending);
      return ErrorCodes::ERR_INT;
    }
    SYNCER_DEBUG("Wait for workers (still %d pending server events).\n", pending);
    WaitForLast(session);
    const State state = GetState();
    if (state == STOP) {
      SYNCER_WARNING("Program stopped while syncing files ...\n");
      return ErrorCodes::ERR_INT;
    }
    if (state == PAUSE) {
      WaitPaused();
      progress_at = Now();
    }
    if (!FindSession(context.entry, entry)) {
      SYNCER_WARNING("session %llu is removed while there are events\n", session);
      return 0;
    }
    if (entry.pause) {
      SYNCER_NOTE("session %llu is paused while there are events\n", session);
      return 0;
    }
  }
  end = WaitEnd::APPLIED;
  return 0;
}

// A second, but no longer than until the last event has come to its end: a long list of changes
// comes in many batches.
void Syncer::WaitForLast(std::uint64_t session) {
  for (int step = 0; step < kStepsPerSecond && GetState() == RUN; ++step) {
    platform::clock().Sleep(kStep);
    if (EventManager::getInstance().GetPendingServerEvent(session) <= 0) return;
  }
}

// Whether the batch counts as applied; a pull that lost something is repeated, but not for ever.
bool Syncer::MayStore() {
  const std::uint64_t session = context.entry.sess_id;
  if (EventManager::getInstance().GetUnappliedServerEventCount(session) == unapplied_before_) {
    unapplied_batches_.erase(session);
    return true;
  }
  UnappliedBatch& batch = unapplied_batches_[session];
  if (batch.sync_id != context.sync_id) batch = {context.sync_id, 0};
  if (++batch.count <= kUnappliedTries) return false;
  SYNCER_WARNING("session %llu: some server events since %llu could not be applied\n", session,
                 context.sync_id);
  unapplied_batches_.erase(session);
  return true;
}

int Syncer::FinishBatch(std::uint64_t next) {
  if (!RefreshEntry()) return 0;
  if (!MayStore()) return ErrorCodes::ERR_SERVER;
  FileEventDB& db = *context.entry.event_db;
  if (next != context.sync_id) {
    SYNCER_INFO("syncer set sync_id to %llu\n", next);
    const int stored = db.replaceSyncId(context.sync_id, times_sync_id_set_, next);
    if (stored < 0) return ErrorCodes::ERR_SYS;
    if (stored == 0) {
      SYNCER_NOTE("session %llu: another sync_id was set meanwhile\n", context.entry.sess_id);
      return 0;
    }
    context.sync_id = next;
  }
  if (acl_rescan_) db.rmConfigStr("acl_rescan");
  return 0;
}

void Syncer::SendRescanEvent(std::uint64_t session) {
  // A session that took the place of this one waits for its own turn.
  if (!RefreshEntry()) return;
  bool merge = false;
  {
    const MutexLock lock(rescan_events_lock);
    const auto found = rescan_events.find(session);
    if (found != rescan_events.end()) {
      merge = found->second;
      rescan_events.erase(found);
    } else if (!RescanRequests::getInstance().Take(session)) {
      return;
    }
  }
  SYNCER_INFO("session #%llu is up-to-date, issue rescan\n", session);
  replace_filter_(context.entry, merge);
  EventManager::getInstance().IssueRescan(session, "", merge);
}

int Syncer::HandleError(int code) {
  if (code > 0 || code <= -ErrorCodes::ERR_MAX) {
    SYNCER_CRIT("Syncer: unknown error code [%d].\n", code);
    return -1;
  }
  SYNCER_DEBUG("Syncer: HandleError: %d.\n", code);
  const SyncerErrors::_error_handler handler = SyncerErrors::Find(code);
  switch (handler.err_type) {
    case SyncerErrors::ERR_SESSION:
      UI_IPC::ReportSessionErrorToUI(context.entry.conn_id, context.entry.sess_id, code);
      break;
    case SyncerErrors::ERR_CONNECTION:
      UI_IPC::ReportConnectionErrorToUI(context.entry.conn_id, context.entry.sess_id, code);
      break;
    case SyncerErrors::ERR_NONE:
      SYNCER_DEBUG("No type for error: %d\n", code);
      break;
  }
  if (handler.action < 0) SYNCER_CRIT("Syncer: unexpected error code [%d].\n", code);
  return handler.action;
}

}  // namespace tolven

#include "client/core/worker.h"

#include <utility>

#include "client/core/connection-manager.h"
#include "client/core/registry.h"
#include "client/core/worker-log.h"
#include "platform/clock.h"

namespace tolven {

Worker::Worker(const AddHandlers& add_handlers, EventManager& manager) : manager_(manager) {
  if (add_handlers) add_handlers(dispatcher);
}

// The second store wins over a clearing that read the state before it was set.
int Worker::Stop() {
  abort_flag.store(1);
  const int result = Task::Stop();
  abort_flag.store(1);
  return result;
}

int Worker::SetAbort(bool abort) {
  abort_flag.store(abort ? 1 : 0);
  return 0;
}

void Worker::SetAbort(const AbortFilter& filter, const shared_pointer<Barrier>& barrier) {
  {
    MutexLock lock(obj_lock);
    if (!IsMatched(filter)) return;
  }
  // Registered before the worker can see the barrier and signal.
  if (barrier != nullptr) barrier->Increase(GetId());
  {
    MutexLock lock(obj_lock);
    if (IsMatched(filter)) {
      abort_flag.store(1);
      if (barrier != nullptr) abort_done_barrier = barrier;
      return;
    }
  }
  // It let go of the event meanwhile.
  if (barrier != nullptr) barrier->Signal(GetId());
}

bool Worker::IsMatched(const AbortFilter& filter) const {
  return worker_status.is_abortable && (filter.MatchSession(worker_status.session_id) ||
                                        filter.MatchConnection(worker_status.connection_id));
}

void Worker::GetWorkingStatus(std::uint64_t& session, ustring& path, WorkingType& type,
                              std::uint64_t& sent, std::uint64_t& total) {
  WorkerStatus status;
  TransferStatus transfer;
  if (GetState() == RUN) {
    status = GetWorkerStatus();
    transfer = context.GetTransferStatus();
  }
  session = status.session_id;
  path = std::move(status.path);
  type = status.working_type;
  sent = transfer.GetSentSize();
  total = transfer.GetTotalSize();
}

WorkerStatus Worker::GetWorkerStatus() const {
  MutexLock lock(obj_lock);
  return worker_status;
}

void Worker::DoTask() {
  WORKER_DEBUG("Worker (%d) is up.\n", GetId());
  for (;;) {
    NotifyAbortDone();
    const State state = GetState();
    if (state == STOP) break;
    if (state == PAUSE) {
      WaitPaused();
    } else {
      Round();
    }
  }
  // Nobody may wait for a worker that is gone, nor may an event stay with it.
  NotifyAbortDone();
  if (context.GetEvent().isValid()) {
    RedoEvent();
    Release();
  }
  WORKER_DEBUG("Worker (%d) is down.\n", GetId());
}

void Worker::Round() {
  const std::uint64_t seen = manager_.GetWorkCount();
  if (GetEvent() < 0) {
    manager_.WaitForWork(this, seen, 1);
    return;
  }
  if (UpdateContext() < 0) return;
  const int err = ProcessEvent();
  ErrorAction action = controller.GetErrorAction();
  if (action == ACTION_DEFAULT) action = HandleError(err);
  Settle(action, err);
}

void Worker::Settle(ErrorAction action, int err) {
  switch (action) {
    case ACTION_DEFAULT:
    case ACTION_RETRY:
      HandleErrorCallback(false);
      Wait(3);
      return;
    case ACTION_RETURN_EVENT:
      RedoEvent();
      HandleErrorCallback(false);
      Wait(2);
      break;
    case ACTION_DONE:
      // A refused change leaves what it took the place of unapplied.
      if (err != 0 && context.GetEvent().hasReplacedServerEvent()) {
        manager_.CountUnappliedServerEvent(context.GetEvent().m_sess_id);
      }
      if (DoneEvent() < 0) return;
      HandleErrorCallback(true);
      break;
  }
  Release();
}

void Worker::NotifyAbortDone() {
  {
    MutexLock lock(obj_lock);
    if (abort_done_barrier == nullptr) return;
  }
  if (context.GetEvent().isValid()) {
    RedoEvent();
    Release();
  }
  shared_pointer<Barrier> barrier;
  {
    MutexLock lock(obj_lock);
    barrier.swap(abort_done_barrier);
  }
  barrier->Signal(GetId());
}

int Worker::GetEvent() {
  if (context.GetEvent().isValid()) {
    WORKER_INFO("Worker (%d): Current event is still valid '%s', do it again.\n", GetId(),
                context.GetEvent().toString());
    return 0;
  }
  Event event;
  if (PullEvent(event) != 0) {
    Release();
    return -1;
  }
  context.SetEvent(event);
  WORKER_DEBUG("Worker (%d): Pull next event: '%s'.\n", GetId(), event.toString());
  return 0;
}

// Asks every session before it gives up: what one waits for is nothing to the others.
int Worker::PullEvent(Event& event) {
  for (std::size_t left = manager_.GetReadyCount(); left > 0; --left) {
    if (manager_.PullEvent(this, event) == 0) return 0;
  }
  return -1;
}

int Worker::UpdateContext() {
  const std::uint64_t session = context.GetEvent().m_sess_id;
  Registry::Entry entry;
  if (Registry::getInstance().Find(session, entry) != 1) {
    WORKER_NOTE("Registry Entry (session id: %llu) is removed.\n", session);
    DropEvent();
    return -1;
  }
  Connection connection;
  if (ConnectionManager::getInstance().get(entry.conn_id, connection) != 0) {
    WORKER_NOTE("Connection (connection id: %llu) is removed.\n", entry.conn_id);
    context.SetEntry(entry);
    DropEvent();
    return -1;
  }
  context.SetEntry(entry);
  context.SetConnection(connection);
  context.Update();
  SetWorkerStatus();
  return 0;
}

// Ends the event, and what arrived on its path meanwhile, without having applied it.
void Worker::DropEvent() {
  // What an earlier event left there is not to be told of this one.
  controller.Reset();
  do {
    const Event& event = context.GetEvent();
    if (event.isServerEvent() || event.hasReplacedServerEvent()) {
      manager_.CountUnappliedServerEvent(event.m_sess_id);
    }
  } while (DoneEvent() < 0);
  Release();
}

int Worker::ProcessEvent() {
  WORKER_DEBUG("Worker (%d): Start process event '%s'.\n", GetId(), context.GetEvent().toString());
  {
    // A request to let go that arrived by now keeps its flag.
    MutexLock lock(obj_lock);
    if (abort_done_barrier == nullptr) abort_flag.store(0);
  }
  if (GetState() == STOP) SetAbort(true);
  controller.Reset();
  if (!context.IsRecordKnown()) return ErrorCodes::ERR_SYS;
  return dispatcher.Dispatch(context, controller);
}

int Worker::DoneEvent() {
  ProcessUINotification();
  Event event = context.GetEvent();
  if (manager_.DoneEvent(this, event) < 0) {
    WORKER_DEBUG("Worker (%d): Processing event '%s' is not yet done.\n", GetId(),
                 context.GetEvent().toString());
    context.SetEvent(event);
    return -1;
  }
  UpdateFileStatus();
  WORKER_DEBUG("Worker (%d): Processing event '%s' is done.\n", GetId(),
               context.GetEvent().toString());
  return 0;
}

void Worker::RedoEvent() {
  if (manager_.RedoEvent(this, context.GetEvent()) != 0) {
    WORKER_ERROR("Worker (%d): Failed to redo event '%s'.\n", GetId(),
                 context.GetEvent().toString());
  }
}

void Worker::Release() {
  context.Clear();
  ClearWorkerStatus();
}

void Worker::SetWorkerStatus() {
  const Registry::Entry& entry = context.GetEntry();
  const std::int64_t now = platform::clock().WallSeconds();
  MutexLock lock(obj_lock);
  worker_status.session_id = entry.sess_id;
  worker_status.connection_id = entry.conn_id;
  worker_status.path = context.GetPath();
  worker_status.working_type = W_TYPE_NONE;
  worker_status.start_time = now;
}

void Worker::ClearWorkerStatus() {
  MutexLock lock(obj_lock);
  worker_status.Clear();
}

}  // namespace tolven

// The broker between those who find changes and the tasks that apply them. It keeps the pending
// events of each session, serves the sessions in turn, and remembers which task works on what: an
// event that arrives on a path in work goes to the very task that has the path.
//
// Every operation may be called by any thread. Locks are taken in the order m_lock,
// m_pool_index_lock, then those of the tree. A push holds m_lock throughout, so what it calls out
// to (the look-up of the session, Task::SetAbort, the file status database, the reports to the UI)
// must not wait long and never call back into here.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>

#include "client/core/task.h"
#include "client/event-pool.h"
#include "client/event.h"
#include "client/work-signal.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class EventManager {
 public:
  // Gives the local folder of a session: 1, or 0 when there is no such session. It is called with
  // m_lock held.
  using FindLocalPath = std::function<int(uint64_t sess_id, ustring& local_path)>;

  struct registry_entry_t {
    Event processing;
    Event waiting;                 // the latest that arrived on that path meanwhile
    uint64_t pool_generation = 0;  // of the pool that `processing` came from
    bool is_dirty() const { return waiting.isValid(); }
  };

  // The one of the process.
  static EventManager& getInstance();

  explicit EventManager(FindLocalPath find_local_path = nullptr);
  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;

  // Until this is set no session is known.
  void SetSessionLookup(FindLocalPath find_local_path) EXCLUDES(m_lock);

  // Queue an event, whose m_sess_id and m_path must be set; "" is the session's root like "/". A
  // failure is logged and the event lost.
  void PushLocalEvent(const Event& event) EXCLUDES(m_lock, m_pool_index_lock);
  void PushServerEvent(const Event& event) EXCLUDES(m_lock, m_pool_index_lock);
  // Queue a comparison of a directory with the database, or a walk that only reports what it finds.
  void IssueRescan(uint64_t sess_id, const ustring& path, bool merge)
      EXCLUDES(m_lock, m_pool_index_lock);
  void IssueExpand(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock, m_pool_index_lock);

  // The next event, which `task` has to end with DoneEvent or RedoEvent before it pulls again. -1:
  // the session whose turn it was has none that may go; another may have one.
  int PullEvent(Task* task, Event& out) EXCLUDES(m_lock);
  // How many sessions there are to ask, each by a call of its own.
  std::size_t GetReadyCount() EXCLUDES(m_lock);
  // 0: ended, or `task` has none. -1: `inout` became what arrived meanwhile, for this task.
  int DoneEvent(Task* task, Event& inout) EXCLUDES(m_lock);
  // Puts an event back to wait. In either case `task` has none afterwards. -1: it could not be put
  // back, as when its session's events were cleared.
  int RedoEvent(Task* task, const Event& event) EXCLUDES(m_lock);

  // For a task whose PullEvent gave nothing: sleeps until an event was pushed or ended since
  // `seen`, which is what GetWorkCount() gave before that pull, at most for `seconds`. 0, or -1
  // once the task's state is not RUN, which is looked at as often as in Task::Wait.
  uint64_t GetWorkCount() { return work_.Count(); }
  int WaitForWork(Task* task, uint64_t seen, unsigned seconds);

  // Changes that wait or are with a task; 0 for an unknown session. Neither waits for a push.
  int32_t GetPendingServerEvent(uint64_t sess_id) EXCLUDES(m_pool_index_lock);
  int32_t GetAllPendingEventCount(uint64_t sess_id) EXCLUDES(m_pool_index_lock);

  // Whether a removal of `path`, or of a folder above it, that was made here waits or is with a
  // task: that the path is gone then says nothing more.
  bool IsLocalRemovalPending(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock);
  // The same for a removal of the server.
  bool IsServerRemovalPending(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock);

  // Whether a change of the server for the file `path` waits or is with a task.
  bool IsServerFileEventPending(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock);
  // Whether a change of the server for something below `path` waits or is with a task.
  bool IsServerEventPendingBelow(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock);
  // The same, and whether one of a file waits for the event of the folder `path`, or the other way
  // round.
  bool IsServerEventBehind(uint64_t sess_id, const ustring& path) EXCLUDES(m_lock);

  // Whether a change made here is pending that took the place of one of the server's, which it may
  // turn out to have done in vain. Looks at everything that is pending.
  bool IsReplacedServerEventPending(uint64_t sess_id) EXCLUDES(m_lock);

  // How many server events of the session ended without being applied, ever: those that clearing
  // dropped, and those that were counted. The number outlives the session. A task counts an event
  // before it ends it, so that who sees no pending event sees the count of the last one.
  void CountUnappliedServerEvent(uint64_t sess_id) EXCLUDES(m_pool_index_lock);
  uint64_t GetUnappliedServerEventCount(uint64_t sess_id) EXCLUDES(m_pool_index_lock);

  // Tell the file status database that a path is pending, or no longer. `path` is the full local
  // one, with either separator. 0 or -1.
  static int SyncingEvent2FStatDB(const ustring& path, bool isDir);
  static int SyncedEvent2FStatDB(const ustring& path);

  void Clear() EXCLUDES(m_lock, m_pool_index_lock);
  // Drops what is pending for a session. A task that works for it ends its event as usual.
  void ClearSessionEventPool(uint64_t sess_id) EXCLUDES(m_lock, m_pool_index_lock);

 private:
  enum class Side { LOCAL, SERVER };

  bool IsRemovalWithTask(uint64_t sess_id, const ustring& path, bool server) REQUIRES(m_lock);
  void Push(const Event& event, Side side) EXCLUDES(m_lock, m_pool_index_lock);
  void PushLocked(const Event& event, Side side) REQUIRES(m_lock) EXCLUDES(m_pool_index_lock);
  int DoneLocked(Task* task, Event& inout) REQUIRES(m_lock);
  void NoteArrival(const Event& event, Side side) REQUIRES(m_lock);
  event_pool& PoolForPush(uint64_t sess_id, const ustring& local_path) REQUIRES(m_lock)
      EXCLUDES(m_pool_index_lock);
  // Null when the pool is gone or another one took its place.
  event_pool* FindPool(const registry_entry_t& entry) REQUIRES(m_lock);
  event_pool* FindPool(uint64_t sess_id) REQUIRES(m_lock);
  void MakeReady(event_pool& pool) REQUIRES(m_lock);
  int RedoLocked(Task* task, const Event& event) REQUIRES(m_lock);
  void CountDropped(uint64_t sess_id, const event_pool& pool) REQUIRES(m_pool_index_lock);

  Mutex m_lock ACQUIRED_BEFORE(m_pool_index_lock);
  FindLocalPath find_local_path_ GUARDED_BY(m_lock);
  std::map<Task*, registry_entry_t> registry GUARDED_BY(m_lock);
  std::map<uint64_t, std::unique_ptr<event_pool>> pool_index GUARDED_BY(m_lock);
  std::deque<event_pool*> ready_queue GUARDED_BY(m_lock);
  uint64_t last_generation_ GUARDED_BY(m_lock) = 0;

  // For the counts alone, so that asking for them never waits behind a push.
  Mutex m_pool_index_lock;
  std::map<uint64_t, const event_pool*> pool_counter_index GUARDED_BY(m_pool_index_lock);
  std::map<uint64_t, uint64_t> unapplied_ GUARDED_BY(m_pool_index_lock);

  // Given while no other lock is held, so that who wakes need not wait again at once.
  WorkSignal work_;
};

}  // namespace tolven

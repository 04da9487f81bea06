// Takes one event at a time from the event manager, binds it to its session and connection, has it
// handled, and settles what becomes of it: finished, tried again, or back into the queue. Each
// worker has handlers of its own.
//
// The worker's thread owns the context, the dispatcher and the controller. What other threads
// touch is the abort flag, which is atomic, and the status and the barrier under obj_lock, a leaf
// that is held for the access itself and never over a call.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "client/core/event-context.h"
#include "client/core/event-dispatcher.h"
#include "client/core/interruptible-task.h"
#include "client/core/worker-controller.h"
#include "client/core/worker-status.h"
#include "client/event-manager.h"
#include "lib/file-status-db.h"
#include "platform/mutex.h"

namespace tolven {

class Worker : public InterruptibleTask {
 public:
  // Adds handlers and filters to the dispatcher of a new worker.
  using AddHandlers = std::function<void(EventDispatcher&)>;

  explicit Worker(const AddHandlers& add_handlers,
                  EventManager& manager = EventManager::getInstance());

  // Running transfers end early.
  int Stop() override EXCLUDES(obj_lock);
  // Sets or clears the abort flag alone; may be called with any lock held.
  int SetAbort(bool abort) override;
  // One caller at a time, which waits for `barrier` before the next call. The worker counts as
  // having let go at the head of its loop, after the event has gone back into the queue. A null
  // `barrier` only aborts.
  void SetAbort(const AbortFilter& filter, const shared_pointer<Barrier>& barrier) override
      EXCLUDES(obj_lock);
  void GetWorkingStatus(std::uint64_t& session, ustring& path, WorkingType& type,
                        std::uint64_t& sent, std::uint64_t& total) override EXCLUDES(obj_lock);
  WorkerStatus GetWorkerStatus() const EXCLUDES(obj_lock);
  void DoTask() override EXCLUDES(obj_lock);

 private:
  friend class WorkerController;

  // worker.cpp: the loop
  void Round();
  void NotifyAbortDone() EXCLUDES(obj_lock);
  int GetEvent();
  int PullEvent(Event& event);
  int UpdateContext();
  void DropEvent();
  int ProcessEvent() EXCLUDES(obj_lock);
  void Settle(ErrorAction action, int err);
  int DoneEvent();
  void RedoEvent();
  void Release();
  bool IsMatched(const AbortFilter& filter) const REQUIRES(obj_lock);
  void SetWorkerStatus() EXCLUDES(obj_lock);
  void ClearWorkerStatus() EXCLUDES(obj_lock);

  // worker-outcome.cpp: what a result means, and who is told
  ErrorAction HandleError(int err) EXCLUDES(obj_lock);
  void HandleErrorCallback(bool at_end);
  void ReportErorrToUI(int err, int type);
  void ProcessUINotification();
  void NotifyUI(UINotificationType type);
  void UpdateFileStatus();
  void UpdateFileStatus(int status, const std::vector<FileStatusInfo>& list);
  void PrepareFileStatusList(int status, std::vector<FileStatusInfo>& list);
  Event EventForUI(Event::Type type) const;

  mutable Mutex obj_lock;
  shared_pointer<Barrier> abort_done_barrier GUARDED_BY(obj_lock);
  WorkerStatus worker_status GUARDED_BY(obj_lock);
  std::atomic<int> abort_flag{0};

  EventManager& manager_;
  EventContext context;
  EventDispatcher dispatcher;
  WorkerController controller{this};
};

}  // namespace tolven

// What is done to one path for one kind of event. An EventDispatcher owns the handlers of one
// worker and binds them to the event's context before each call, so a handler is used by one thread
// and needs no lock. Nothing of an event should stay in it when Handle() returns.
#pragma once

#include <atomic>
#include <memory>

#include "client/core/error-action.h"
#include "client/core/error-callback.h"
#include "client/core/ui-notification-type.h"
#include "client/core/worker-controller.h"
#include "client/core/working-type.h"
#include "lib/error-table.h"

namespace tolven {

class EventContext;

class EventHandler : public ErrorCodes {
 public:
  EventHandler() = default;
  virtual ~EventHandler() = default;
  EventHandler(const EventHandler&) = delete;
  EventHandler& operator=(const EventHandler&) = delete;

  // 0 or an error code; together with the action that was set it decides what becomes of the event.
  virtual int Handle() = 0;
  // Whether the event is this handler's.
  virtual bool FilterEvent() = 0;

  EventContext& GetContext() const { return *context_; }
  void SetContext(EventContext* context) { context_ = context; }
  WorkerController& GetWorkerController() const { return *controller_; }
  void SetWorkerController(WorkerController* controller) { controller_ = controller; }

  // See WorkerController.
  int GetWorkerId() const { return controller_->GetId(); }
  std::atomic<int>* GetAbortFlag() const { return controller_->GetAbortFlag(); }
  bool IsAbortable() const { return controller_->IsAbortable(); }
  void SetAbortable(bool abortable) { controller_->SetAbortable(abortable); }
  bool IsPaused() const { return controller_->IsPaused(); }
  UINotificationType GetUINotification() const { return controller_->GetUINotification(); }
  void SetUINotification(UINotificationType type) { controller_->SetUINotification(type); }
  ErrorAction GetErrorAction() const { return controller_->GetErrorAction(); }
  void SetErrorAction(ErrorAction action, std::unique_ptr<ErrorCallback> callback = nullptr) {
    controller_->SetErrorAction(action, std::move(callback));
  }
  // Leaves a callback and the action as it is.
  void SetCallback(std::unique_ptr<ErrorCallback> callback) {
    SetErrorAction(GetErrorAction(), std::move(callback));
  }
  WorkingType GetWorkingType() const { return controller_->GetWorkingType(); }
  void SetWorkingType(WorkingType type) { controller_->SetWorkingType(type); }

 private:
  EventContext* context_ = nullptr;
  WorkerController* controller_ = nullptr;
};

// Asked before any handler, whatever the event. Here FilterEvent() tells whether the event is to be
// dropped, which counts as having finished it unless the filter sets another action.
class EventFilter : public EventHandler {
 public:
  int Handle() override { return 0; }
  bool FilterEvent() override = 0;
};

}  // namespace tolven

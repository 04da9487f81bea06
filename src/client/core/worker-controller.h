// What an event handler may ask and tell of the worker that runs it. Belongs to the worker and to
// its thread.
#pragma once

#include <atomic>
#include <memory>

#include "client/core/error-action.h"
#include "client/core/error-callback.h"
#include "client/core/ui-notification-type.h"
#include "client/core/working-type.h"

namespace tolven {

class Worker;

class WorkerController {
 public:
  explicit WorkerController(Worker* worker) : worker_(worker) {}

  int GetId() const;
  // Not 0 once transfers have to end. Lives as long as the worker; never null.
  std::atomic<int>* GetAbortFlag() const;
  // Whether the event may be taken from the handler by interrupting it.
  bool IsAbortable() const;
  void SetAbortable(bool abortable);
  WorkingType GetWorkingType() const;
  void SetWorkingType(WorkingType type);
  bool IsPaused() const;

  ErrorAction GetErrorAction() const { return error_action_; }
  ErrorCallback* GetErrorCallback() const { return error_callback_.get(); }
  // Anything but ACTION_DEFAULT goes before what the worker makes of the handler's result. Deletes
  // an earlier callback.
  void SetErrorAction(ErrorAction action, std::unique_ptr<ErrorCallback> callback = nullptr);
  UINotificationType GetUINotification() const { return notify_type_; }
  void SetUINotification(UINotificationType type) { notify_type_ = type; }

  void Reset();
  void ResetErrorCallback() { error_callback_.reset(); }

 private:
  Worker* const worker_;
  ErrorAction error_action_ = ACTION_DEFAULT;
  std::unique_ptr<ErrorCallback> error_callback_;
  UINotificationType notify_type_ = UI_NOTIFY_NONE;
};

}  // namespace tolven

#include "client/core/worker-controller.h"

#include <utility>

#include "client/core/worker.h"

namespace tolven {

int WorkerController::GetId() const { return worker_->GetId(); }

std::atomic<int>* WorkerController::GetAbortFlag() const { return &worker_->abort_flag; }

bool WorkerController::IsAbortable() const {
  MutexLock lock(worker_->obj_lock);
  return worker_->worker_status.is_abortable;
}

void WorkerController::SetAbortable(bool abortable) {
  MutexLock lock(worker_->obj_lock);
  worker_->worker_status.is_abortable = abortable;
}

WorkingType WorkerController::GetWorkingType() const {
  MutexLock lock(worker_->obj_lock);
  return worker_->worker_status.working_type;
}

void WorkerController::SetWorkingType(WorkingType type) {
  MutexLock lock(worker_->obj_lock);
  worker_->worker_status.working_type = type;
}

bool WorkerController::IsPaused() const { return worker_->GetState() == Task::PAUSE; }

void WorkerController::SetErrorAction(ErrorAction action, std::unique_ptr<ErrorCallback> callback) {
  error_action_ = action;
  error_callback_ = std::move(callback);
}

void WorkerController::Reset() {
  error_action_ = ACTION_DEFAULT;
  notify_type_ = UI_NOTIFY_NONE;
  error_callback_.reset();
}

}  // namespace tolven

// The table of tasks.
#include "client/core/app.h"
#include "client/core/interruptible-task.h"
#include "client/core/settings.h"
#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";

// The first worker is never paused or interrupted, so that one always goes on with the work.
constexpr std::size_t kFirstPaused = TASK_WORKER + 1;

}  // namespace

int TolvenhubApp::init_members() { return init_tasks() < 0 ? -1 : 0; }

void TolvenhubApp::destroy_members() { destroy_tasks(); }

int TolvenhubApp::init_tasks() {
  task_ = make_tasks_(Settings::getInstance().getWorkerCount());
  if (task_.empty()) return -1;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): totally %lu tasks\n", __LINE__,
                 task_.size());
  return 0;
}

void TolvenhubApp::destroy_tasks() {
  for (auto& task : task_) task.reset();
  task_.clear();
}

void TolvenhubApp::start_all() {
  for (const auto& task : task_) task->Run();
}

// All are told first, so that they wind down side by side.
void TolvenhubApp::stop_all() {
  for (const auto& task : task_) task->Stop();
  for (const auto& task : task_) task->Join();
}

void TolvenhubApp::pause_all() {
  for (const auto& task : task_) task->Pause();
}

void TolvenhubApp::resume_all() {
  for (const auto& task : task_) task->Resume();
}

void TolvenhubApp::pause_worker() {
  for (std::size_t i = kFirstPaused; i < task_.size(); ++i) task_[i]->Pause();
}

void TolvenhubApp::resume_worker() {
  for (std::size_t i = kFirstPaused; i < task_.size(); ++i) task_[i]->Resume();
}

void TolvenhubApp::interrupt_worker(const AbortFilter& filter) {
  const auto barrier = std::make_shared<Barrier>();
  for (std::size_t i = kFirstPaused; i < task_.size(); ++i) {
    auto* const worker = dynamic_cast<InterruptibleTask*>(task_[i].get());
    if (worker != nullptr) worker->SetAbort(filter, barrier);
  }
  barrier->Wait();
}

}  // namespace tolven

#include "client/core/task.h"

#include <atomic>
#include <chrono>
#include <system_error>

#include "platform/clock.h"

namespace tolven {
namespace {

constexpr std::chrono::milliseconds kStep{100};
constexpr unsigned kStepsPerSecond = 10;

}  // namespace

int Task::Pause() {
  SetState(PAUSE);
  return 0;
}

int Task::Resume() {
  SetState(RUN);
  return 0;
}

int Task::Stop() {
  SetState(STOP);
  return 0;
}

int Task::Run() {
  MutexLock lock(m_state_mutex);
  if (m_task_id >= 0) return -1;
  m_state = RUN;
  try {
    m_tid = std::thread(&Task::Exec, this);
  } catch (const std::system_error&) {
    m_state = STOP;
    return -1;
  }
  m_task_id = CreateTaskId();
  return 0;
}

int Task::Join() {
  std::thread thread;
  {
    MutexLock lock(m_state_mutex);
    // A task that joined itself would never end.
    if (!m_tid.joinable() || m_tid.get_id() == std::this_thread::get_id()) return -1;
    thread.swap(m_tid);
  }
  thread.join();
  MutexLock lock(m_state_mutex);
  m_task_id = -1;
  return 0;
}

int Task::Wait(unsigned seconds) {
  for (unsigned second = 0; second < seconds; ++second) {
    for (unsigned step = 0; step < kStepsPerSecond; ++step) {
      if (GetState() != RUN) return -1;
      platform::clock().Sleep(kStep);
    }
  }
  return 0;
}

void Task::WaitPaused() {
  for (unsigned step = 0; step < kStepsPerSecond && GetState() == PAUSE; ++step) {
    platform::clock().Sleep(kStep);
  }
}

Task::State Task::GetState() const {
  MutexLock lock(m_state_mutex);
  return m_state;
}

int Task::GetId() const {
  MutexLock lock(m_state_mutex);
  return m_task_id;
}

void Task::SetState(State state) {
  MutexLock lock(m_state_mutex);
  m_state = state;
}

void* Task::Exec(void* self) {
  Task* const task = static_cast<Task*>(self);
  task->DoTask();
  task->SetState(STOP);
  return nullptr;
}

int Task::CreateTaskId() {
  static std::atomic<int> task_count{0};
  return task_count++;
}

}  // namespace tolven

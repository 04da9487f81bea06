#include "client/core/barrier.h"

#include "lib/log.h"

namespace tolven {

void Barrier::Wait() {
  MutexLock lock(mutex_);
  while (count_ > 0) cond_.Wait(mutex_);
}

void Barrier::Increase(int id) {
  Logger::LogMsg(Logger::L_INFO, "worker_debug",
                 L"[INFO] barrier(%d): Worker (%d): Register barrier.\n", __LINE__, id);
  MutexLock lock(mutex_);
  ++count_;
}

void Barrier::Signal(int id) {
  Logger::LogMsg(Logger::L_INFO, "worker_debug",
                 L"[INFO] barrier(%d): Worker (%d): Reach barrier.\n", __LINE__, id);
  MutexLock lock(mutex_);
  --count_;
  cond_.NotifyAll();
}

}  // namespace tolven

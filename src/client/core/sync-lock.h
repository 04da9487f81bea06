#pragma once

#include "platform/mutex.h"

namespace tolven {

// A mutex that is locked and unlocked by hand; both return 0.
class CAPABILITY("mutex") SyncLock {
 public:
  int Lock() ACQUIRE() {
    m_mutex.lock();
    return 0;
  }
  int Unlock() RELEASE() {
    m_mutex.unlock();
    return 0;
  }

 private:
  std::mutex m_mutex;
};

// Holds a SyncLock for a scope.
class SCOPED_CAPABILITY SyncMutex {
 public:
  explicit SyncMutex(SyncLock& lock) ACQUIRE(lock) : lock_(lock) { lock.Lock(); }
  ~SyncMutex() RELEASE() { lock_.Unlock(); }
  SyncMutex(const SyncMutex&) = delete;
  SyncMutex& operator=(const SyncMutex&) = delete;

 private:
  SyncLock& lock_;
};

}  // namespace tolven

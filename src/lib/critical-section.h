// A lock that is taken and given back in the middle of a scope, and given back at its end at the
// latest. Belongs to one thread.
#pragma once

#include "platform/mutex.h"

namespace tolven {

class CriticalSection {
 public:
  explicit CriticalSection(Mutex* mutex) : mutex_(mutex) {}  // null: does nothing
  // The file-lock form: there are no such locks here, so it never holds one.
  explicit CriticalSection(int fd) { held_ = lock(fd) == 0; }
  ~CriticalSection() { end(); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  // Each does nothing when the lock is already in that state.
  void start() NO_THREAD_SAFETY_ANALYSIS;
  void end() NO_THREAD_SAFETY_ANALYSIS;
  bool held() const { return held_; }

  static int lock(int) { return -1; }
  static int unlock(int) { return -1; }

 private:
  Mutex* mutex_ = nullptr;
  bool held_ = false;
};

}  // namespace tolven

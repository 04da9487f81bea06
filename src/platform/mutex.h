// std::mutex with the annotations that clang's -Wthread-safety checks: a field marked
// GUARDED_BY(mutex_) can only be touched while mutex_ is held. Other compilers see plain mutexes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TOLVEN_ANNOTATION(x) __attribute__((x))
#else
#define TOLVEN_ANNOTATION(x)
#endif

#define CAPABILITY(x) TOLVEN_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TOLVEN_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TOLVEN_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) TOLVEN_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) TOLVEN_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) TOLVEN_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TOLVEN_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) TOLVEN_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) TOLVEN_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) TOLVEN_ANNOTATION(acquired_after(__VA_ARGS__))
#define RETURN_CAPABILITY(x) TOLVEN_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS TOLVEN_ANNOTATION(no_thread_safety_analysis)

namespace tolven {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class CondVar;
  std::mutex mutex_;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// A condition that goes with one Mutex. Callers loop on their predicate:
//   while (!ready) cond.Wait(mutex);
class CondVar {
 public:
  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    cond_.wait(lock);
    lock.release();
  }
  // Returns false when `timeout` passed without a notification.
  bool WaitFor(Mutex& mutex, std::chrono::milliseconds timeout) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    // wait_until on the system clock: ThreadSanitizer of this compiler does not follow the
    // steady-clock variant of the wait.
    const auto result = cond_.wait_until(lock, std::chrono::system_clock::now() + timeout);
    lock.release();
    return result == std::cv_status::no_timeout;
  }
  void NotifyOne() { cond_.notify_one(); }
  void NotifyAll() { cond_.notify_all(); }

 private:
  std::condition_variable cond_;
};

}  // namespace tolven

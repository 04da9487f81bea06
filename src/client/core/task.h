// A long-running part of the daemon with a thread of its own. Derived classes do their work in
// DoTask() and look at the state often, at the latest by sleeping in Wait() only.
//
// Run, Join and the destructor belong to the thread that controls the tasks; everything else may be
// called by any thread. A task that was run has to be stopped and joined before it is destroyed.
#pragma once

#include <thread>

#include "platform/mutex.h"

namespace tolven {

class Task {
 public:
  enum State { RUN = 0, PAUSE = 1, STOP = 2 };

  Task() = default;
  virtual ~Task() = default;
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  virtual int Init() { return 0; }
  // These set the state and return 0. The thread notices at its next look.
  virtual int Pause();
  virtual int Resume();
  virtual int Stop();
  // Asks what is being done to end early, or takes that back.
  virtual int SetAbort(bool) { return 0; }
  virtual void DoTask() {}

  // Creates the thread: 0, or -1 when there is one that was not joined yet, or none could be made.
  int Run();
  // Waits for the thread's end: 0, or -1 when there is none.
  int Join();

  State GetState() const;
  int GetId() const;  // -1 while no thread exists; no two threads of the process share one
  // Sleeps; gives up with -1 when the state is not RUN, which it looks at every 100 ms. No time at
  // all is 0 in every state.
  int Wait(unsigned seconds);
  // Sleeps for a second, or until the state is not PAUSE any more.
  void WaitPaused();
  void SetState(State state);
  void LockState() ACQUIRE(m_state_mutex) { m_state_mutex.lock(); }
  void UnlockState() RELEASE(m_state_mutex) { m_state_mutex.unlock(); }

  // The thread's function; `self` is a Task.
  static void* Exec(void* self);
  static int CreateTaskId();

 private:
  mutable Mutex m_state_mutex;  // Run() holds it to its end, so that the thread finds its id set
  State m_state GUARDED_BY(m_state_mutex) = STOP;
  int m_task_id GUARDED_BY(m_state_mutex) = -1;
  std::thread m_tid GUARDED_BY(m_state_mutex);
};

}  // namespace tolven

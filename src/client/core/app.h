// The application: the table of tasks, and the control thread, which takes the requests of the UI
// off a queue and carries them out one at a time. Every change of tasks, connections and sessions
// happens on that thread, so what it calls needs no locks against itself.
//
// The daemon is unlinked at first: there are no tasks and no environment. "link" makes both,
// "unlink" ends both; "stop" unlinks and ends the control thread.
//
// send_message may be called by any thread, run and kill by the one that owns the application. The
// rest belongs to the control thread, or to a test that has not called run().
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <thread>

#include "client/core/abort-filter.h"
#include "client/core/registry.h"
#include "client/core/task-factory.h"
#include "lib/shared-pointer.h"
#include "platform/mutex.h"
#include "protocol/object.h"

namespace tolven {

class TolvenhubApp {
 public:
  static constexpr int kVersion = 3317;

  explicit TolvenhubApp(TaskFactory make_tasks);
  ~TolvenhubApp() { kill(); }
  TolvenhubApp(const TolvenhubApp&) = delete;
  TolvenhubApp& operator=(const TolvenhubApp&) = delete;

  // Starts the control thread: 0, or -1 when it runs already or cannot be made.
  int run();
  // Returns 0 once the request has been handled; `result` then has "ack" and what the verb adds.
  // After the end of the control thread it returns at once, with `result` as it was.
  int send_message(const PObject& msg, PObject& result);
  int send_message(const PObject& msg);
  // Ends the control thread, unlinking if need be, and waits for its end.
  void kill();

  // Carries out one request. A failure is told by "error" in `result`.
  void handle_control(const PObject& msg, PObject& result);

  int init_members();
  void destroy_members();

  // The three that are for workers leave out the first one.
  void pause_all();
  void resume_all();
  void pause_worker();
  void resume_worker();
  // Returns when all workers that `filter` hit have let go of their events.
  void interrupt_worker(const AbortFilter& filter);

 private:
  // What the control thread tells a waiting sender.
  struct Completion {
    Mutex mutex;
    CondVar cond;
    bool done GUARDED_BY(mutex) = false;

    void Signal();
    void Wait();
  };
  // A request with no completion has nobody who waits for it.
  struct msg_t {
    const PObject* msg = nullptr;
    PObject* result = nullptr;
    shared_pointer<Completion> completion;
  };
  struct Verb;

  static const Verb kVerbs[];

  int do_main_loop();
  msg_t next_message();
  bool post(msg_t message);
  // Lets go of those who still wait, and takes no more requests.
  void close_queue();

  // app-verbs.cpp
  void stop(const PObject& msg, PObject& result);
  void link(const PObject& msg, PObject& result);
  void unlink(const PObject& msg, PObject& result);
  int do_link(const PObject& msg, PObject& result);
  int do_unlink();

  // app-connection.cpp
  void add_connection(const PObject& msg, PObject& result);
  void reload_connection(const PObject& msg, PObject& result);
  void remove_connection(const PObject& msg, PObject& result);

  // app-session.cpp
  void pause_session(const PObject& msg, PObject& result);
  void resume_session(const PObject& msg, PObject& result);
  void add_session(const PObject& msg, PObject& result);
  int create_registry_entry(const PObject& params, PObject& result);
  void remove_session(const PObject& msg, PObject& result);
  void remove_one_session(std::uint64_t id, PObject& result);
  void add_event(const PObject& msg, PObject& result);

  // app-reload.cpp
  void reload_session(const PObject& msg, PObject& result);
  void interrupt_session(std::uint64_t id);
  void change_permission(Registry::Entry& entry, bool read_only);
  void change_permission_mode(Registry::Entry& entry, PermissionMode mode);
  void change_recursive(Registry::Entry& entry, bool recursive);
  void remove_all_dir(const ustring& path);
  void reload_filter(Registry::Entry& entry, PObject& result);

  // app-status.cpp
  void get_status(const PObject& msg, PObject& result);
  void get_session_status(PObject& list);
  void get_connection_status(PObject& list);
  void get_worker_status(PObject& list);

  // app-tasks.cpp
  int init_tasks();
  void destroy_tasks();
  void start_all();
  void stop_all();

  // app-env.cpp
  int init_env();
  void destroy_env();
  void print_settings();

  const TaskFactory make_tasks_;
  TaskTable task_;
  bool has_env_ = false;  // init_env was called, with whatever result
  bool linked_ = false;

  std::atomic<int> app_running_{0};
  std::thread msg_thread_;

  Mutex msg_lock_;
  CondVar msg_cond_;
  std::deque<msg_t> msg_queue_ GUARDED_BY(msg_lock_);
  bool queue_closed_ GUARDED_BY(msg_lock_) = false;
};

}  // namespace tolven

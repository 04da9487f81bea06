// The resident tolvenctl of one user: it holds the port that the daemon reports to, starts the
// daemon, and serves the other tolvenctl commands, since a second process cannot listen on the same
// port.
//
// Commands reach it as one value tree for each local connection, answered by one tree:
//   {"command": "ping"}                            -> {"pid": N}
//   {"command": "verb", "request": TREE}           -> {"reply": the daemon's answer}
//   {"command": "notifications", "since": N, "wait_ms": M} -> {"next": N, "list": [...]}
//   {"command": "stop"}                            -> {"reply": {}}
// and those of its handler. A command that cannot be carried out is answered with {"error": text}.
#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ctl/home.h"
#include "ctl/notification-log.h"
#include "lib/ipc-listener.h"
#include "platform/mutex.h"
#include "platform/process.h"

namespace tolven::ctl {

class Hub {
 public:
  // Answers further commands: false for one that it does not know. Called from several threads.
  using Handler = std::function<bool(const PObject& command, PObject& answer)>;

  // `daemon` is the daemon's program.
  Hub(Home home, ustring daemon, Handler handler);
  ~Hub();
  Hub(const Hub&) = delete;
  Hub& operator=(const Hub&) = delete;

  // Listens, starts the daemon, waits until it has told its port, and links it. A daemon that an
  // earlier tolvenctl left behind is stopped first. False with one line in `error` when that fails;
  // nothing is left running then.
  bool Start(std::string& error);

  // Serves until Stop() is called, a "stop" command comes, or the daemon ends by itself. False in
  // the last case, with one line in `error`.
  bool Serve(std::string& error);
  // Ends the commands in progress, and the daemon in order.
  void End();

  // From any thread.
  void Stop() { stopping_ = true; }

  NotificationLog& notifications() { return notifications_; }
  // Sends one request to the daemon; false when it cannot be reached.
  bool CallDaemon(const PObject& request, PObject& reply);

 private:
  bool StopOrphan(std::string& error);
  bool StartDaemon(std::string& error);
  bool DaemonRuns();
  void StopDaemon();
  void ServeNotifications();
  void ServeCommands();
  void ReceiveNotification(platform::NativeSocket socket);
  void AnswerCommand(platform::NativeSocket socket);
  void Answer(const PObject& command, PObject& answer);

  const Home home_;
  const ustring daemon_;
  const Handler handler_;
  IPCListener ui_listener_, command_listener_;
  NotificationLog notifications_;
  platform::ChildProcess child_;
  bool child_running_ = false;
  int exit_status_ = 0;
  std::atomic<int> daemon_port_{0};
  std::atomic<bool> stopping_{false};  // no more commands
  std::atomic<bool> listening_{true};  // the notification thread goes on
  Mutex call_mutex_;                   // one request to the daemon at a time
  std::thread notification_thread_, command_thread_;
  std::vector<std::future<void>> commands_;  // in progress; of the command thread
};

}  // namespace tolven::ctl

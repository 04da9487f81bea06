// Keeps the daemon in line with the user's connections and sessions, and carries out the commands
// that change them, with or without a running daemon.
//
// The daemon forgets everything between two links, so after each one it is told of every connection
// and session. A connection's server is asked for its build first, and again when the daemon
// reports that the build changed. A session that cannot be added (its volume is not mounted, say)
// is tried again until it can.
//
// Commands are value trees with the member "command":
//   add        folder, or_existing, and of a server: server, token, view_id, remote_path, tls, ca,
//              insecure, host_name, proxy, tunnel; without "server" the embedded one
//   remove     session_id, dry_run
//   token      connection_id, token (the embedded server gives its own)
//   pause, resume    session_id; 0: all
//   set        session_id, key ("recursive", "read-only", "perm-mode"), value
//   filter     session_id, operation ("list", "add", "remove"), kind, value
//   sessions   (what is configured)
//   snapshot   (see Monitor)
// and are answered with "text" for a person, with what was asked for, or with "error". A change
// that has to wait until its session has settled is answered with "unsettled" beside "error", and
// changes nothing.
#pragma once

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ctl/daemon-link.h"
#include "ctl/embedded-server.h"
#include "ctl/home.h"
#include "ctl/monitor.h"
#include "ctl/notification-log.h"
#include "ctl/server-probe.h"
#include "ctl/session-store.h"
#include "platform/mutex.h"
#include "protocol/object.h"

namespace tolven::ctl {

class RuleEditor;

class Supervisor {
 public:
  explicit Supervisor(Home home);
  ~Supervisor() { Detach(); }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // Reads the configuration. False with one line in `error`.
  bool Load(std::string& error);

  // What has to be there before the daemon starts: the embedded server when a connection leads to
  // it, and the trusted certificates. False with one line in `error`.
  bool StartServices(std::string& error);

  // A daemon was linked: from now on it is kept in line, by threads of this object. `log`, which
  // outlives them, gets what it tells.
  void Attach(DaemonLink::Caller caller, NotificationLog& log);
  // Ends the threads. To be called before the daemon stops; commands change the configuration alone
  // afterwards.
  void Detach();
  // Ends waits for servers. From any thread.
  void Abort() { abort_ = 1; }
  void StopServices();

  // Carries a command out. False when there is no such command.
  bool Execute(const PObject& command, PObject& answer);

  const Monitor& monitor() const { return monitor_; }

 private:
  struct ConnectionState {
    bool is_linked = false;
    bool must_probe = true;
    bool is_probed = false;     // just now, by a thread
    std::int64_t probe_at = 0;  // monotonic milliseconds
  };
  struct SessionState {
    bool is_added = false;
    std::int64_t add_at = 0;
  };

  // --- keeping the daemon in line ---
  void Watch(NotificationLog& log);
  void KeepLinked();
  void LookAtError(const PObject& message);
  void RememberSettled();
  std::vector<ConnectionRecord> DueForProbe();
  void TakeProbe(const ConnectionRecord& asked, const ProbeResult& result);
  void AddDueSessions();
  void AddSession(const SessionRecord& session) REQUIRES(mutex_);
  // Takes a session out of the daemon, to be added anew as a merge.
  bool TakeOut(SessionRecord& session, std::string& error) REQUIRES(mutex_);
  // `extra`: further certificates; may be empty.
  bool WriteTrusted(const std::string& extra, std::string& error) REQUIRES(mutex_);
  bool StartServicesLocked(std::string& error) REQUIRES(mutex_);
  bool Save(std::string& error) REQUIRES(mutex_);
  bool is_attached() const REQUIRES(mutex_) { return daemon_ != nullptr; }

  // --- commands: false with one line in `error` ---
  bool Add(const PObject& command, PObject& answer, std::string& error);
  bool Remove(const PObject& command, PObject& answer, std::string& error);
  bool NewToken(const PObject& command, PObject& answer, std::string& error);
  bool Pause(const PObject& command, PObject& answer, std::string& error);
  bool Set(const PObject& command, PObject& answer, std::string& error);
  bool EditRules(const PObject& command, PObject& answer, std::string& error);
  bool ListSessions(const PObject& command, PObject& answer, std::string& error);

  bool ReadConnection(const PObject& command, ConnectionRecord& connection, std::string& error);
  bool CheckNewServer(const ConnectionRecord& connection, PObject& answer, std::string& error);
  bool AddTo(ConnectionRecord connection, SessionRecord session, PObject& answer,
             std::string& error) REQUIRES(mutex_);
  ConnectionRecord* FindAlike(const ConnectionRecord& connection) REQUIRES(mutex_);
  bool PrepareEmbedded(ConnectionRecord& connection, std::uint64_t& view_id, std::string& error)
      REQUIRES(mutex_);
  bool FindOne(const PObject& command, SessionRecord*& session, std::string& error)
      REQUIRES(mutex_);
  bool SetRecursive(SessionRecord& session, bool on, PObject& answer, std::string& error)
      REQUIRES(mutex_);
  bool SetReadOnly(SessionRecord& session, bool on, std::string& error) REQUIRES(mutex_);
  bool SetPermMode(SessionRecord& session, const std::string& mode, std::string& error)
      REQUIRES(mutex_);
  bool RequireSettled(const SessionRecord& session, PObject& answer, std::string& error)
      REQUIRES(mutex_);
  bool Reload(const SessionRecord& session, const PObject& changes, std::string& error)
      REQUIRES(mutex_);
  bool ApplyRules(const RuleEditor& editor, SessionRecord& session, PObject& answer,
                  std::string& error) REQUIRES(mutex_);
  std::string Describe(const SessionRecord& session) REQUIRES(mutex_);

  const Home home_;
  Monitor monitor_;
  Mutex mutex_;
  SessionStore store_ GUARDED_BY(mutex_);
  EmbeddedServer embedded_ GUARDED_BY(mutex_);
  std::unique_ptr<DaemonLink> daemon_ GUARDED_BY(mutex_);  // null: none is attached
  std::map<std::uint64_t, ConnectionState> connection_states_ GUARDED_BY(mutex_);
  std::map<std::uint64_t, SessionState> session_states_ GUARDED_BY(mutex_);
  CondVar changed_;            // something may be due
  std::atomic<int> abort_{0};  // not 0: the threads end
  std::thread watch_thread_, link_thread_;
  std::vector<std::future<void>> probes_;  // of the linking thread
};

}  // namespace tolven::ctl

// What is known of the running daemon: its last status, what it has told, and what follows from
// both. Everything that is shown comes from here, as one value tree:
//
//   sessions     each: session_id, connection_id, view_id, folder, remote_path, server, state,
//                uptodate, settled, unfinished_files, recursive, read_only, perm_mode, problem
//   connections  each: connection_id, server, status, build, problem
//   transfers    each: session_id, path, status ("uploading", "downloading"), progress, total_size,
//                speed (bytes a second)
//   waiting      each: session_id, path; a few of those that are to be moved
//   recent       each: number, time (seconds since 1970), text; newest last
//   problems     the same
//   lines        the same, of all that was told
//   daemon       the daemon's last answer to "get_status"
//
// `state` is "not added", "unknown" (the daemon does not answer), "paused", "disconnected",
// "syncing", "uptodate" or "settled". `settled` is never told before it is true; "uptodate" only
// says that nothing is to do that is known of.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ctl/session-store.h"
#include "ctl/settle-tracker.h"
#include "platform/mutex.h"
#include "protocol/object.h"

namespace tolven::ctl {

// Any thread may call anything.
class Monitor {
 public:
  // What there is to show from now on.
  void SetRecords(const std::vector<ConnectionRecord>& connections,
                  const std::vector<SessionRecord>& sessions);
  // A session was handed to the daemon, or not: its quiet time begins anew.
  void SetAdded(std::uint64_t session_id, bool is_added);
  // One line for a person, until it is cleared by an empty one.
  void SetSessionProblem(std::uint64_t session_id, const std::string& problem);
  void SetConnectionProblem(std::uint64_t connection_id, const std::string& problem);

  void OnNotification(const PObject& message);
  // An answer to "get_status", or a null object when there was none.
  void OnStatus(const PObject& status);
  // A line of tolvenctl's own among what the daemon told.
  void Tell(const std::string& text, bool is_problem);

  bool IsSettled(std::uint64_t session_id) const;
  std::string State(std::uint64_t session_id) const;  // as in a snapshot
  PObject Snapshot() const;

 private:
  static constexpr std::int64_t kUntilCleared = INT64_MAX;

  struct Line {
    std::uint64_t number = 0;
    std::int64_t time = 0;
    std::string text;
  };
  struct Session {
    SessionRecord record;
    SettleTracker tracker{0};
    bool is_added = false;
    std::string status;  // the daemon's word
    std::uint64_t unfinished = 0;
    std::string problem;
    std::int64_t problem_until = kUntilCleared;
    std::deque<std::string> waiting;
  };
  struct Server {
    ConnectionRecord record;
    bool is_connected = false;
    std::string problem;
    std::int64_t problem_until = kUntilCleared;
  };
  // Progress of a transfer, for its speed.
  struct Pace {
    std::uint64_t bytes = 0;
    std::int64_t time = 0;
    double speed = 0;
    bool is_current = false;
  };
  using Lines = std::deque<Line>;

  void Add(Lines& lines, const std::string& text) REQUIRES(mutex_);
  void Disturb(const PObject& message) REQUIRES(mutex_);
  bool IsRepeated(const std::string& text) REQUIRES(mutex_);
  void TakeError(const PObject& message) REQUIRES(mutex_);
  void ForgetOldErrors() REQUIRES(mutex_);
  void TakeConnections(const PObject& list) REQUIRES(mutex_);
  void TakeSessions(const PObject& list) REQUIRES(mutex_);
  void TakeTransfers(const PObject& list) REQUIRES(mutex_);
  std::string StateOf(const Session& session, std::int64_t now) const REQUIRES(mutex_);
  PObject Show(const Session& session, std::int64_t now) const REQUIRES(mutex_);
  PObject Show(const Server& server) const REQUIRES(mutex_);
  static PObject Show(const Lines& lines);

  mutable Mutex mutex_;
  std::map<std::uint64_t, Session> sessions_ GUARDED_BY(mutex_);
  std::map<std::uint64_t, Server> servers_ GUARDED_BY(mutex_);
  std::map<std::pair<std::uint64_t, std::string>, Pace> paces_ GUARDED_BY(mutex_);
  Lines lines_ GUARDED_BY(mutex_), recent_ GUARDED_BY(mutex_), problems_ GUARDED_BY(mutex_);
  std::map<std::string, std::int64_t> told_ GUARDED_BY(mutex_);  // when an error came last
  std::uint64_t last_number_ GUARDED_BY(mutex_) = 0;
  PObject status_ GUARDED_BY(mutex_);
};

}  // namespace tolven::ctl

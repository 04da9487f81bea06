#include "ctl/monitor.h"

#include <algorithm>
#include <string_view>

#include "ctl/words.h"
#include "platform/clock.h"

namespace tolven::ctl {
namespace {

constexpr std::size_t kKeptLines = 200;
constexpr std::size_t kKeptWaiting = 20;
// The daemon repeats an error at each try. One that it did not for so long is over.
constexpr std::int64_t kErrorMs = 60'000;
// Weight of the newest look in a transfer's speed.
constexpr double kNewest = 0.4;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

// A connection of the record's kind, as people know it.
std::string ServerText(const ConnectionRecord& record) {
  return record.server.Text() + (record.embedded ? " (built in)" : "");
}

void Forget(std::deque<std::string>& waiting, const std::string& path) {
  waiting.erase(std::remove(waiting.begin(), waiting.end(), path), waiting.end());
}

}  // namespace

void Monitor::SetRecords(const std::vector<ConnectionRecord>& connections,
                         const std::vector<SessionRecord>& sessions) {
  MutexLock lock(mutex_);
  std::map<std::uint64_t, Server> servers;
  for (const ConnectionRecord& record : connections) {
    Server server = servers_[record.id];
    server.record = record;
    servers[record.id] = std::move(server);
  }
  servers_ = std::move(servers);
  std::map<std::uint64_t, Session> kept;
  for (const SessionRecord& record : sessions) {
    const auto known = sessions_.find(record.id);
    Session session = known == sessions_.end() ? Session() : std::move(known->second);
    session.record = record;
    kept[record.id] = std::move(session);
  }
  sessions_ = std::move(kept);
}

void Monitor::SetAdded(std::uint64_t session_id, bool is_added) {
  MutexLock lock(mutex_);
  const auto found = sessions_.find(session_id);
  if (found == sessions_.end()) return;
  found->second.is_added = is_added;
  found->second.tracker = SettleTracker(Now());
  found->second.status.clear();
  found->second.waiting.clear();
}

void Monitor::SetSessionProblem(std::uint64_t session_id, const std::string& problem) {
  MutexLock lock(mutex_);
  const auto found = sessions_.find(session_id);
  if (found == sessions_.end()) return;
  found->second.problem_until = kUntilCleared;
  if (found->second.problem == problem) return;
  found->second.problem = problem;
  if (problem.empty()) return;
  const std::string text = problem + " (session " + std::to_string(session_id) + ")";
  Add(lines_, text);
  Add(problems_, text);
}

void Monitor::SetConnectionProblem(std::uint64_t connection_id, const std::string& problem) {
  MutexLock lock(mutex_);
  const auto found = servers_.find(connection_id);
  if (found == servers_.end()) return;
  found->second.problem_until = kUntilCleared;
  if (found->second.problem == problem) return;
  found->second.problem = problem;
  if (problem.empty()) return;
  const std::string text = problem + " (connection " + std::to_string(connection_id) + ")";
  Add(lines_, text);
  Add(problems_, text);
}

void Monitor::Tell(const std::string& text, bool is_problem) {
  MutexLock lock(mutex_);
  Add(lines_, text);
  if (is_problem) Add(problems_, text);
}

void Monitor::Add(Lines& lines, const std::string& text) {
  lines.push_back({++last_number_, platform::clock().WallSeconds(), text});
  if (lines.size() > kKeptLines) lines.pop_front();
}

void Monitor::OnNotification(const PObject& message) {
  const std::string_view kind = message["notify"].asStringView();
  const std::string path = message["path"].asString().str();
  const std::string text = Describe(message);
  MutexLock lock(mutex_);
  Disturb(message);
  const auto session = sessions_.find(message["session_id"].asUInt64());
  if (session != sessions_.end() && !path.empty() && path != "/") {
    std::deque<std::string>& waiting = session->second.waiting;
    Forget(waiting, path);
    if (kind == "syncing_file" && waiting.size() < kKeptWaiting) waiting.push_back(path);
  }
  // What is only queued fills the view of what moves; a folder of many files would drown the rest.
  if (kind == "syncing_file") return;
  if (kind == "error") TakeError(message);
  const bool is_problem = IsProblem(message);
  if (is_problem && kind != "recent_file" && IsRepeated(text)) return;
  Add(lines_, text);
  if (kind == "recent_file") Add(recent_, text);
  if (is_problem) Add(problems_, text);
}

bool Monitor::IsRepeated(const std::string& text) {
  const std::int64_t now = Now();
  std::erase_if(told_, [now](const auto& told) { return now - told.second > kErrorMs; });
  const bool is_repeated = told_.contains(text);
  told_[text] = now;
  return is_repeated;
}

// What stands there until it is cleared tells more than an error's number does.
void Monitor::TakeError(const PObject& message) {
  const std::string words = ErrorWords(message["error_type"].asInt32());
  const auto take = [&words](auto& holder) {
    if (!holder.problem.empty() && holder.problem_until == kUntilCleared) return;
    holder.problem = words;
    holder.problem_until = Now() + kErrorMs;
  };
  const auto session = sessions_.find(message["session_id"].asUInt64());
  if (session != sessions_.end()) take(session->second);
  const auto server = servers_.find(message["connection_id"].asUInt64());
  if (server != servers_.end()) take(server->second);
}

void Monitor::ForgetOldErrors() {
  const std::int64_t now = Now();
  const auto forget = [now](auto& holder) {
    if (now > holder.problem_until) holder.problem.clear();
  };
  for (auto& [id, session] : sessions_) forget(session);
  for (auto& [id, server] : servers_) forget(server);
}

// An error of a connection stands for all that use it.
void Monitor::Disturb(const PObject& message) {
  const std::int64_t now = Now();
  for (auto& [id, session] : sessions_) {
    const bool is_named = message["session_id"].asUInt64() == id ||
                          message["sess_id"].asUInt64() == id ||
                          message["connection_id"].asUInt64() == session.record.connection_id;
    if (is_named) session.tracker.Disturb(now);
  }
}

void Monitor::OnStatus(const PObject& status) {
  MutexLock lock(mutex_);
  status_ = status;
  ForgetOldErrors();
  TakeConnections(status["connection_list"]);
  TakeSessions(status["session_list"]);
  TakeTransfers(status["worker_list"]);
}

void Monitor::TakeConnections(const PObject& list) {
  for (auto& [id, server] : servers_) server.is_connected = false;
  for (const PObject& element : list.asArray()) {
    const auto found = servers_.find(element["connection_id"].asUInt64());
    if (found == servers_.end()) continue;
    found->second.is_connected = element["status"].asStringView() == "connected";
  }
}

void Monitor::TakeSessions(const PObject& list) {
  const std::int64_t now = Now();
  for (auto& [id, session] : sessions_) session.status.clear();
  for (const PObject& element : list.asArray()) {
    const auto found = sessions_.find(element["session_id"].asUInt64());
    if (found == sessions_.end()) continue;
    found->second.status = element["status"].asString().str();
    found->second.unfinished = element["unfinished_files"].asUInt64();
  }
  for (auto& [id, session] : sessions_) {
    const auto server = servers_.find(session.record.connection_id);
    const bool is_connected = server != servers_.end() && server->second.is_connected;
    if (session.status == "uptodate") session.waiting.clear();
    session.tracker.Look(session.is_added && session.status == "uptodate" && is_connected, now);
  }
}

void Monitor::TakeTransfers(const PObject& list) {
  const std::int64_t now = Now();
  for (auto& [key, pace] : paces_) pace.is_current = false;
  for (const PObject& element : list.asArray()) {
    const std::uint64_t bytes = element["progress"].asUInt64();
    Pace& pace = paces_[{element["session_id"].asUInt64(), element["path"].asString().str()}];
    // A transfer that begins anew has no speed yet.
    if (pace.time == 0 || bytes < pace.bytes) pace = {bytes, now, 0, true};
    pace.is_current = true;
    if (now <= pace.time) continue;
    const double speed =
        static_cast<double>(bytes - pace.bytes) * 1000.0 / static_cast<double>(now - pace.time);
    pace.speed = pace.speed == 0 ? speed : pace.speed * (1 - kNewest) + speed * kNewest;
    pace.bytes = bytes;
    pace.time = now;
  }
  std::erase_if(paces_, [](const auto& item) { return !item.second.is_current; });
}

bool Monitor::IsSettled(std::uint64_t session_id) const {
  MutexLock lock(mutex_);
  const auto found = sessions_.find(session_id);
  return found != sessions_.end() && found->second.tracker.IsSettled(Now());
}

std::string Monitor::State(std::uint64_t session_id) const {
  MutexLock lock(mutex_);
  const auto found = sessions_.find(session_id);
  return found == sessions_.end() ? std::string() : StateOf(found->second, Now());
}

std::string Monitor::StateOf(const Session& session, std::int64_t now) const {
  const auto server = servers_.find(session.record.connection_id);
  if (!session.is_added) return "not added";
  if (status_.isNull()) return "unknown";
  if (session.status.empty()) return "not added";
  if (session.status == "pause" || session.record.paused) return "paused";
  if (server == servers_.end() || !server->second.is_connected) return "disconnected";
  if (session.tracker.IsSettled(now)) return "settled";
  return session.status == "uptodate" ? "uptodate" : "syncing";
}

PObject Monitor::Show(const Session& session, std::int64_t now) const {
  const SessionRecord& record = session.record;
  const auto server = servers_.find(record.connection_id);
  PObject shown;
  shown["session_id"] = record.id;
  shown["connection_id"] = record.connection_id;
  shown["view_id"] = record.view_id;
  shown["folder"] = record.folder;
  shown["remote_path"] = record.remote_path;
  shown["server"] = server == servers_.end() ? "" : ServerText(server->second.record).c_str();
  shown["state"] = StateOf(session, now).c_str();
  shown["uptodate"] = session.status == "uptodate";
  shown["settled"] = session.tracker.IsSettled(now);
  shown["unfinished_files"] = session.unfinished;
  shown["recursive"] = record.recursive;
  shown["read_only"] = record.read_only;
  shown["perm_mode"] = record.perm_mode.c_str();
  shown["problem"] = session.problem.c_str();
  return shown;
}

PObject Monitor::Show(const Server& server) const {
  PObject shown;
  shown["connection_id"] = server.record.id;
  shown["server"] = ServerText(server.record).c_str();
  shown["status"] = server.is_connected ? "connected" : "disconnected";
  shown["build"] = server.record.build;
  shown["problem"] = server.problem.c_str();
  return shown;
}

PObject Monitor::Show(const Lines& lines) {
  PObject shown;
  shown.asArray();
  for (const Line& line : lines) {
    PObject element;
    element["number"] = line.number;
    element["time"] = line.time;
    element["text"] = line.text.c_str();
    shown.asArray().push_back(std::move(element));
  }
  return shown;
}

PObject Monitor::Snapshot() const {
  MutexLock lock(mutex_);
  const std::int64_t now = Now();
  PObject snapshot;
  snapshot["sessions"].asArray();
  snapshot["connections"].asArray();
  snapshot["waiting"].asArray();
  for (const auto& [id, session] : sessions_) {
    snapshot["sessions"].asArray().push_back(Show(session, now));
    for (const std::string& path : session.waiting) {
      PObject& element = snapshot["waiting"].asArray().emplace_back();
      element["session_id"] = id;
      element["path"] = path.c_str();
    }
  }
  for (const auto& [id, server] : servers_) {
    snapshot["connections"].asArray().push_back(Show(server));
  }
  snapshot["transfers"] = status_["worker_list"];
  for (PObject& transfer : snapshot["transfers"].asArray()) {
    const auto pace =
        paces_.find({transfer["session_id"].asUInt64(), transfer["path"].asString().str()});
    if (pace != paces_.end()) transfer["speed"] = static_cast<std::uint64_t>(pace->second.speed);
  }
  snapshot["lines"] = Show(lines_);
  snapshot["recent"] = Show(recent_);
  snapshot["problems"] = Show(problems_);
  snapshot["daemon"] = status_;
  return snapshot;
}

}  // namespace tolven::ctl

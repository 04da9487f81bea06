// Keeping the daemon in line.
#include "ctl/supervisor.h"

#include <chrono>
#include <utility>

#include "ctl/session-folder.h"
#include "ctl/trust-bundle.h"
#include "ctl/words.h"
#include "lib/error-table.h"
#include "lib/file-op.h"
#include "platform/clock.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLook{500};   // between two looks at the daemon's status
constexpr milliseconds kTick{1000};  // between two looks for what is due
constexpr std::int64_t kProbeAgainMs = 15'000;
constexpr std::int64_t kAddAgainMs = 10'000;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

// Ids that folders on disk carry are not given again, even when the configuration was lost.
std::uint64_t HighestSessionFolder(const ustring& folder) {
  std::uint64_t highest = 0;
  DIR_HANDLE handle;
  DIR_ENTRY entry;
  FSOpenDir(folder, 0, handle);
  while (FSReadDir(handle, entry) == 1) {
    const std::string name = entry.name.str();
    if (name.find_first_not_of("0123456789") == std::string::npos && name.size() < 19) {
      highest = std::max<std::uint64_t>(highest, std::stoull(name));
    }
  }
  FSCloseDir(handle);
  return highest;
}

// What a server has told of itself; whether anything differs from what was known.
bool Learn(ConnectionRecord& connection, const ProbeResult& result) {
  ConnectionRecord learnt = connection;
  if (!result.address.empty()) learnt.address = result.address;
  if (result.code == 0) {
    learnt.major = result.major;
    learnt.minor = result.minor;
    learnt.build = result.build;
  }
  const bool has_news = learnt.address != connection.address || learnt.major != connection.major ||
                        learnt.minor != connection.minor || learnt.build != connection.build;
  connection = learnt;
  return has_news;
}

}  // namespace

Supervisor::Supervisor(Home home)
    : home_(std::move(home)), store_(home_.store), embedded_(home_.server) {}

bool Supervisor::Load(std::string& error) {
  MutexLock lock(mutex_);
  if (FSMKDir(home_.sessions, true) != 0) {
    error = "cannot make the folder " + home_.sessions.str();
    return false;
  }
  if (!store_.Load(error)) return false;
  store_.ReserveSessions(HighestSessionFolder(home_.sessions));
  monitor_.SetRecords(store_.connections(), store_.sessions());
  return true;
}

bool Supervisor::Save(std::string& error) {
  monitor_.SetRecords(store_.connections(), store_.sessions());
  return store_.Save(error);
}

bool Supervisor::StartServices(std::string& error) {
  MutexLock lock(mutex_);
  return StartServicesLocked(error);
}

bool Supervisor::StartServicesLocked(std::string& error) {
  ConnectionRecord* const own = store_.FindEmbedded();
  if (own != nullptr) {
    int port = own->server.port;
    if (!embedded_.Start(port, error)) return false;
    own->server.port = port;
  }
  return WriteTrusted({}, error) && Save(error);
}

bool Supervisor::WriteTrusted(const std::string& extra, std::string& error) {
  std::vector<ustring> trusted;
  if (embedded_.is_running()) trusted.push_back(embedded_.certificate());
  for (const ConnectionRecord& connection : store_.connections()) {
    if (!connection.ca_path.empty()) trusted.emplace_back(connection.ca_path);
  }
  if (!extra.empty()) trusted.emplace_back(extra);
  return WriteTrustBundle(home_, trusted, error);
}

void Supervisor::StopServices() {
  MutexLock lock(mutex_);
  embedded_.Stop();
}

void Supervisor::Attach(DaemonLink::Caller caller, NotificationLog& log) {
  MutexLock lock(mutex_);
  abort_ = 0;
  connection_states_.clear();
  session_states_.clear();
  daemon_ = std::make_unique<DaemonLink>(std::move(caller));
  watch_thread_ = std::thread([this, &log] { Watch(log); });
  link_thread_ = std::thread([this] { KeepLinked(); });
}

void Supervisor::Detach() {
  Abort();
  changed_.NotifyAll();
  if (watch_thread_.joinable()) watch_thread_.join();
  if (link_thread_.joinable()) link_thread_.join();
  MutexLock lock(mutex_);
  daemon_.reset();
}

// --- what the daemon tells -------------------------------------------------------------------

void Supervisor::Watch(NotificationLog& log) {
  std::uint64_t next = 0;
  std::int64_t looked = 0;
  DaemonLink* daemon = nullptr;
  {
    MutexLock lock(mutex_);
    daemon = daemon_.get();  // lives until Detach() has joined this thread
  }
  while (abort_ == 0) {
    for (const PObject& message : log.After(next, milliseconds(100), next)) {
      monitor_.OnNotification(message);
      LookAtError(message);
    }
    if (Now() - looked < kLook.count()) continue;
    looked = Now();
    PObject status;
    if (!daemon->GetStatus(status)) status.clear();
    monitor_.OnStatus(status);
    RememberSettled();
  }
}

void Supervisor::LookAtError(const PObject& message) {
  if (message["notify"].asStringView() != "error" || !message.hasMember("connection_id")) return;
  const bool at_once = message["error_type"].asInt32() == ErrorCodes::ERR_BUILD_NUM_CHANGED;
  MutexLock lock(mutex_);
  const auto found = connection_states_.find(message["connection_id"].asUInt64());
  if (found == connection_states_.end() || found->second.must_probe) return;
  found->second.must_probe = true;
  found->second.probe_at = at_once ? 0 : Now() + kProbeAgainMs;
  changed_.NotifyAll();
}

void Supervisor::RememberSettled() {
  MutexLock lock(mutex_);
  bool has_news = false;
  for (const SessionRecord& session : store_.sessions()) {
    if (session.has_settled || !monitor_.IsSettled(session.id)) continue;
    store_.FindSession(session.id)->has_settled = true;
    has_news = true;
  }
  std::string error;
  if (has_news && !Save(error)) monitor_.Tell(error, true);
}

// --- what the daemon is told -----------------------------------------------------------------

void Supervisor::KeepLinked() {
  while (abort_ == 0) {
    std::erase_if(probes_, [](const std::future<void>& probe) {
      return probe.wait_for(milliseconds(0)) == std::future_status::ready;
    });
    // A server that does not answer keeps nobody else waiting.
    for (const ConnectionRecord& connection : DueForProbe()) {
      probes_.push_back(std::async(std::launch::async, [this, connection] {
        TakeProbe(connection, ProbeServer(connection, &abort_));
      }));
    }
    AddDueSessions();
    MutexLock lock(mutex_);
    if (abort_ == 0) changed_.WaitFor(mutex_, kTick);
  }
  probes_.clear();  // waits for each
}

std::vector<ConnectionRecord> Supervisor::DueForProbe() {
  MutexLock lock(mutex_);
  std::vector<ConnectionRecord> due;
  for (const ConnectionRecord& connection : store_.connections()) {
    ConnectionState& state = connection_states_[connection.id];
    if (!state.must_probe || state.is_probed || state.probe_at > Now()) continue;
    state.is_probed = true;
    due.push_back(connection);
  }
  return due;
}

// A server that cannot be reached now is told of all the same, by what was known of it last: the
// daemon keeps trying, and reports a build that has changed.
void Supervisor::TakeProbe(const ConnectionRecord& asked, const ProbeResult& result) {
  MutexLock lock(mutex_);
  ConnectionState& state = connection_states_[asked.id];
  state.is_probed = false;
  ConnectionRecord* const connection = store_.FindConnection(asked.id);
  if (abort_ != 0 || connection == nullptr || connection->token != asked.token) return;
  state.must_probe = result.code != 0;
  state.probe_at = Now() + kProbeAgainMs;
  monitor_.SetConnectionProblem(asked.id, result.error);
  const bool has_news = Learn(*connection, result);
  std::string error;
  if (has_news && !Save(error)) monitor_.Tell(error, true);
  error.clear();
  if (state.is_linked && !has_news) return;
  if (daemon_->TellConnection(*connection, state.is_linked, error)) {
    state.is_linked = true;
  } else {
    state.must_probe = true;
    monitor_.SetConnectionProblem(asked.id, error);
  }
  changed_.NotifyAll();
}

void Supervisor::AddDueSessions() {
  MutexLock lock(mutex_);
  for (const SessionRecord& session : store_.sessions()) {
    const SessionState& state = session_states_[session.id];
    const bool is_due = !state.is_added && state.add_at <= Now() &&
                        connection_states_[session.connection_id].is_linked;
    if (is_due && abort_ == 0) AddSession(session);
  }
}

void Supervisor::AddSession(const SessionRecord& session) {
  SessionState& state = session_states_[session.id];
  state.add_at = Now() + kAddAgainMs;
  std::string error;
  const ustring folder = home_.SessionFolder(session.id);
  state.is_added =
      PrepareSessionFolder(folder, error) && daemon_->AddSession(session, folder, error);
  monitor_.SetAdded(session.id, state.is_added);
  monitor_.SetSessionProblem(
      session.id, error.empty() ? "" : session.folder.str() + " is not synced: " + error);
}

// What is to be a merge is recorded first: a crash on the way must not leave a session whose
// missing files count as removed.
bool Supervisor::TakeOut(SessionRecord& session, std::string& error) {
  session.has_settled = false;
  if (!Save(error) || !daemon_->RemoveSession(session.id, error)) return false;
  session_states_[session.id] = {};
  monitor_.SetAdded(session.id, false);
  return true;
}

}  // namespace tolven::ctl

// The commands that change connections and sessions.
#include <algorithm>
#include <utility>

#include "client/core/session-layout.h"
#include "ctl/rule-editor.h"
#include "ctl/session-folder.h"
#include "ctl/supervisor.h"
#include "ctl/sync-root.h"
#include "lib/error-table.h"
#include "lib/file-op.h"

namespace tolven::ctl {
namespace {

constexpr int kEmbeddedPort = 7711;
constexpr const char* kLocalhost = "localhost";

std::string Text(const PObject& command, const char* key) { return command[key].asString().str(); }

// "/" or "/a/b".
std::string PlainRemotePath(std::string path) {
  if (!path.starts_with('/')) path.insert(path.begin(), '/');
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

bool ReadSwitch(const std::string& text, bool& on, std::string& error) {
  on = text == "on";
  if (on || text == "off") return true;
  error = "'" + text + "' is neither on nor off";
  return false;
}

}  // namespace

bool Supervisor::Execute(const PObject& command, PObject& answer) {
  using Operation = bool (Supervisor::*)(const PObject&, PObject&, std::string&);
  static const std::map<std::string, Operation> operations = {
      {"add", &Supervisor::Add},          {"remove", &Supervisor::Remove},
      {"token", &Supervisor::NewToken},   {"pause", &Supervisor::Pause},
      {"resume", &Supervisor::Pause},     {"set", &Supervisor::Set},
      {"filter", &Supervisor::EditRules}, {"sessions", &Supervisor::ListSessions},
  };
  const std::string name = Text(command, "command");
  if (name == "snapshot") {
    answer = monitor_.Snapshot();
    return true;
  }
  const auto found = operations.find(name);
  if (found == operations.end()) return false;
  std::string error;
  if (!(this->*found->second)(command, answer, error)) answer["error"] = ustring(error);
  return true;
}

std::string Supervisor::Describe(const SessionRecord& session) {
  const ConnectionRecord* const connection = store_.FindConnection(session.connection_id);
  const std::string server = connection == nullptr  ? "no server"
                             : connection->embedded ? "the built-in server"
                                                    : connection->server.Text();
  return "session " + std::to_string(session.id) + ": " + session.folder.str() + " <-> " + server +
         ", view " + std::to_string(session.view_id) + ", " + session.remote_path.str();
}

// --- add -------------------------------------------------------------------------------------

bool Supervisor::ReadConnection(const PObject& command, ConnectionRecord& connection,
                                std::string& error) {
  if (!ReadEndpoint(Text(command, "server"), connection.server, error)) return false;
  connection.token = Text(command, "token");
  connection.ca_path = Text(command, "ca");
  connection.insecure = command["insecure"].asBool();
  connection.tls = command["tls"].asBool() || connection.insecure || !connection.ca_path.empty();
  connection.host_name = Text(command, "host_name");
  connection.proxy = Text(command, "proxy");
  connection.tunnel = Text(command, "tunnel");
  if (!connection.ca_path.empty()) connection.ca_path = PlainFolder(connection.ca_path).str();
  // A certificate names hosts; an address needs --host-name to be checked against one.
  if (connection.host_name.empty() && !IsAddressLiteral(connection.server.host)) {
    connection.host_name = connection.server.host;
  }
  ProxyAddress proxy;
  Endpoint tunnel;
  if (connection.token.empty() || !command.hasMember("view_id")) {
    error = "a server needs a login token (--token) and the id of a view (--view)";
  } else if (connection.tls && connection.ca_path.empty() && !connection.insecure) {
    error =
        "TLS needs --ca FILE, the server's certificate or that of its authority (the system's "
        "own are often in /etc/ssl/certs/ca-certificates.crt), or --insecure";
  } else if (!connection.proxy.empty() && !ReadProxy(connection.proxy, proxy, error)) {
    error = "the proxy: " + error;
  } else if (!connection.tunnel.empty() && !ReadEndpoint(connection.tunnel, tunnel, error)) {
    error = "the tunnel: " + error;
  }
  return error.empty();
}

// A server that refuses what was given is an error; one that cannot be reached may come later.
bool Supervisor::CheckNewServer(const ConnectionRecord& connection, PObject& answer,
                                std::string& error) {
  const ProbeResult result = ProbeServer(connection, &abort_);
  if (result.code == 0) return true;
  if (result.code != ErrorCodes::ERR_IO) {
    error = result.error;
    return false;
  }
  answer["note"] = ustring(result.error + "; it is tried again and again");
  return true;
}

bool Supervisor::PrepareEmbedded(ConnectionRecord& connection, std::uint64_t& view_id,
                                 std::string& error) {
  if (!embedded_.Prepare(view_id, error)) return false;
  const ConnectionRecord* const known = store_.FindEmbedded();
  if (known != nullptr) {
    connection = *known;
    return true;
  }
  connection.embedded = true;
  connection.tls = true;
  connection.server = {"127.0.0.1", kEmbeddedPort};
  connection.host_name = kLocalhost;
  return embedded_.NewToken(connection.token, error);
}

ConnectionRecord* Supervisor::FindAlike(const ConnectionRecord& connection) {
  for (const ConnectionRecord& known : store_.connections()) {
    const bool is_alike =
        known.embedded == connection.embedded &&
        (known.embedded ||
         (known.server == connection.server && known.token == connection.token &&
          known.tls == connection.tls && known.insecure == connection.insecure &&
          known.ca_path == connection.ca_path && known.host_name == connection.host_name &&
          known.proxy == connection.proxy && known.tunnel == connection.tunnel));
    if (is_alike) return store_.FindConnection(known.id);
  }
  return nullptr;
}

bool Supervisor::AddTo(ConnectionRecord connection, SessionRecord session, PObject& answer,
                       std::string& error) {
  for (const SessionRecord& other : store_.sessions()) {
    const ConnectionRecord* const theirs = store_.FindConnection(other.connection_id);
    const bool is_same_server = theirs != nullptr && theirs->server == connection.server;
    if (is_same_server && other.view_id == session.view_id &&
        Overlap(other.remote_path, session.remote_path)) {
      error = "this folder of the server is synced with " + other.folder.str() +
              " already (session " + std::to_string(other.id) +
              "); name another with --remote-path";
      return false;
    }
  }
  if (FSMKDir(session.folder, true) != 0) {
    error = "cannot make the folder " + session.folder.str();
    return false;
  }
  const ConnectionRecord* known = FindAlike(connection);
  const bool is_new = known == nullptr;
  if (is_new) known = &store_.Add(std::move(connection));
  session.connection_id = known->id;
  const SessionRecord& added = store_.Add(std::move(session));
  if (!PrepareSessionFolder(home_.SessionFolder(added.id), error) || !Save(error) ||
      (is_attached() && !StartServicesLocked(error))) {
    const std::uint64_t connection_id = added.connection_id;
    store_.RemoveSession(added.id);
    if (is_new) store_.RemoveConnection(connection_id);
    std::string ignored;  // the first failure is the one to tell
    (void)Save(ignored);
    return false;
  }
  changed_.NotifyAll();
  answer["session_id"] = added.id;
  answer["text"] = ustring(Describe(added));
  return true;
}

bool Supervisor::Add(const PObject& command, PObject& answer, std::string& error) {
  SessionRecord session;
  session.folder = PlainFolder(Text(command, "folder"));
  session.remote_path = PlainRemotePath(Text(command, "remote_path"));
  session.view_id = command["view_id"].asUInt64();
  const bool is_embedded = !command.hasMember("server");
  ConnectionRecord connection;
  if (!is_embedded && !ReadConnection(command, connection, error)) return false;
  {
    MutexLock lock(mutex_);
    for (const SessionRecord& known : store_.sessions()) {
      if (!command["or_existing"].asBool() || known.folder != session.folder) continue;
      const ConnectionRecord* const theirs = store_.FindConnection(known.connection_id);
      if (!is_embedded && theirs != nullptr && theirs->server != connection.server) break;
      answer["session_id"] = known.id;
      answer["text"] = ustring(Describe(known));
      return true;
    }
    CheckSyncRoot(session.folder, home_, store_.sessions(), error);
    if (!error.empty()) return false;
    if (is_embedded) {
      return PrepareEmbedded(connection, session.view_id, error) &&
             AddTo(std::move(connection), std::move(session), answer, error);
    }
    if (!WriteTrusted(connection.ca_path, error)) return false;
  }
  const bool is_accepted = CheckNewServer(connection, answer, error);
  MutexLock lock(mutex_);
  if (is_accepted) CheckSyncRoot(session.folder, home_, store_.sessions(), error);
  if (error.empty() && AddTo(std::move(connection), std::move(session), answer, error)) return true;
  std::string ignored;  // the first failure is the one to tell
  (void)WriteTrusted({}, ignored);
  return false;
}

// --- remove, token, pause --------------------------------------------------------------------

bool Supervisor::FindOne(const PObject& command, SessionRecord*& session, std::string& error) {
  const std::uint64_t id = command["session_id"].asUInt64();
  const bool is_only = id == 0 && store_.sessions().size() == 1;
  session = store_.FindSession(is_only ? store_.sessions().front().id : id);
  if (session != nullptr) return true;
  error = store_.sessions().empty() ? "there is no session"
          : id == 0                 ? "there are several sessions; name one by its number"
                                    : "there is no session " + std::to_string(id);
  return false;
}

bool Supervisor::Remove(const PObject& command, PObject& answer, std::string& error) {
  MutexLock lock(mutex_);
  SessionRecord* found = nullptr;
  if (!FindOne(command, found, error)) return false;
  const SessionRecord session = *found;
  const ustring folder = home_.SessionFolder(session.id);
  const ustring working_directory = session.folder + "/" + kWorkingDirectory;
  const ConnectionRecord* const connection = store_.FindConnection(session.connection_id);
  const auto uses = std::count_if(
      store_.sessions().begin(), store_.sessions().end(),
      [&session](const auto& other) { return other.connection_id == session.connection_id; });
  const bool drops_connection = connection != nullptr && !connection->embedded && uses == 1;
  const std::uint64_t connection_id = session.connection_id;
  std::string text = Describe(session) +
                     "\nstays: the folder with your files, and everything on the server"
                     "\ngoes:  " +
                     folder.str() + " (rules and database)\ngoes:  " + working_directory.str() +
                     " (with the recycle bin of what was removed or replaced here)";
  if (drops_connection) {
    text += "\ngoes:  the connection to " + connection->server.Text() + " with its token";
  }
  answer["text"] = ustring(text);
  answer["session_id"] = session.id;
  if (command["dry_run"].asBool()) return true;

  if (is_attached() && session_states_[session.id].is_added &&
      !daemon_->RemoveSession(session.id, error)) {
    return false;
  }
  store_.RemoveSession(session.id);
  session_states_.erase(session.id);
  if (drops_connection) {
    std::string ignored;  // a daemon that is about to end forgets it anyway
    if (is_attached()) (void)daemon_->RemoveConnection(connection_id, ignored);
    store_.RemoveConnection(connection_id);
    connection_states_.erase(connection_id);
  }
  if (!Save(error)) return false;
  for (const ustring& path : {folder, working_directory}) {
    if (FSRemove(path, false) < 0) error = "removed, but " + path.str() + " is still there";
  }
  return error.empty();
}

bool Supervisor::NewToken(const PObject& command, PObject& answer, std::string& error) {
  ConnectionRecord changed;
  {
    MutexLock lock(mutex_);
    std::uint64_t id = command["connection_id"].asUInt64();
    if (id == 0 && store_.connections().size() == 1) id = store_.connections().front().id;
    const ConnectionRecord* const found = store_.FindConnection(id);
    if (found == nullptr) {
      error = id == 0 ? "name a connection by its number" : "there is no such connection";
      return false;
    }
    changed = *found;
    changed.token = Text(command, "token");
    if (changed.token.empty() && !changed.embedded) error = "give the new token";
    if (changed.token.empty() && changed.embedded) embedded_.NewToken(changed.token, error);
    if (!error.empty()) return false;
  }
  if (!changed.embedded && !CheckNewServer(changed, answer, error)) return false;
  MutexLock lock(mutex_);
  ConnectionRecord* const connection = store_.FindConnection(changed.id);
  if (connection == nullptr) {
    error = "the connection was removed meanwhile";
    return false;
  }
  connection->token = changed.token;
  if (!Save(error)) return false;
  ConnectionState& state = connection_states_[changed.id];
  if (is_attached() && state.is_linked && !daemon_->TellConnection(*connection, true, error)) {
    return false;
  }
  state.must_probe = true;
  state.probe_at = 0;
  changed_.NotifyAll();
  answer["text"] = ustring("connection " + std::to_string(changed.id) + " to " +
                           changed.server.Text() + " has a new token");
  return true;
}

bool Supervisor::Pause(const PObject& command, PObject& answer, std::string& error) {
  const bool pause = Text(command, "command") == "pause";
  const std::uint64_t id = command["session_id"].asUInt64();
  MutexLock lock(mutex_);
  if (id != 0 && store_.FindSession(id) == nullptr) {
    error = "there is no session " + std::to_string(id);
    return false;
  }
  std::string text;
  for (const SessionRecord& known : store_.sessions()) {
    if (id != 0 && known.id != id) continue;
    SessionRecord& session = *store_.FindSession(known.id);
    session.paused = pause;
    if (is_attached() && session_states_[session.id].is_added &&
        !daemon_->PauseSession(session.id, pause, error)) {
      return false;
    }
    text += (text.empty() ? "" : "\n") + std::string(pause ? "paused " : "resumed ") +
            Describe(session);
  }
  answer["text"] = ustring(text.empty() ? "there is no session" : text);
  return Save(error);
}

// --- set -------------------------------------------------------------------------------------

// What could lose files when it is done too early.
bool Supervisor::RequireSettled(const SessionRecord& session, PObject& answer, std::string& error) {
  if (!is_attached()) {
    error = "this needs a running tolvenctl, since the session has to settle first";
  } else if (!monitor_.IsSettled(session.id)) {
    error = "session " + std::to_string(session.id) + " has not settled yet, it is " +
            monitor_.State(session.id);
    answer["unsettled"] = true;
  }
  return error.empty();
}

bool Supervisor::SetRecursive(SessionRecord& session, bool on, PObject& answer,
                              std::string& error) {
  if (session.recursive == on) return true;
  if (!RequireSettled(session, answer, error)) return false;
  PObject changes;
  changes["recursive"] = on;
  // The daemon forgets where the folders stood, and their copies here when they leave. A crash on
  // the way must not leave a session with folders that the daemon has forgotten.
  if (!on) {
    session.recursive = false;
    if (!Save(error)) return false;
  }
  const bool is_done =
      daemon_->ReloadSession(session.id, changes, error) && TakeOut(session, error);
  session.recursive = is_done ? on : !on;
  std::string ignored;  // the first failure is the one to tell
  if (!is_done) return Save(ignored) && false;
  if (!Save(error)) return false;
  AddSession(session);
  return true;
}

// Tells the daemon of a change, when it has the session.
bool Supervisor::Reload(const SessionRecord& session, const PObject& changes, std::string& error) {
  return !is_attached() || !session_states_[session.id].is_added ||
         daemon_->ReloadSession(session.id, changes, error);
}

bool Supervisor::SetReadOnly(SessionRecord& session, bool on, std::string& error) {
  PObject changes;
  changes["read_only"] = on;
  if (!Reload(session, changes, error)) return false;
  session.read_only = on;
  return true;
}

bool Supervisor::SetPermMode(SessionRecord& session, const std::string& mode, std::string& error) {
  if (mode != "sync-all" && mode != "domain-only" && mode != "exec-bit-only") {
    error = "the mode is sync-all, domain-only or exec-bit-only";
    return false;
  }
  PObject changes;
  changes["perm_mode"] = ustring(mode);
  if (!Reload(session, changes, error)) return false;
  session.perm_mode = mode;
  return true;
}

bool Supervisor::Set(const PObject& command, PObject& answer, std::string& error) {
  MutexLock lock(mutex_);
  SessionRecord* session = nullptr;
  if (!FindOne(command, session, error)) return false;
  const std::string key = Text(command, "key"), value = Text(command, "value");
  bool on = false;
  if (key == "perm-mode") {
    if (!SetPermMode(*session, value, error)) return false;
  } else if (key == "recursive" || key == "read-only") {
    if (!ReadSwitch(value, on, error)) return false;
    const bool is_done = key == "recursive" ? SetRecursive(*session, on, answer, error)
                                            : SetReadOnly(*session, on, error);
    if (!is_done) return false;
  } else {
    error = "what can be set is recursive, read-only or perm-mode";
    return false;
  }
  answer["text"] =
      ustring("session " + std::to_string(session->id) + ": " + key + " is " + value + " now");
  return Save(error);
}

// --- filter ----------------------------------------------------------------------------------

// Rules that only leave out more are taken up by the running session. When something takes part
// again, the session is added anew: what was removed here meanwhile comes back from the server and
// is not removed there.
bool Supervisor::ApplyRules(const RuleEditor& editor, SessionRecord& session, PObject& answer,
                            std::string& error) {
  if (!editor.has_changed()) return true;
  if (editor.has_loosened()) {
    if (!RequireSettled(session, answer, error) || !TakeOut(session, error)) return false;
    const bool is_saved = editor.Save(error);
    AddSession(session);
    return is_saved;
  }
  PObject changes;
  changes["do_reload_filter"] = true;
  return editor.Save(error) && Reload(session, changes, error);
}

bool Supervisor::EditRules(const PObject& command, PObject& answer, std::string& error) {
  MutexLock lock(mutex_);
  SessionRecord* session = nullptr;
  if (!FindOne(command, session, error)) return false;
  const ustring folder = home_.SessionFolder(session->id);
  RuleEditor editor(BlackListPath(folder));
  if (!PrepareSessionFolder(folder, error) || !editor.Load(error)) return false;
  const std::string operation = Text(command, "operation");
  const Rule rule{Text(command, "kind"), Text(command, "value")};
  if (operation != "list" &&
      !(operation == "add" ? editor.Add(rule, error) : editor.Remove(rule, error))) {
    return false;
  }
  if (!ApplyRules(editor, *session, answer, error)) return false;
  PObject::array_type& rules = answer["rules"].asArray();
  for (const Rule& each : editor.List()) {
    PObject& shown = rules.emplace_back();
    shown["kind"] = ustring(each.kind);
    shown["value"] = ustring(each.value);
  }
  answer["session_id"] = session->id;
  return true;
}

bool Supervisor::ListSessions(const PObject&, PObject& answer, std::string&) {
  answer["sessions"] = monitor_.Snapshot()["sessions"];
  return true;
}

}  // namespace tolven::ctl

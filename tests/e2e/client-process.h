// The real daemon with one session on a folder of its own, until the object goes.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/daemon-home.h"
#include "e2e/server-process.h"
#include "platform/process.h"
#include "support/local-ui.h"

namespace tolven::test {

namespace fs = std::filesystem;

// Looks until `condition` holds, for two minutes at most; less and less often, since a look may be
// a request or a program of its own.
inline bool Eventually(const std::function<bool()>& condition) {
  constexpr std::chrono::milliseconds kFirstPause(10), kLongestPause(300);
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  for (auto pause = kFirstPause; !condition(); pause = std::min(pause * 3 / 2, kLongestPause)) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

// What a folder holds: the content of each file, "<dir>" for each folder.
using Tree = std::map<std::string, std::string>;

inline Tree ReadTree(const std::string& root) {
  Tree tree;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root, error), end; !error && at != end;
       at.increment(error)) {
    const std::string path = Utf8(at->path());
    if (at->path().filename() == ".ZentrovaWorkingDirectory") {
      at.disable_recursion_pending();
      continue;
    }
    tree[path.substr(root.size() + 1)] = at->is_directory() ? "<dir>" : ReadFile(ustring(path));
  }
  return tree;
}

class ClientProcess {
 public:
  struct Options {
    bool tls = false;
    bool merge = false;     // "sync_mode"
    std::string root = {};  // empty: a folder of the client's own
    std::string white_list = "*";
    int build = 3317;
    std::string remote_path = "/";
    int port = 0;             // of a way to the server; 0: the server's own
    std::string levels = {};  // further lines of the log levels
    std::vector<ustring> program = {ustring(DAEMON)};  // with the words before its configuration
    std::function<void(PObject&)> way = {};  // adds to "link_connection" what leads to the server
    std::string token = {};                  // empty: the one of the server's user
  };

  ClientProcess(const ServerProcess& server, std::string name, Options options)
      : server_(server),
        name_(std::move(name)),
        options_(std::move(options)),
        ui_(29'000),
        home_(ui_.port(), "worker_count = 3\n") {
    if (options_.root.empty()) options_.root = (folder_ / "root").str();
    fs::create_directories(options_.root);
    fs::create_directories((folder_ / "config/conf").str());
    SetRules("");
    WriteFile(folder_ / "config/conf/force-hash-check-list.filter", kVersion);
    WriteFile(folder_ / "config/conf/whitelist.filter",
              std::string(kVersion) + "[File]\nwhite_ext = \"" + options_.white_list + "\"\n");
    WriteFile(home_.folder / "levels",
              "worker_debug = 7\nsyncer_debug = 6\nevent_list_debug = 4\n" + options_.levels);
    listening_ = std::thread([this] { Listen(); });
    Start();
  }
  ClientProcess(const ServerProcess& server, std::string name)
      : ClientProcess(server, std::move(name), Options()) {}
  ~ClientProcess() {
    if (running_) Stop();
    done_ = true;
    // Wakes the listener.
    PObject nothing;
    nothing["end"] = 1;
    IPCSender sender;
    PObject reply;
    if (sender.connect(ui_.port()) == 0) (void)sender.send(nothing, false, reply);
    listening_.join();
    if (::testing::Test::HasFailure()) KeepLog();
  }
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;

  void Start() {
    port_ = 0;
    std::vector<ustring> words = options_.program;
    words.push_back(home_.conf);
    ASSERT_TRUE(platform::process().Spawn(words, folder_ / "out", child_).ok());
    running_ = true;
    ASSERT_TRUE(Eventually([this] { return port_ != 0; }));
    Tell("link");
    AddConnection();
    AddSession(options_.merge);
  }
  // In order.
  void Stop() {
    Tell("stop");
    int status = -1;
    EXPECT_TRUE(platform::process().WaitForExit(child_, 60'000, status));
    EXPECT_EQ(status, 0);
    running_ = false;
  }
  // At once, wherever it is.
  void Kill() {
    int status = 0;
    (void)platform::process().Kill(child_);
    EXPECT_TRUE(platform::process().WaitForExit(child_, 60'000, status));
    running_ = false;
  }
  // Whether it has ended by itself; `status` is then its exit status.
  bool HasEnded(int& status) {
    if (!running_ || !platform::process().WaitForExit(child_, 0, status)) return false;
    running_ = false;
    return true;
  }
  bool is_running() const { return running_; }
  std::int64_t pid() const { return child_.pid; }

  PObject Tell(const char* action, PObject request = PObject()) {
    request["action"] = action;
    return LocalUi::Ask(port_, request);
  }
  PObject TellSession(const char* action) {
    PObject request;
    request["session_id"] = 1;
    return Tell(action, request);
  }
  void AddConnection() { EXPECT_FALSE(Tell("link_connection", Connection()).hasMember("error")); }
  // What the UI does when the server has become another build, or wants another token.
  void ReloadConnection(int build, const std::string& token = "") {
    options_.build = build;
    options_.token = token;
    EXPECT_FALSE(Tell("reload_connection", Connection()).hasMember("error"));
  }
  PObject Connection() const {
    PObject request;
    request["connection_id"] = 5;
    request["server_ip"] = "127.0.0.1";
    request["server_port"] = options_.port != 0 ? options_.port : server_.port;
    request["session"] = ustring(options_.token.empty() ? server_.token : options_.token);
    request["use_ssl"] = options_.tls;
    request["ssl_allow_untrust"] = true;
    request["computer_name"] = ustring(name_);
    request["package_version"] = options_.build;
    if (options_.way) options_.way(request);
    return request;
  }
  PObject AddSession(bool merge) {
    PObject request;
    request["connection_id"] = 5;
    request["session_id"] = 1;
    request["view_id"] = 1;
    request["config_path"] = folder_ / "config";
    request["sync_folder"] = ustring(options_.root);
    request["remote_path"] = ustring(options_.remote_path);
    request["sync_mode"] = merge;
    PObject reply = Tell("add_session", request);
    EXPECT_FALSE(reply.hasMember("error")) << reply.toString().str();
    return reply;
  }
  PObject Session() {
    const PObject status = Tell("get_status");
    const auto& sessions = status["session_list"].asArray();
    return sessions.empty() ? PObject() : sessions.front();
  }
  // `sections`: what the session's black list holds.
  void SetRules(const std::string& sections) {
    WriteFile(folder_ / "config/conf/blacklist.filter", kVersion + sections);
  }
  void ReloadRules() {
    PObject request;
    request["session_id"] = 1;
    request["do_reload_filter"] = true;
    const PObject reply = Tell("reload_session", request);
    EXPECT_EQ(reply["ack"].asString(), "ok");
    EXPECT_FALSE(reply.hasMember("error")) << reply.toString().str();
  }
  // For the sessions that are added from now on.
  void SetMerge(bool merge) { options_.merge = merge; }

  const std::string& root() const { return options_.root; }
  ustring operator/(const std::string& path) const { return ustring(options_.root + "/" + path); }
  std::string working_directory() const { return options_.root + "/.ZentrovaWorkingDirectory"; }
  std::string config() const { return (folder_ / "config").str(); }
  Tree Files() const { return ReadTree(options_.root); }
  std::string Log() const { return ReadFile(home_.log); }
  // Copies logs, output and databases.
  void KeepLogs(const std::string& folder) const {
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    constexpr auto kAll = fs::copy_options::recursive | fs::copy_options::overwrite_existing;
    fs::copy(home_.folder.path(), folder, kAll, ignored);
    fs::copy(config(), folder + "/config", kAll, ignored);
    fs::copy((folder_ / "out").str(), folder + "/out", kAll, ignored);
  }

  // The number up to which the session has applied what the server told.
  std::uint64_t StoredNumber() const {
    std::uint64_t number = 0;
    Query("SELECT value FROM config_table WHERE key = 'sync_id';", [&](sqlite3_stmt* row) {
      number = static_cast<std::uint64_t>(sqlite3_column_int64(row, 0));
    });
    return number;
  }
  // The server's number of the version of a path that was last synced; 0 for none.
  std::uint64_t Version(const std::string& path) const {
    std::uint64_t number = 0;
    Query("SELECT syncID FROM event_table WHERE path = '" + path + "';", [&](sqlite3_stmt* row) {
      number = static_cast<std::uint64_t>(sqlite3_column_int64(row, 0));
    });
    return number;
  }
  void Query(const std::string& sql, const std::function<void(sqlite3_stmt*)>& each) const {
    sqlite3* db = nullptr;
    const std::string path = config() + "/db/event-db.sqlite";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
      sqlite3_busy_timeout(db, 10'000);
      sqlite3_stmt* statement = nullptr;
      if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) each(statement);
      }
      sqlite3_finalize(statement);
    }
    sqlite3_close(db);
  }
  // How often the UI was told of an error of session or connection.
  int ToldError(int code) const {
    const std::lock_guard lock(mutex_);
    const auto found = told_.find(code);
    return found == told_.end() ? 0 : found->second;
  }
  // Whether it was told of a file that is locked.
  bool ToldLocked(const std::string& path) const {
    const std::lock_guard lock(mutex_);
    return locked_.contains(path);
  }
  // What transfers have left, or are using, in the working directory.
  std::vector<std::string> TemporaryFiles() const {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(working_directory())) {
      const std::string name = Utf8(item.path().filename());
      if (name != "#ZentRecycle" && name != "#RootId") names.push_back(name);
    }
    return names;
  }

 private:
  static constexpr char kVersion[] = "[Version]\nmajor = 1\nminor = 0\n";

  void Listen() {
    while (!done_) {
      PObject message;
      if (!ui_.TryReceive(message)) continue;
      if (message.hasMember("daemon_port")) port_ = message["daemon_port"].asInt32();
      const std::lock_guard lock(mutex_);
      const ustring what = message["notify"].asString();
      if (what == "locked_file") locked_.insert(message["path"].asString().str());
      if (what == "error") ++told_[message["error_type"].asInt32()];
    }
  }
  // For whoever looks into a failure.
  void KeepLog() const {
    const fs::path kept =
        fs::temp_directory_path() /
        ("tolven-failed-" + name_ + "-" + Utf8(fs::path(folder_.path()).filename()) + ".log");
    std::error_code error;
    fs::copy_file(home_.log.str(), kept, fs::copy_options::overwrite_existing, error);
    std::printf("the log of %s is in %s\n", name_.c_str(), Utf8(kept).c_str());
  }

  const ServerProcess& server_;
  const std::string name_;
  Options options_;
  TempFolder folder_;
  LocalUi ui_;
  DaemonHome home_;
  platform::ChildProcess child_;
  std::thread listening_;
  std::atomic<bool> done_{false};
  std::atomic<int> port_{0};
  bool running_ = false;
  mutable std::mutex mutex_;
  std::map<int, int> told_;  // errors by code
  std::set<std::string> locked_;
};

}  // namespace tolven::test

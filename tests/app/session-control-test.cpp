// Sessions under control: the real tasks but for the workers, and no server that answers.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <set>
#include <thread>
#include <utility>

#include "client/core/app.h"
#include "client/core/connection-manager.h"
#include "client/core/event-generator.h"
#include "client/core/interruptible-task.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "daemon-home.h"
#include "lib/black-list2.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-dir-watch.h"
#include "support/system.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNoRules = "[Version]\nmajor = 1\nminor = 0\n";

// Takes no events and tells when it is interrupted for session 1.
class IdleWorker : public InterruptibleTask {
 public:
  explicit IdleWorker(const std::function<void()>& interrupted) : interrupted_(interrupted) {}
  using InterruptibleTask::SetAbort;
  void SetAbort(const AbortFilter& filter, const shared_pointer<Barrier>&) override {
    if (filter.MatchSession(1)) interrupted_();
  }
  void GetWorkingStatus(std::uint64_t&, ustring&, WorkingType& type, std::uint64_t&,
                        std::uint64_t&) override {
    type = W_TYPE_NONE;
  }
  void DoTask() override {}

 private:
  const std::function<void()>& interrupted_;
};

class SessionControl : public testing::Test {
 protected:
  SessionControl() {
    platform::SetDirWatch(&watches_);
    home_.Load();
    for (const char* name : {"root", "root2", "config/conf", "config2/conf"}) {
      fs::create_directories((folder_ / name).str());
    }
    for (const char* config : {"config", "config2"}) {
      for (const char* list : {"blacklist", "whitelist", "force-hash-check-list"}) {
        WriteList(list, kNoRules, config);
      }
    }
    EXPECT_FALSE(Do("link").hasMember("error"));
  }
  ~SessionControl() override {
    Do("unlink");
    platform::SetDirWatch(nullptr);
  }

  PObject Do(const char* action, PObject request = PObject(PObject::TYPE_MAP)) {
    request["action"] = action;
    PObject result;
    app_.handle_control(request, result);
    return result;
  }
  std::string ErrorOf(const char* action, const PObject& request) {
    return Do(action, request)["error"].asString().str();
  }
  PObject Session(int id, const ustring& root, const char* config = "config") {
    PObject request;
    request["connection_id"] = 5;
    request["session_id"] = id;
    request["view_id"] = 1;
    request["sync_folder"] = root;
    request["config_path"] = folder_ / config;
    return request;
  }
  static PObject Reload(int id, const char* key, const PObject& value) {
    PObject request;
    request["session_id"] = id;
    request[key] = value;
    return request;
  }
  void WriteList(const char* name, const std::string& text, const char* config = "config") {
    test::WriteFile(folder_ / config + "/conf/" + name + ".filter", text);
  }
  static Registry::Entry Entry(int id) {
    Registry::Entry entry;
    EXPECT_EQ(Registry::getInstance().Find(static_cast<std::uint64_t>(id), entry), 1);
    return entry;
  }
  // What is pending for all sessions, as "+/path", "-/path", and "<" in front for the server's.
  std::set<std::string> Pending() {
    EventManager& manager = EventManager::getInstance();
    std::set<std::string> pending;
    Event event;
    while (manager.PullEvent(&task_, event) == 0) {
      const char* what = event.m_type == Event::EV_REMOVE ? "-" : "+";
      pending.insert(std::string(event.isRescan()        ? "*"
                                 : event.isServerEvent() ? "<"
                                                         : "") +
                     what + event.m_path.str());
      (void)manager.DoneEvent(&task_, event);
    }
    return pending;
  }

  platform::FaultPlan plan_;
  platform::ForwardingDirWatchService watches_{platform::dir_watch(), plan_.hook()};
  test::TempFolder folder_;
  test::DaemonHome home_{26'500, "worker_count = 2\n"};
  std::function<void()> interrupted_ = [] {};
  TolvenhubApp app_{[this](std::size_t workers) {
    TaskTable table = MakeTasks(workers);
    for (std::size_t i = TASK_WORKER; i < table.size(); ++i) {
      table[i] = std::make_unique<IdleWorker>(interrupted_);
    }
    return table;
  }};
  Task task_;
};

TEST_F(SessionControl, AddsOnlyWhatCanRunAndLeavesNothingOfTheRest) {
  const ustring root = folder_ / "root";
  for (const char* key : {"connection_id", "session_id", "view_id"}) {
    PObject request = Session(1, root);
    request.asMap().erase(key);
    EXPECT_EQ(ErrorOf("add_session", request), "Invalid parameters.") << key;
  }
  EXPECT_EQ(ErrorOf("add_session", Session(1, folder_ / "none")),
            "Failed to create registry entry.");
  EXPECT_EQ(ErrorOf("add_session", Session(1, root, "none")), "Failed to create registry entry.");
  WriteList("whitelist", "[Nonsense]\n");
  EXPECT_EQ(ErrorOf("add_session", Session(1, root)), "Failed to create registry entry.");
  WriteList("whitelist", kNoRules);
  plan_.FailNth("Open", 1, platform::ErrorKind::kTooMany);
  EXPECT_EQ(ErrorOf("add_session", Session(1, root)), "Failed to create registry entry.");
  EXPECT_EQ(Registry::getInstance().Size(), 0U);

  ASSERT_EQ(ErrorOf("add_session", Session(1, root + "//")), "");
  const Registry::Entry first = Entry(1);
  EXPECT_EQ(first.local_path, root);
  EXPECT_TRUE(first.recursive && !first.read_only && first.node_id == 1);
  EXPECT_EQ(first.remote_path, "/");
  EXPECT_EQ(first.perm_mode, PERM_SYNC_ALL);
  // The same folder again, also by another way there; nested ones and the id of all.
  EXPECT_EQ(ErrorOf("add_session", Session(2, root, "config2")), "Sync folder is in use.");
  if (test::MakeLink(folder_.path(), (folder_ / "way").str())) {
    EXPECT_EQ(ErrorOf("add_session", Session(2, folder_ / "way/root", "config2")),
              "Sync folder is in use.");
  }
  EXPECT_EQ(ErrorOf("add_session", Session(0, folder_ / "root2", "config2")),
            "Invalid parameters.");
  EXPECT_EQ(Registry::getInstance().Size(), 1U);
  ASSERT_EQ(ErrorOf("add_session", Session(2, folder_ / "root2", "config2")), "");

  // A known id is a new session, whose folder is watched like that of the old one.
  ASSERT_EQ(ErrorOf("add_session", Session(1, root)), "");
  EXPECT_NE(Entry(1).generation, first.generation);
  test::WriteFile(root + "/seen", "x");
  while (!Pending().contains("+/seen")) std::this_thread::yield();

  PObject wrong;
  wrong["session_id"] = 77;
  EXPECT_EQ(ErrorOf("remove_session", wrong), "Invalid session.");
  EXPECT_EQ(ErrorOf("reload_session", wrong), "Invalid session.");
  EXPECT_EQ(ErrorOf("reload_session", PObject(PObject::TYPE_MAP)), "Invalid parameter");
  EXPECT_EQ(Registry::getInstance().Size(), 2U);
  wrong["session_id"] = 0;
  EXPECT_EQ(ErrorOf("remove_session", wrong), "");
  EXPECT_EQ(Registry::getInstance().Size(), 0U);
}

TEST_F(SessionControl, AnEmptyFolderInPlaceOfTheSyncedOneIsRefused) {
  const ustring root = folder_ / "root";
  ASSERT_EQ(ErrorOf("add_session", Session(1, root)), "");
  DBFileInfo row;
  row.path = "/file";
  row.syncID = row.maxSyncID = 3;
  ASSERT_EQ(Entry(1).event_db->setEventInfo(row), 0);
  PObject all;
  all["session_id"] = 0;
  Do("remove_session", all);
  fs::rename(root.str(), (folder_ / "elsewhere").str());
  fs::create_directory(root.str());
  EXPECT_EQ(ErrorOf("add_session", Session(1, root)), "Sync folder is empty or not mounted.");
  EXPECT_TRUE(fs::is_empty(root.str()));
  fs::remove(root.str());
  fs::rename((folder_ / "elsewhere").str(), root.str());
  EXPECT_EQ(ErrorOf("add_session", Session(1, root)), "");
}

TEST_F(SessionControl, ReloadsEverySettingOfARunningSession) {
  ASSERT_EQ(ErrorOf("add_session", Session(1, folder_ / "root")), "");
  int interrupts = 0;
  interrupted_ = [&interrupts] { ++interrupts; };
  EXPECT_EQ(ErrorOf("reload_session", Reload(1, "read_only", 1)), "");
  EXPECT_TRUE(Entry(1).read_only);
  EXPECT_EQ(interrupts, 1);
  EXPECT_EQ(Pending(), std::set<std::string>());
  EXPECT_EQ(ErrorOf("reload_session", Reload(1, "read_only", 0)), "");
  EXPECT_FALSE(Entry(1).read_only);
  EXPECT_EQ(Pending(), (std::set<std::string>{"+/", "*+/"}));
  for (const auto& [text, mode] : {std::pair("domain-only", PERM_SYNC_DOMAIN_ONLY),
                                   std::pair("other", PERM_SYNC_EXEC_BIT_ONLY)}) {
    EXPECT_EQ(ErrorOf("reload_session", Reload(1, "perm_mode", PObject(text))), "");
    EXPECT_EQ(Entry(1).perm_mode, mode);
  }
  EXPECT_EQ(Pending(), std::set<std::string>());

  PObject event;
  event["session_id"] = 1;
  for (const auto& [type, path] :
       {std::pair("upload", "/up"), std::pair("remove", "/gone"), std::pair("rename", "/name"),
        std::pair("upload", "relative"), std::pair("remove", "/../outside"),
        std::pair("remove", "/a//b")}) {
    event["type"] = type;
    event["path"] = path;
    EXPECT_EQ(ErrorOf("add_event", event), "");
  }
  EXPECT_EQ(Pending(), (std::set<std::string>{"+/up", "-/gone"}));
}

TEST_F(SessionControl, ChangesAConnectionUnderARunningExchange) {
  const auto request = [](int id, const char* server) {
    PObject values;
    values["connection_id"] = id;
    values["server_ip"] = server;
    values["server_port"] = 1;  // nobody listens there
    return values;
  };
  const auto server_of = [](int id) {
    Connection connection;
    const int found =
        ConnectionManager::getInstance().get(static_cast<std::uint64_t>(id), connection);
    return found < 0 ? "none" : connection.getConnectionInfo().server_ip.str();
  };
  for (const char* verb : {"link_connection", "reload_connection"}) {
    EXPECT_EQ(ErrorOf(verb, PObject(PObject::TYPE_MAP)), "Invalid parameters");
  }
  EXPECT_EQ(ErrorOf("link_connection", request(5, "127.0.0.1")), "");
  EXPECT_EQ(ErrorOf("link_connection", request(6, "127.0.0.1")), "");
  EXPECT_EQ(ErrorOf("link_connection", request(5, "127.0.0.9")), "");
  EXPECT_EQ(server_of(5), "127.0.0.1") << "one that is there stays as it is";
  ASSERT_EQ(ErrorOf("add_session", Session(1, folder_ / "root")), "");

  // The change waits for the exchange to end, whose channel then is of no more use.
  Connection running;
  ASSERT_EQ(ConnectionManager::getInstance().get(5, running), 0);
  Connection::ChannelStat stat = running.pop();
  stat.setAliveInterval(3600);
  auto reload = std::async(std::launch::async,
                           [&] { return ErrorOf("reload_connection", request(5, "127.0.0.2")); });
  EXPECT_EQ(reload.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  running.push(stat);
  EXPECT_EQ(reload.get(), "");
  EXPECT_EQ(server_of(5), "127.0.0.2");
  EXPECT_FALSE(running.isConnected2());

  EXPECT_EQ(ErrorOf("reload_connection", request(77, "127.0.0.2")), "");
  EXPECT_EQ(server_of(77), "none");
  EXPECT_EQ(ErrorOf("unlink_connection", request(77, "")), "");
  EXPECT_EQ(ErrorOf("unlink_connection", request(5, "")), "");
  EXPECT_EQ(server_of(5) + server_of(6), "none127.0.0.1");
  EXPECT_EQ(Registry::getInstance().Size(), 1U) << "sessions stay until they are removed";
  EXPECT_EQ(ErrorOf("unlink_connection", request(0, "")), "");
  EXPECT_EQ(server_of(6), "none");
}

TEST_F(SessionControl, OtherRulesBringBackWhatWasParkedInBothDirections) {
  WriteList("blacklist", std::string(kNoRules) + "[Common]\nblack_dir_prefix = \"/x\"\n");
  ASSERT_EQ(ErrorOf("add_session", Session(1, folder_ / "root")), "");
  Event event;
  event.m_type = Event::EV_MODIFY;
  event.m_path = "/x/ours";
  const auto type = FilteredEvent::FILTERED_SELECTIVE_SYNC;
  FileEventDB& db = *Entry(1).event_db;
  ASSERT_EQ(db.setLocalFilteredEvent(FileEventDB::ToFilteredEvent(event, type)), 0);
  event.m_path = "/x/theirs";
  event.setServerEvent();
  ASSERT_EQ(db.setServerFilteredEvent(FileEventDB::ToFilteredEvent(event, type)), 0);

  WriteList("blacklist", kNoRules);
  const PObject reload = Reload(1, "do_reload_filter", 1);
  for (const auto& [list, error] :
       {std::pair("force-hash-check-list", "Failed to load force hash check list."),
        std::pair("whitelist", "Failed to load white list."),
        std::pair("blacklist", "Failed to load black list.")}) {
    WriteList(list, "nonsense");
    EXPECT_EQ(ErrorOf("reload_session", reload), error);
    EXPECT_NE(Entry(1).black_list->TestFilePath("/x/ours"), 0) << "the old rules stay";
  }
  EXPECT_EQ(Pending(), std::set<std::string>());
  for (const char* list : {"blacklist", "whitelist", "force-hash-check-list"}) {
    WriteList(list, kNoRules);
  }
  // Those who still work by the old rules are stopped first, and find the new ones.
  bool first = true;
  interrupted_ = [&] {
    EXPECT_EQ(Entry(1).black_list->TestFilePath("/x/ours"), 0);
    if (std::exchange(first, false)) {
      EXPECT_EQ(EventManager::getInstance().GetAllPendingEventCount(1), 0);
    }
  };
  EXPECT_EQ(ErrorOf("reload_session", reload), "");
  EXPECT_FALSE(first);
  EXPECT_EQ(Pending(), (std::set<std::string>{"+/x/ours", "<+/x/theirs"}));
}

TEST_F(SessionControl, FoldersThatTakeNoPartAnyMoreAreNotRemovedOnTheServer) {
  const ustring root = folder_ / "root";
  fs::create_directories((root + "/dir/deep").str());
  test::WriteFile(root + "/dir/deep/file", "x");
  test::WriteFile(root + "/top", "x");
  ASSERT_EQ(ErrorOf("add_session", Session(1, root)), "");
  FileEventDB& db = *Entry(1).event_db;
  for (const char* path : {"/dir", "/dir/deep", "/dir/deep/file", "/top"}) {
    DBFileInfo row;
    row.path = path;
    row.syncID = row.maxSyncID = 3;
    row.fileType = std::string(path).starts_with("/dir") && !std::string(path).ends_with("e");
    ASSERT_EQ(db.setEventInfo(row), 0);
  }
  ASSERT_EQ(db.setSyncId(9), 0);
  int interrupts = 0;
  interrupted_ = [&] {
    if (++interrupts == 1) {
      EXPECT_TRUE(fs::exists((root + "/dir/deep/file").str()));
    }
  };
  EXPECT_EQ(ErrorOf("reload_session", Reload(1, "recursive", 0)), "");
  EXPECT_FALSE(Entry(1).recursive);
  EXPECT_FALSE(fs::exists((root + "/dir").str()));
  EXPECT_TRUE(fs::exists((root + "/top").str()));
  EXPECT_TRUE(fs::exists((root + "/.ZentrovaWorkingDirectory").str()));
  // Without a row, no removal goes to the server, whenever the watcher tells of it.
  DBFileInfo info;
  for (const char* path : {"/dir", "/dir/deep", "/dir/deep/file"}) {
    EXPECT_EQ(db.getEventInfo(path, info), 0) << path;
  }
  EXPECT_EQ(db.getEventInfo("/top", info), 1);

  // What was removed in a folder meanwhile does not count either once it takes part again.
  Registry::Entry entry = Entry(1);
  PushLocalRemoveEvent(entry, "/other", true);
  EXPECT_EQ(ErrorOf("reload_session", Reload(1, "recursive", 1)), "");
  EXPECT_TRUE(Entry(1).recursive);
  std::uint64_t sync_id = 9;
  EXPECT_GE(db.getSyncId(sync_id), 0);
  EXPECT_EQ(sync_id, 0U);
  const auto pending = Pending();
  EXPECT_FALSE(pending.contains("-/other"));
  EXPECT_TRUE(pending.contains("*+/"));

  // Another folder in the place of the session's own keeps what it has.
  std::error_code is_refused;  // some systems let nobody move a folder that is watched
  fs::rename(root.str(), (folder_ / "away").str(), is_refused);
  if (is_refused) return;
  fs::create_directories((root + "/foreign/.ZentrovaWorkingDirectory").str());
  EXPECT_EQ(ErrorOf("reload_session", Reload(1, "recursive", 0)), "");
  EXPECT_FALSE(Entry(1).recursive);
  EXPECT_TRUE(fs::exists((root + "/foreign").str()));
}

}  // namespace
}  // namespace tolven

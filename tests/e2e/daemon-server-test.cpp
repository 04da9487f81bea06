// The real daemon against the real server.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "app/daemon-home.h"
#include "e2e/server-process.h"
#include "platform/process.h"
#include "support/local-ui.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

class DaemonServer : public ::testing::Test {
 protected:
  DaemonServer() : ui_(29'000), home_(ui_.port()) {
    fs::create_directories((folder_ / "root").str());
    fs::create_directories((folder_ / "config/conf").str());
    const std::string empty = "[Version]\nmajor = 1\nminor = 0\n";
    test::WriteFile(folder_ / "config/conf/blacklist.filter", empty);
    test::WriteFile(folder_ / "config/conf/force-hash-check-list.filter", empty);
    test::WriteFile(folder_ / "config/conf/whitelist.filter",
                    empty + "[File]\nwhite_ext = \"*\"\n");
    EXPECT_TRUE(
        platform::process().Spawn({ustring(DAEMON), home_.conf}, folder_ / "out", child_).ok());
    port_ = ui_.Receive()["daemon_port"].asInt32();
    Tell("link");
  }
  ~DaemonServer() override {
    PObject request;
    request["action"] = "stop";
    (void)ui_.Ask(port_, request);
    int status = -1;
    EXPECT_TRUE(platform::process().WaitForExit(child_, 60'000, status));
    EXPECT_EQ(status, 0);
  }

  PObject Tell(const char* action, PObject request = PObject(PObject::TYPE_MAP)) {
    request["action"] = action;
    return ui_.Ask(port_, request);
  }
  void AddConnection(bool tls) {
    PObject request;
    request["connection_id"] = 5;
    request["server_ip"] = "127.0.0.1";
    request["server_port"] = server_.port;
    request["session"] = ustring(server_.token);
    request["use_ssl"] = tls;
    request["ssl_allow_untrust"] = true;
    request["package_version"] = 3317;
    EXPECT_FALSE(Tell("link_connection", request).hasMember("error"));
  }
  PObject AddSession(const ustring& root) {
    PObject request;
    request["connection_id"] = 5;
    request["session_id"] = 1;
    request["view_id"] = 1;
    request["config_path"] = folder_ / "config";
    request["sync_folder"] = root;
    return Tell("add_session", request);
  }
  PObject Session() {
    const PObject status = Tell("get_status");
    const auto& sessions = status["session_list"].asArray();
    return sessions.empty() ? PObject() : sessions.front();
  }

  test::ServerProcess server_;
  test::TempFolder folder_;
  test::LocalUi ui_;
  test::DaemonHome home_;
  platform::ChildProcess child_;
  int port_ = 0;
};

TEST_F(DaemonServer, ASessionComesAndGoesWithItsFolder) {
  AddConnection(true);
  EXPECT_EQ(AddSession(folder_ / "missing")["error"].asString(),
            "Failed to create registry entry.");
  const ustring root = folder_ / "root";
  EXPECT_FALSE(AddSession(root + "/").hasMember("error"));
  EXPECT_EQ(Session()["session_id"].asUInt64(), 1U);
  EXPECT_TRUE(fs::exists((root + "/.ZentrovaWorkingDirectory/#ZentRecycle").str()));
  // The server is asked as soon as there is a session.
  while (Tell("get_status")["connection_list"].asArray().front()["status"].asString() !=
         "connected") {
    std::this_thread::yield();
  }
  // What happens in the folder of a paused session stays pending.
  PObject pause;
  pause["session_id"] = 1;
  Tell("pause", pause);
  test::WriteFile(root + "/new", "content");
  while (Session()["unfinished_files"].asUInt64() == 0) std::this_thread::yield();
  EXPECT_EQ(Session()["status"].asString(), "pause");
  Tell("remove_session", pause);
  EXPECT_EQ(Session()["session_id"].asUInt64(), 0U);
}

}  // namespace
}  // namespace tolven

// The daemon as a process.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "daemon-home.h"
#include "platform/process.h"
#include "support/local-ui.h"

namespace tolven {
namespace {

using test::DaemonHome;
using test::ReadFile;

constexpr int kPatienceMs = 60'000;
constexpr const char* kUsage =
    "* Controling application: \n    Control <action>\n* Controling session: \n"
    "    ControlSession <action> <session_id> \n* Supported actions: \n    stop\n    link\n"
    "    unlink\n    pause\n    resume\n    reload_setting\n    reload_session\n    add_session\n"
    "    remove_session\n";

class Daemon {
 public:
  explicit Daemon(std::vector<ustring> words) {
    words.insert(words.begin(), ustring(TOLVEN_DAEMON));
    EXPECT_TRUE(platform::process().Spawn(words, folder_ / "out", child).ok());
  }
  ~Daemon() {
    if (!ended_) (void)platform::process().Kill(child);
    int status = 0;
    if (!ended_) platform::process().WaitForExit(child, kPatienceMs, status);
  }
  int ExitStatus() {
    int status = -1000;
    ended_ = platform::process().WaitForExit(child, kPatienceMs, status);
    EXPECT_TRUE(ended_);
    return status;
  }
  std::string Output() const {
    std::string output = ReadFile(folder_ / "out");
    std::erase(output, '\r');
    return output;
  }

  platform::ChildProcess child;

 private:
  test::TempFolder folder_;
  bool ended_ = false;
};

TEST(DaemonProcess, LivesFromTheFirstMessageToStop) {
  test::LocalUi ui(28'000);
  DaemonHome home(ui.port());
  Daemon daemon({home.conf});
  const int port = ui.Receive()["daemon_port"].asInt32();
  EXPECT_GT(port, ui.port());
  EXPECT_EQ(ReadFile(home.pid), std::to_string(daemon.child.pid) + "\n");
  EXPECT_EQ(daemon.Output(), kUsage);

  PObject request;
  for (const char* action : {"link", "get_status"}) {
    request["action"] = action;
    EXPECT_EQ(test::LocalUi::Ask(port, request)["ack"].asString(), "ok");
  }
  request["action"] = "stop";
  EXPECT_TRUE(test::LocalUi::Ask(port, request).isNull());
  EXPECT_EQ(daemon.ExitStatus(), 0);
  EXPECT_FALSE(std::filesystem::exists(home.pid.str()));

  const std::string log = ReadFile(home.log);
  std::size_t place = 0;
  for (const char* line :
       {"daemon is now running in the background", "daemon is listening on local port",
        "Link tolven hub daemon, version:3317", "totally 7 tasks", "unlink daemon"}) {
    place = log.find(line, place);
    EXPECT_NE(place, std::string::npos) << line << " is missing in\n" << log;
  }
}

TEST(DaemonProcess, EndsInOrderWhenItCannotListen) {
  int port = 0;
  { port = test::LocalUi(29'000).port(); }
  DaemonHome alone(port), path(port, "socket_path = /tmp/socket\nis_foreground = true\n");
  Daemon no_ui({alone.conf, "ignored"}), no_socket({path.conf});
  EXPECT_EQ(no_ui.ExitStatus(), 0);
  EXPECT_EQ(no_socket.ExitStatus(), 0);
  EXPECT_FALSE(std::filesystem::exists(alone.pid.str()));
  const std::string log = ReadFile(alone.log);
  const std::size_t first = log.find("Failed to connect to port : " + std::to_string(port));
  EXPECT_NE(log.find("failed to listen on port local_port.", first), std::string::npos) << log;
  EXPECT_NE(no_socket.Output().find("failed to listen on port domain socket '/tmp/socket'"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(path.log.str()));
}

TEST(DaemonProcess, RefusesToStart) {
  DaemonHome home(28'500), no_log(28'500, "log_file_path = /nowhere/log\n");
  Daemon too_many({home.conf, "2", "3"}), no_argument({""}), log_fails({no_log.conf});
  for (Daemon* daemon : {&too_many, &no_argument, &log_fails}) {
    EXPECT_EQ(daemon->ExitStatus() & 0xFF, 0xFF);
  }
  EXPECT_EQ(too_many.Output() + no_argument.Output(), "");
  EXPECT_FALSE(std::filesystem::exists(home.log.str()));
  EXPECT_FALSE(std::filesystem::exists(home.pid.str()));
  EXPECT_EQ(log_fails.Output(), "Tolven Hub: client is not enabled " +
                                    (no_log.folder / "levels").str() + " /nowhere/log\n");
}

}  // namespace
}  // namespace tolven

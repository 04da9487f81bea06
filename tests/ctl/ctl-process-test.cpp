// The real tolvenctl with the real daemon, in a home of its own.

#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "platform/process.h"
#include "server/protocol/certificate.h"
#include "support/program.h"
#include "support/system.h"
#include "support/temp-folder.h"
#include "support/test-proxy.h"
#include "support/test-relay.h"

namespace tolven::ctl {
namespace {

constexpr int kKilled = 137;  // the exit status

using test::ReadFile;
using test::TempFolder;

class CtlProcess : public testing::Test {
 protected:
  CtlProcess() { test::UseDataHome(home_.path()); }
  ~CtlProcess() override {
    int status = 0;
    if (resident_.pid > 0 && !platform::process().WaitForExit(resident_, 0, status)) {
      Run("stop");
      if (!platform::process().WaitForExit(resident_, 20'000, status)) {
        (void)platform::process().Kill(resident_);
        (void)platform::process().WaitForExit(resident_, 20'000, status);
      }
    }
  }

  // A command's exit status; what it printed goes to `output`.
  int Run(const std::string& words, std::string* output = nullptr) {
    const test::Outcome outcome = test::RunLine(TOLVENCTL, words);
    if (output != nullptr) *output = outcome.output;
    return outcome.status;
  }

  void StartResident(std::vector<ustring> words = {"run"}) {
    words.insert(words.begin(), TOLVENCTL);
    words.insert(words.end(), {"--daemon", TOLVEN_DAEMON});
    ASSERT_TRUE(platform::process().Spawn(words, home_ / "resident.out", resident_).ok());
    WaitFor([this] { return Run("status") == 0; });
  }

  // Waits until the resident shows the text in its status.
  void AwaitStatus(const std::string& text) {
    std::string output;
    WaitFor([&] { return Run("status", &output) == 0 && output.find(text) != std::string::npos; });
  }

  // The configuration that is kept, without what the system decides.
  Json::Value Store() const {
    Json::Value value;
    std::istringstream(ReadFile(home_ / "Tolvenhub/tolvenctl.json")) >> value;
    return value;
  }

  int ResidentStatus() {
    int status = -1;
    EXPECT_TRUE(platform::process().WaitForExit(resident_, 60'000, status));
    resident_ = {};
    return status;
  }

  static void WaitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  std::int64_t DaemonPid() const {
    const std::string text = ReadFile(home_ / "Tolvenhub/tolven-daemon.pid");
    return text.empty() ? 0 : std::stoll(text);
  }

  const TempFolder home_;
  platform::ChildProcess resident_;
};

TEST_F(CtlProcess, ServesCommandsUntilItIsStopped) {
  std::string output;
  EXPECT_EQ(Run("status", &output), 1);
  EXPECT_EQ(output, "tolvenctl: tolvenctl is not running; start it with \"tolvenctl run\"\n");

  StartResident();
  EXPECT_EQ(Run("run", &output), 1);
  EXPECT_NE(output.find("already running"), std::string::npos);
  EXPECT_EQ(Run("raw '{\"action\": \"get_status\"}'", &output), 0);
  EXPECT_NE(output.find("\"session_list\" : []"), std::string::npos) << output;
  EXPECT_EQ(Run("raw '{\"action\": \"unlink\"}'"), 0);
  EXPECT_EQ(Run("raw '{\"action\": \"pause\"}'", &output), 0);
  EXPECT_NE(output.find("Daemon is not linked."), std::string::npos) << output;
  EXPECT_EQ(Run("raw '{\"action\": \"link\"}'"), 0);
  EXPECT_EQ(Run("raw nonsense", &output), 1);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
  EXPECT_EQ(Run("events"), 0);
  EXPECT_EQ(Run("nonsense"), 1);
  EXPECT_EQ(Run("raw --help"), 0);

  const std::int64_t daemon = DaemonPid();
  EXPECT_TRUE(platform::process().IsRunning(daemon));
  EXPECT_EQ(Run("stop"), 0);
  EXPECT_EQ(ResidentStatus(), 0);
  EXPECT_FALSE(platform::process().IsRunning(daemon));
  EXPECT_EQ(DaemonPid(), 0);
  EXPECT_EQ(Run("status"), 1);
}

TEST_F(CtlProcess, EndsInOrderOnCtrlC) {
  StartResident();
  const std::int64_t daemon = DaemonPid();
  test::AskToEnd(resident_.pid);
  EXPECT_EQ(ResidentStatus(), 0);
  EXPECT_FALSE(platform::process().IsRunning(daemon));
}

TEST_F(CtlProcess, TellsWhenTheDaemonDies) {
  StartResident();
  test::KillProgram(DaemonPid());
  EXPECT_EQ(ResidentStatus(), 1);
  EXPECT_NE(ReadFile(home_ / "resident.out").find("the daemon ended by itself"), std::string::npos);
  StartResident();  // and the next one starts
}

TEST_F(CtlProcess, StopsADaemonThatWasLeftBehind) {
  StartResident();
  const std::int64_t daemon = DaemonPid();
  ASSERT_TRUE(platform::process().Kill(resident_).ok());
  EXPECT_EQ(ResidentStatus(), kKilled);
  EXPECT_TRUE(platform::process().IsRunning(daemon));
  StartResident();
  EXPECT_FALSE(platform::process().IsRunning(daemon));
  EXPECT_NE(DaemonPid(), daemon);
}

TEST_F(CtlProcess, UpSyncsWithAServerOfItsOwnAndGoesOnTheNextTime) {
  const ustring folder = home_ / "docs";
  StartResident({"up", folder});
  AwaitStatus("(built in): connected");
  EXPECT_TRUE(std::filesystem::is_directory((folder + "/.ZentrovaWorkingDirectory").str()));
  std::string output;
  EXPECT_EQ(Run("add " + home_.path(), &output), 1);
  EXPECT_NE(output.find("own data"), std::string::npos) << output;
  EXPECT_EQ(Run("filter add extension tmp"), 0);
  EXPECT_EQ(Run("filter list", &output), 0);
  EXPECT_NE(output.find("extension  tmp"), std::string::npos) << output;
  EXPECT_EQ(Run("pause"), 0);
  AwaitStatus("paused");
  EXPECT_EQ(Run("set read-only on"), 0);
  EXPECT_EQ(Run("stop"), 0);
  EXPECT_EQ(ResidentStatus(), 0);
  const Json::Value store = Store();
  EXPECT_TRUE(store["sessions"][0]["paused"].asBool());

  // What could let something in again waits for a running daemon.
  EXPECT_EQ(Run("filter remove extension tmp"), 1);
  EXPECT_EQ(Run("set recursive off --yes"), 1);
  EXPECT_EQ(Run("resume"), 0);

  StartResident({"up"});
  AwaitStatus("(built in): connected");
  const Json::Value again = Store();
  ASSERT_EQ(again["sessions"].size(), 1u);
  EXPECT_EQ(again["sessions"][0]["id"], store["sessions"][0]["id"]);
  EXPECT_EQ(again["connections"][0]["token"], store["connections"][0]["token"]);
  EXPECT_EQ(again["connections"][0]["id"], store["connections"][0]["id"]);
  EXPECT_EQ(Run("status", &output), 0);
  EXPECT_NE(output.find("read-only"), std::string::npos) << output;
  EXPECT_EQ(Run("filter list", &output), 0);
  EXPECT_NE(output.find("extension  tmp"), std::string::npos) << output;

  EXPECT_EQ(Run("remove"), 1);  // nobody was there to agree
  EXPECT_EQ(Run("remove --yes"), 0);
  EXPECT_FALSE(std::filesystem::exists((home_ / "Tolvenhub/sessions/1").str()));
  EXPECT_FALSE(std::filesystem::exists((folder + "/.ZentrovaWorkingDirectory").str()));
  EXPECT_TRUE(std::filesystem::exists(folder.str()));
  EXPECT_EQ(Run("add " + folder.str()), 0);
  EXPECT_EQ(Store()["sessions"][0]["id"], 2);
}

// One home's server is the other's.
TEST_F(CtlProcess, ChecksTokenAndCertificateOfAServer) {
  StartResident({"up", home_ / "docs"});
  AwaitStatus("(built in): connected");
  const Json::Value connection = Store()["connections"][0];
  const std::string certificate = (home_ / "Tolvenhub/server/server.pem").str();

  const TempFolder other;
  test::UseDataHome(other.path());
  const std::string server =
      "add " + (other / "docs").str() + " --view 1 --server " + connection["server"].asString();
  std::string output;
  EXPECT_EQ(Run(server + " --token wrong --ca " + certificate, &output), 1);
  EXPECT_NE(output.find("refuses the login token"), std::string::npos) << output;
  const std::string token = " --token " + connection["token"].asString();
  EXPECT_EQ(Run(server + token + " --tls", &output), 1);
  EXPECT_NE(output.find("--ca"), std::string::npos) << output;
  EXPECT_EQ(Run(server + token + " --ca " + certificate + " --host-name elsewhere", &output), 1);
  EXPECT_NE(output.find("certificate is not trusted"), std::string::npos) << output;
  std::filesystem::create_directory((other / "own").str());
  ASSERT_EQ(server::EnsureCertificate(other / "own/c.pem", other / "own/c.key", "127.0.0.1"), 0);
  EXPECT_EQ(Run(server + token + " --ca " + (other / "own/c.pem").str(), &output), 1);
  EXPECT_NE(output.find("certificate is not trusted"), std::string::npos) << output;
  EXPECT_FALSE(std::filesystem::exists((other / "docs").str()));
  // A certificate of the same host beside the right one does no harm.
  test::WriteFile(other / "own/right.pem", ReadFile(ustring(certificate)));
  EXPECT_EQ(Run(server + token + " --ca " + (other / "own").str(), &output), 0) << output;
  EXPECT_EQ(Run("remove --yes"), 0);
  test::UseDataHome(home_.path());
}

// One home's server is the other's, by way of a proxy and a relay.
TEST_F(CtlProcess, UpGoesThroughAProxyAndARelay) {
  StartResident({"up", home_ / "docs"});
  AwaitStatus("(built in): connected");
  const Json::Value connection = Store()["connections"][0];
  const std::string certificate = (home_ / "Tolvenhub/server/server.pem").str();
  const test::TestProxy proxy(test::TestProxy::Wants::kBasic, {"ann", "a@b", "", ""});
  const test::TestRelay relay;
  const std::string at = "@127.0.0.1:" + std::to_string(proxy.port());

  const TempFolder other;
  test::UseDataHome(other.path());
  const std::string server = "add " + (other / "docs").str() + " --view 1 --server " +
                             connection["server"].asString() + " --token " +
                             connection["token"].asString() + " --ca " + certificate;
  const std::string tunnel = " --tunnel localhost:" + std::to_string(relay.port());
  std::string output;
  EXPECT_EQ(Run(server + tunnel + " --proxy http://ann:wrong" + at, &output), 0) << output;
  EXPECT_NE(output.find("through the proxy; it is tried again"), std::string::npos) << output;
  EXPECT_EQ(Run("remove --yes"), 0);
  EXPECT_EQ(relay.joined(), 0);
  EXPECT_EQ(Run(server + tunnel + " --proxy http://ann:a%40b" + at, &output), 0) << output;
  EXPECT_EQ(output.find("it is tried again"), std::string::npos) << output;

  const platform::ChildProcess first = std::exchange(resident_, {});
  StartResident({"up"});
  AwaitStatus(connection["server"].asString() + ": connected");
  test::WriteFile(home_ / "docs/file", "content");
  WaitFor([&] { return ReadFile(other / "docs/file") == "content"; });
  EXPECT_GE(relay.joined(), 2);
  EXPECT_TRUE(relay.problems().empty()) << relay.problems().front();
  EXPECT_TRUE(proxy.targets().contains("localhost:" + std::to_string(relay.port())));
  EXPECT_EQ(Run("stop"), 0);
  EXPECT_EQ(ResidentStatus(), 0);
  resident_ = first;
  test::UseDataHome(home_.path());
}

}  // namespace
}  // namespace tolven::ctl

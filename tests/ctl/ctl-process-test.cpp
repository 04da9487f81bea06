// The real tolvenctl with the real daemon, in a home of its own.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <thread>

#include "platform/process.h"
#include "support/temp-folder.h"

namespace tolven::ctl {
namespace {

using test::ReadFile;
using test::TempFolder;

class CtlProcess : public testing::Test {
 protected:
  CtlProcess() { setenv("XDG_DATA_HOME", home_.path().c_str(), 1); }
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
    const std::string file = (home_ / "output").str();
    const int result =
        std::system((std::string(TOLVENCTL) + " " + words + " > " + file + " 2>&1").c_str());
    if (output != nullptr) *output = ReadFile(ustring(file));
    return WEXITSTATUS(result);
  }

  void StartResident() {
    ASSERT_TRUE(
        platform::process()
            .Spawn({TOLVENCTL, "run", "--daemon", TOLVEN_DAEMON}, home_ / "resident.out", resident_)
            .ok());
    WaitFor([this] { return Run("status") == 0; });
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
  kill(static_cast<pid_t>(resident_.pid), SIGINT);
  EXPECT_EQ(ResidentStatus(), 0);
  EXPECT_FALSE(platform::process().IsRunning(daemon));
}

TEST_F(CtlProcess, TellsWhenTheDaemonDies) {
  StartResident();
  kill(static_cast<pid_t>(DaemonPid()), SIGKILL);
  EXPECT_EQ(ResidentStatus(), 1);
  EXPECT_NE(ReadFile(home_ / "resident.out").find("the daemon ended by itself"), std::string::npos);
  StartResident();  // and the next one starts
}

}  // namespace
}  // namespace tolven::ctl

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "client/core/settings.h"
#include "client/windows/detector-win-vol.h"
#include "client/windows/win-umount-notifyer.h"
#include "lib/log.h"
#include "lib/ui-ipc.h"
#include "lib/ui-report-queue.h"
#include "platform/forwarding-system.h"
#include "support/local-ui.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using platform::Status;

TEST(Umount, FindsTheSessionsOfAVolumeByLetterOrMountPoint) {
  const auto lies_on = [](const char* path, const char* drive) {
    return WinUmountNotifyer::IsOnVolume(path, drive);
  };
  EXPECT_TRUE(lies_on("E:/x", "E"));
  EXPECT_FALSE(lies_on("e:/x", "E"));
  EXPECT_FALSE(lies_on("F:/E", "E"));
  EXPECT_TRUE(lies_on("/media/e", "/media/e"));
  EXPECT_TRUE(lies_on("/media/e/x", "/media/e"));
  EXPECT_FALSE(lies_on("/media/ex", "/media/e"));
  EXPECT_TRUE(lies_on("/x", "/"));
}

// The sessions that the user interface is told of, in order.
class UmountReports : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ui_ = std::make_unique<test::LocalUi>(22'000);
    const test::TempFolder folder;
    test::WriteFile(folder / "conf", "ui_port = " + std::to_string(ui_->port()));
    Settings::getInstance().loadConfigSettings(folder / "conf");
    UiReportQueue::getInstance().Start();
  }
  static void TearDownTestSuite() {
    UiReportQueue::getInstance().Stop(std::chrono::milliseconds(0));
    ui_.reset();
  }

  static std::vector<std::uint64_t> Told() {
    UI_IPC::LastBreath();
    std::vector<std::uint64_t> told;
    for (PObject report = ui_->Receive(); report.hasMember("notify"); report = ui_->Receive()) {
      EXPECT_EQ(report["error_type"].asInt32(), -29);
      told.push_back(report["session_id"].asUInt64());
    }
    return told;
  }

  static inline std::unique_ptr<test::LocalUi> ui_;
};

TEST_F(UmountReports, AreOfTheSessionsOfThisLinkAlone) {
  WinUmountNotifyer& notifyer = WinUmountNotifyer::GetInstance();
  {
    DetectorVol task;
    task.AddWatch("E:/x", 1);
    task.AddWatch("F:/x", 2);
    task.AddWatch("E:/y", 3);
    notifyer.NotifyUnmount("E");
  }
  DetectorVol task;
  task.AddWatch("G:/x", 1);
  notifyer.NotifyUnmount("E");
  notifyer.NotifyUnmount("F");
  notifyer.NotifyUnmount("G");
  EXPECT_EQ(Told(), (std::vector<std::uint64_t>{1, 3, 1}));
}

// Plays what a system tells.
class PlayedMonitor : public platform::VolumeMonitor {
 public:
  Status Prepare(const ustring& name, Step& step) override {
    EXPECT_EQ(name, "TolvenhubWindowClass");
    step = Step::kRegistration;
    return prepared;
  }
  Status Run(const ustring& title, Listener& listener) override {
    EXPECT_EQ(title, "Tolvenhub");
    if (play) play(listener);
    return run;
  }
  Status Release() override { return {}; }
  void Stop() override {}

  static inline Status prepared, run;
  static inline std::function<void(Listener&)> play;
};

class PlayedVolumes : public platform::ForwardingVolumes {
 public:
  PlayedVolumes() : ForwardingVolumes(platform::volumes()) { platform::SetVolumes(this); }
  ~PlayedVolumes() override { platform::SetVolumes(nullptr); }
  std::unique_ptr<platform::VolumeMonitor> NewMonitor() override {
    return std::make_unique<PlayedMonitor>();
  }
};

// Runs the task to its end; what it and its loop have logged, without times and line numbers.
std::string LogOf(DetectorVol& task) {
  const test::TempFolder folder;
  test::WriteFile(folder / "levels", "runloop_debug = 7");
  Logger::Initialize(Logger::FILE_LOGGER, folder / "log", folder / "levels", 2);
  EXPECT_EQ(task.Run(), 0);
  EXPECT_EQ(task.Join(), 0);
  Logger::Destroy();
  std::istringstream log(test::ReadFile(folder / "log"));
  std::string text;
  for (std::string line; std::getline(log, line);) {
    std::smatch found;
    if (!std::regex_search(line, found, std::regex(R"((runloop-win|detector-win-vol)\(\d+\): )"))) {
      continue;
    }
    text += found.suffix().str() + "\n";
  }
  return text;
}

TEST_F(UmountReports, FollowTheLowestDriveOfARemovalAlone) {
  constexpr std::uint32_t kArrival = 0x8000, kRemoval = 0x8004, kOther = 0x8005;
  const PlayedVolumes volumes;
  DetectorVol task;
  task.AddWatch("E:/x", 1);
  task.AddWatch("e:/x", 2);
  task.AddWatch("F:/x", 3);
  PlayedMonitor::play = [](platform::VolumeMonitor::Listener& listener) {
    listener.OnDeviceChange(kArrival, true, 0b10000);
    listener.OnDeviceChange(7, false, 0);
    listener.OnDeviceChange(kRemoval, false, 0b10000);
    listener.OnDeviceChange(kRemoval, true, 0);
    listener.OnDeviceChange(kRemoval, true, 0b110000);
    listener.OnDeviceChange(kOther, true, 0b100000);
    listener.OnMessage(36);
  };
  const std::string removal = "WinProcCallback: DBT_DEVICEREMOVECOMPLETE\n";
  EXPECT_EQ(LogOf(task), removal + removal + removal +
                             "WinProcCallback: unknow 32773\n"
                             "WinProcCallback: [36]\n");
  PlayedMonitor::play = nullptr;
  EXPECT_EQ(Told(), std::vector<std::uint64_t>{1});

  PlayedMonitor::run = {platform::ErrorKind::kOther, 5};
  EXPECT_EQ(LogOf(task), "WinRunLoop: CreateWindowEx Failed(5)\n");
  PlayedMonitor::prepared = PlayedMonitor::run;
  EXPECT_EQ(LogOf(task),
            "RegisterClassEx Failed, [5]\n"
            "Failed to InitWindowClass\n");
  PlayedMonitor::run = PlayedMonitor::prepared = {};
}

TEST(Umount, TheTaskEndsWhenItIsStoppedBeforeOrAfterItsStart) {
  DetectorVol early, late;
  EXPECT_EQ(early.AddWatch("/media/e", 1), 0);
  early.RemoveWatch(1);
  early.Stop();
  EXPECT_EQ(early.Run(), 0);
  EXPECT_EQ(early.Join(), 0);
  EXPECT_EQ(late.Run(), 0);
  late.Stop();
  EXPECT_EQ(late.Join(), 0);
}

}  // namespace
}  // namespace tolven

#include <gtest/gtest.h>

#include <vector>

#include "client/core/settings.h"
#include "client/windows/detector-win-vol.h"
#include "client/windows/win-umount-notifyer.h"
#include "lib/ui-ipc.h"
#include "lib/ui-report-queue.h"
#include "support/local-ui.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

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

TEST(Umount, ReportsTheSessionsOfThisLinkAlone) {
  test::LocalUi ui(22'000);
  test::TempFolder folder;
  test::WriteFile(folder / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder / "conf");
  UiReportQueue::getInstance().Start();
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
  UI_IPC::LastBreath();
  std::vector<std::uint64_t> told;
  for (PObject report = ui.Receive(); report.hasMember("notify"); report = ui.Receive()) {
    EXPECT_EQ(report["error_type"].asInt32(), -29);
    told.push_back(report["session_id"].asUInt64());
  }
  EXPECT_EQ(told, (std::vector<std::uint64_t>{1, 3, 1}));
  UiReportQueue::getInstance().Stop(std::chrono::milliseconds(0));
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

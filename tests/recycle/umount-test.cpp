#include <gtest/gtest.h>

#include "client/windows/detector-win-vol.h"
#include "client/windows/win-umount-notifyer.h"

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

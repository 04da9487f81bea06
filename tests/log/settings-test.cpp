#include "client/core/settings.h"

#include <gtest/gtest.h>

#include "support/temp-folder.h"

namespace tolven {
namespace {

TEST(Settings, TakesWhatTheFileNamesAndKeepsTheRest) {
  const test::TempFolder folder;
  const ustring path = folder / "daemon.conf";
  Settings settings;
  test::WriteFile(path, "work_dir_name=.Dir\nmalformed line\n");
  EXPECT_LT(settings.loadConfigSettings(path), 0);
  EXPECT_EQ(settings.getWorkDirName(), ".ZentrovaWorkingDirectory");

  test::WriteFile(path,
                  "work_dir_name=.Dir\nworker_count=0\nui_port=4000x\nis_foreground=True\n"
                  "pid_file_path=''\ncert_path='/etc/my certs'\ndb_path=/nowhere\n");
  EXPECT_EQ(settings.loadConfigSettings(path), 0);
  EXPECT_EQ(settings.getWorkDirName(), ".Dir");
  EXPECT_EQ(settings.getWorkerCount(), 0u);
  EXPECT_EQ(settings.getUIPort(), 4000);
  EXPECT_FALSE(settings.isForeground());
  EXPECT_EQ(settings.getPidFilePath(), "/var/run/tolven-daemon.pid");
  EXPECT_EQ(settings.getCertPath(), "/etc/my certs");

  test::WriteFile(path, "worker_count=-1\nui_port=none\nis_foreground=true\n");
  EXPECT_EQ(settings.loadConfigSettings(path), 0);
  EXPECT_EQ(settings.getWorkerCount(), 0u);
  EXPECT_EQ(settings.getUIPort(), 4000);
  EXPECT_TRUE(settings.isForeground());
}

}  // namespace
}  // namespace tolven

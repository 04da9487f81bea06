// A folder with everything that a daemon wants to be configured with.
#pragma once

#include <string>

#include "client/core/settings.h"
#include "support/temp-folder.h"

namespace tolven::test {

struct DaemonHome {
  TempFolder folder;
  ustring conf = folder / "conf", log = folder / "log", pid = folder / "pid";

  // `more` are further lines of the configuration file.
  explicit DaemonHome(int ui_port, const std::string& more = "") {
    WriteFile(folder / "filter", "[Version]\nmajor = 1\nminor = 0\n");
    WriteFile(folder / "levels", "client_debug = 7\n");
    const std::string root = folder.path();
    WriteFile(conf, "ui_port = " + std::to_string(ui_port) + "\nsystem_filter_path = " + root +
                        "/filter\nfstat_db_path = " + root + "/fstat\nfilter_db_path = " + root +
                        "/filter-db\nlog_level_file_path = " + root + "/levels\nlog_file_path = " +
                        root + "/log\npid_file_path = " + root + "/pid\n" + more);
  }
  // Makes them the settings of this process.
  void Load() const { Settings::getInstance().loadConfigSettings(conf); }
};

}  // namespace tolven::test

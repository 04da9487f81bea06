// A session with a folder, a database and the process's event manager.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "client/core/event-generator.h"
#include "client/core/task.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/file-status-db.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven::test {

class SessionTest : public testing::Test {
 protected:
  SessionTest() {
    entry_.sess_id = 1;
    entry_.local_path = folder_ / "root";
    std::filesystem::create_directory(entry_.local_path.str());
    entry_.event_db = std::make_shared<FileEventDB>();
    entry_.black_list = std::make_shared<BlackList2>();
    EXPECT_EQ(entry_.event_db->initialize(folder_ / "db.sqlite"), 0);
    EXPECT_EQ(FileStatusDB::initialize(folder_ / "fstat"), 0);
    EventManager::getInstance().SetSessionLookup([path = entry_.local_path](auto, ustring& out) {
      out = path;
      return 1;
    });
  }
  ~SessionTest() override {
    EventManager::getInstance().Clear();
    FileStatusDB::destroy();
  }

  void Row(const char* path, std::uint64_t sync_id, bool is_dir = false) {
    DBFileInfo info;
    info.path = path;
    info.syncID = info.maxSyncID = sync_id;
    info.fileType = is_dir ? 1 : 0;
    info.fileSize = 3;
    info.fileCheckSum = "old";
    info.fileModTime = 70;
    info.serverUnixMode = 0x700;
    info.serverUnixGid = 9;
    ASSERT_EQ(entry_.event_db->setEventInfo(info), 0);
  }
  void Touch(const char* path) { WriteFile(entry_.local_path + path, "x"); }

  // All that is pending, in the order in which it is handed out.
  std::vector<Event> Events() {
    EventManager& manager = EventManager::getInstance();
    std::vector<Event> events;
    Event event;
    while (manager.GetAllPendingEventCount(1) > 0 && manager.PullEvent(&task_, event) == 0) {
      events.push_back(event);
      EXPECT_EQ(manager.DoneEvent(&task_, event), 0);
    }
    return events;
  }
  // The same as "+/path" for an upload, "-/path" for a removal, "</path" for a download.
  std::vector<std::string> Plan() {
    std::vector<std::string> plan;
    for (const Event& event : Events()) {
      const char* what = event.isServerEvent() ? "<" : event.m_type == Event::EV_REMOVE ? "-" : "+";
      plan.push_back(what + event.m_path.str() + (event.isDir() ? "/" : ""));
    }
    return plan;
  }

  test::TempFolder folder_;
  Registry::Entry entry_;
  Task task_;
};

}  // namespace tolven::test

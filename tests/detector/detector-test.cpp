#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <memory>
#include <set>

#include "client/core/registry.h"
#include "client/core/root-proof.h"
#include "client/core/settings.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "client/windows/detector-win2.h"
#include "lib/ui-ipc.h"
#include "lib/ui-report-queue.h"
#include "platform/fake-clock.h"
#include "support/local-ui.h"
#include "support/temp-folder.h"

namespace tolven {

struct DetectorPeer {
  static void Round(Detector& detector) {
    detector.CareForWatches();
    detector.ReadFromHandle();
    detector.ReadFromBuffer();
  }
};

namespace {

namespace fs = std::filesystem;

// A watch that tells what a test puts in.
class ScriptedWatch : public platform::DirWatch {
 public:
  platform::WatchResult Read(std::vector<platform::WatchRecord>&, platform::Status&) override {
    if (results.empty()) return platform::WatchResult::kNothing;
    const platform::WatchResult result = results.front();
    results.pop_front();
    return result;
  }
  std::deque<platform::WatchResult> results;
};

class ScriptedService : public platform::DirWatchService {
 public:
  platform::Status Open(const ustring&, const ustring&,
                        std::shared_ptr<platform::DirWatch>& watch) override {
    ++opened;
    watch = last = std::make_shared<ScriptedWatch>();
    return {};
  }
  int Wait(const std::vector<std::shared_ptr<platform::DirWatch>>&, int,
           platform::Status&) override {
    return -1;
  }
  ustring LimitHint() override { return "a limit"; }
  std::shared_ptr<ScriptedWatch> last;
  int opened = 0;
};

class DetectorTest : public ::testing::Test {
 protected:
  DetectorTest() {
    EventManager::getInstance().SetSessionLookup([](std::uint64_t sess_id, ustring& local_path) {
      Registry::Entry entry;
      if (Registry::getInstance().Find(sess_id, entry) != 1) return 0;
      local_path = entry.local_path;
      return 1;
    });
    fs::create_directories((folder_ / "root/.ZentrovaWorkingDirectory").str());
    Registry::Entry entry;
    entry.sess_id = 1;
    entry.local_path = root_;
    entry.event_db = std::make_shared<FileEventDB>();
    EXPECT_EQ(entry.event_db->initialize(folder_ / "db.sqlite"), 0);
    const ustring id = RootProof::Establish(root_, *entry.event_db);
    EXPECT_FALSE(id.empty());
    entry.root_proof = std::make_shared<RootProof>(2, 1, root_, id);
    Registry::getInstance().Set(entry);
  }
  ~DetectorTest() override {
    EventManager::getInstance().Clear();
    Registry::getInstance().Clear();
    platform::SetDirWatch(nullptr);
    platform::SetClock(nullptr);
  }

  // All that is pending, in the order in which it leaves; a walk as "WALK path".
  std::multiset<std::string> TakeEvents() {
    std::multiset<std::string> taken;
    Task task;
    Event event;
    EventManager& manager = EventManager::getInstance();
    while (manager.PullEvent(&task, event) == 0) {
      std::string kind = Event::TypeText(event.m_type);
      if (event.isExpand()) kind = event.isRescan() ? "RESCAN" : "WALK";
      taken.insert(kind + " " + event.m_path.str());
      manager.DoneEvent(&task, event);
    }
    return taken;
  }

  test::TempFolder folder_;
  const ustring root_ = folder_ / "root";
};

using Events = std::multiset<std::string>;

TEST_F(DetectorTest, ARunningTaskTurnsChangesOnDiskIntoEvents) {
  Detector detector;
  ASSERT_EQ(detector.AddWatch(root_, 1), 0);
  EXPECT_TRUE(fs::exists((root_ + "/.ZentrovaWorkingDirectory/#ZentRecycle").str()));
  ASSERT_EQ(detector.Run(), 0);
  test::WriteFile(root_ + "/f", "x");
  test::WriteFile(root_ + "/.ZentrovaWorkingDirectory/temp", "x");
  fs::create_directory((root_ + "/d").str());
  Events events;
  // The tree may have merged a creation with what was written then.
  const auto has_file = [&] {
    return events.contains("EV_ADD /f") || events.contains("EV_MODIFY /f");
  };
  while (!has_file() || !events.contains("WALK /d")) {
    events.merge(TakeEvents());
    std::this_thread::yield();
  }
  EXPECT_TRUE(events.contains("EV_ADD /d"));
  for (const std::string& event : events) {
    EXPECT_EQ(event.find("Working"), std::string::npos) << event;
  }
  fs::rename((root_ + "/d").str(), (root_ + "/e").str());
  while (!events.contains("WALK /e")) {
    events.merge(TakeEvents());
    std::this_thread::yield();
  }
  EXPECT_TRUE(events.contains("EV_REMOVE /d"));
  detector.Stop();
  EXPECT_EQ(detector.Join(), 0);
  detector.RemoveWatch(1);
  detector.RemoveWatch(1);
  EXPECT_EQ(detector.AddWatch(root_ + "/missing", 2), -1);
}

TEST_F(DetectorTest, LostCountsAndLimitsEndInRescans) {
  ScriptedService service;
  platform::FakeClock clock;
  platform::SetClock(&clock);
  platform::SetDirWatch(&service);
  Detector detector;
  ASSERT_EQ(detector.AddWatch(root_, 1), 0);
  service.last->results = {platform::WatchResult::kOverflow};
  DetectorPeer::Round(detector);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
  service.last->results = {platform::WatchResult::kLimit};
  DetectorPeer::Round(detector);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
  clock.Advance(std::chrono::seconds(599));
  DetectorPeer::Round(detector);
  EXPECT_EQ(TakeEvents(), Events());
  clock.Advance(std::chrono::seconds(1));
  DetectorPeer::Round(detector);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
}

TEST_F(DetectorTest, AFolderThatIsAwayMakesNoEventsAndIsRescannedWhenItIsBack) {
  ScriptedService service;
  platform::FakeClock clock;
  platform::SetClock(&clock);
  platform::SetDirWatch(&service);
  test::LocalUi ui(24'500);
  test::WriteFile(folder_ / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder_ / "conf");
  UiReportQueue::getInstance().Start();
  Detector detector;
  ASSERT_EQ(detector.AddWatch(root_, 1), 0);
  fs::rename(root_.str(), (folder_ / "away").str());
  fs::create_directory(root_.str());  // a bare mount point
  service.last->results = {platform::WatchResult::kGone};
  DetectorPeer::Round(detector);
  for (int i = 0; i < 3; ++i) {
    clock.Advance(std::chrono::seconds(10));
    DetectorPeer::Round(detector);
  }
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(service.opened, 1);
  EXPECT_TRUE(fs::is_empty(root_.str()));

  fs::remove(root_.str());
  fs::rename((folder_ / "away").str(), root_.str());
  clock.Advance(std::chrono::seconds(10));
  DetectorPeer::Round(detector);
  EXPECT_EQ(service.opened, 2);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
  // Another folder with the right id is the right folder, but the watch is on the old one.
  fs::copy(root_.str(), (folder_ / "copy").str(), fs::copy_options::recursive);
  fs::remove_all(root_.str());
  fs::rename((folder_ / "copy").str(), root_.str());
  clock.Advance(std::chrono::seconds(2));
  DetectorPeer::Round(detector);
  EXPECT_EQ(service.opened, 3);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
  service.last->results = {platform::WatchResult::kFailed};
  DetectorPeer::Round(detector);
  clock.Advance(std::chrono::seconds(10));
  DetectorPeer::Round(detector);
  EXPECT_EQ(TakeEvents(), (Events{"EV_MODIFY /", "RESCAN /"}));
  UI_IPC::LastBreath();
  int told = 0;  // once for each loss, however often the folder was looked for
  for (PObject report; report["action"].asString().empty(); report = ui.Receive()) {
    if (report["error_type"].asInt64() == -29) ++told;
    if (HasFailure()) break;
  }
  EXPECT_EQ(told, 2);
  UiReportQueue::getInstance().Stop(std::chrono::milliseconds(0));
}

}  // namespace
}  // namespace tolven

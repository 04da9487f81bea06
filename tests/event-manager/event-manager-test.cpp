#include "client/event-manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>

#include "client/core/settings.h"
#include "lib/file-status-db.h"
#include "lib/ui-report-queue.h"
#include "support/local-ui.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using enum Event::Type;

class Worker : public Task {
 public:
  int SetAbort(bool abort) override { return aborted = abort, 0; }
  std::atomic<bool> aborted{false};
};

Event Make(uint64_t session, const char* path, Event::Type type = EV_CREATE, uint32_t mode = 0) {
  Event event;
  event.m_sess_id = session;
  event.m_path = path;
  event.m_type = type;
  event.m_mode = mode;
  event.m_sync_id = (mode & Event::F_SERVER) != 0 ? 5 : 0;
  return event;
}

class EventManagerTest : public testing::Test {
 protected:
  EventManagerTest() { EXPECT_EQ(FileStatusDB::initialize(folder_ / "fstat"), 0); }
  ~EventManagerTest() override { FileStatusDB::destroy(); }

  static int Status(const char* path) {
    FileStatusInfo info;
    return FileStatusDB::getFileSyncStat(path, &info) == 1 ? info.syncStatus : -1;
  }
  std::string Pull(Task& task) {
    return manager_.PullEvent(&task, event_) == 0 ? event_.m_path.str() : "";
  }
  int Done(Task& task) { return manager_.DoneEvent(&task, event_); }

  test::TempFolder folder_;
  EventManager manager_{[](uint64_t session, ustring& path) {
    path = "/r" + std::to_string(session);
    return session < 10 ? 1 : 0;
  }};
  Worker a_, b_, c_;
  Event event_;
};

TEST_F(EventManagerTest, ReportsWhatItTakes) {
  test::LocalUi ui(24'000);
  test::WriteFile(folder_ / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder_ / "conf");
  UiReportQueue::getInstance().Start();
  for (const char* bad : {"/a\xFF", "/a/"}) manager_.PushLocalEvent(Make(1, bad));
  manager_.PushLocalEvent(Make(1, "/a", EV_EMPTY));
  manager_.PushLocalEvent(Make(77, "/a"));
  manager_.IssueExpand(1, "/walk");
  EXPECT_EQ(manager_.GetAllPendingEventCount(1) + manager_.GetAllPendingEventCount(77), 0);
  manager_.PushLocalEvent(Make(1, "/d/a"));
  manager_.PushServerEvent(Make(1, "", EV_MODIFY, Event::F_DIR));
  EXPECT_EQ(ui.Receive()["path"].asString(), "/d/a");
  const PObject report = ui.Receive();
  EXPECT_EQ(report["notify"].asString(), "syncing_file");
  EXPECT_EQ(report["path"].asString(), "/");
  UiReportQueue::getInstance().Stop(std::chrono::milliseconds(0));

  EXPECT_EQ(Status("\\r1\\d\\a"), FSTAT_SYNCING);
  EXPECT_EQ(Status("\\r1"), FSTAT_SYNCING);
  for (const char* unmarked : {"\\r1\\walk", "\\r1\\a\\", "\\r1\\a"})
    EXPECT_EQ(Status(unmarked), -1);
  EXPECT_EQ(EventManager::SyncedEvent2FStatDB("/r1/d/a"), 0);
  EXPECT_EQ(Status("\\r1\\d\\a"), -1);
  EXPECT_EQ(manager_.GetPendingServerEvent(1), 1);
  EXPECT_EQ(manager_.GetAllPendingEventCount(1), 2);
}

TEST_F(EventManagerTest, ServesSessionsInTurnAndHoldsBackWhatIsBlocked) {
  for (const char* path : {"/x", "/y"}) {
    for (uint64_t session : {1u, 2u}) manager_.PushLocalEvent(Make(session, path));
  }
  for (const char* turn : {"1/x", "2/x", "1/y", "2/y"}) {
    const std::string path = Pull(a_);
    EXPECT_EQ(std::to_string(event_.m_sess_id) + path, turn);
    EXPECT_EQ(Done(a_), 0);
  }
  EXPECT_EQ(Pull(a_) + Pull(a_), "");

  manager_.PushLocalEvent(Make(3, "/", EV_MODIFY, Event::F_DIR));
  manager_.PushLocalEvent(Make(3, "/f"));
  EXPECT_EQ(Pull(a_), "/");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Pull(b_), "");
  EXPECT_EQ(Done(a_), 0);
  EXPECT_EQ(Pull(b_), "/f");
}

TEST_F(EventManagerTest, GivesWhatArrivesMeanwhileToTheSameTask) {
  manager_.PushLocalEvent(Make(1, "/n"));
  EXPECT_EQ(Pull(a_), "/n");
  manager_.PushLocalEvent(Make(1, "/n", EV_CREATE, Event::F_DIR));  // a folder of that name
  manager_.PushServerEvent(Make(1, "/n", EV_REMOVE));
  EXPECT_FALSE(a_.aborted);
  manager_.PushLocalEvent(Make(1, "/n", EV_REMOVE));
  EXPECT_TRUE(a_.aborted);
  EXPECT_EQ(Done(a_), -1);
  EXPECT_EQ(event_.m_type, EV_REMOVE);
  EXPECT_TRUE(event_.isLocalEvent() && event_.isFile());
  EXPECT_EQ(Done(a_) + Done(a_), 0);
  EXPECT_EQ(manager_.GetAllPendingEventCount(1), 1);
}

TEST_F(EventManagerTest, MergesWalksAndInterruptsTheRunningOne) {
  manager_.IssueExpand(1, "/d");
  EXPECT_EQ(Pull(a_), "/d");
  manager_.IssueRescan(1, "/d", true);
  EXPECT_FALSE(a_.aborted);  // not the same walk
  manager_.IssueExpand(1, "/d");
  EXPECT_TRUE(a_.aborted);
  EXPECT_EQ(Done(a_), 0);  // does not count as dirty
  manager_.IssueRescan(1, "", false);
  EXPECT_EQ(Pull(a_), "/");
  EXPECT_FALSE(event_.isExpand());
  EXPECT_EQ(Pull(b_), "/");  // alone, and as careful as the one that it replaced
  EXPECT_EQ(event_.m_mode, Event::F_DIR | Event::F_EXPAND | Event::F_RESCAN | Event::F_MERGE);
  EXPECT_EQ(Pull(c_), "");
  EXPECT_EQ(Done(a_), 0);
  EXPECT_EQ(Pull(a_), "");  // the pool leaves the round
  for (int i = 0; i < 2; ++i) EXPECT_EQ(manager_.RedoEvent(&b_, event_), 0);
  EXPECT_EQ(Pull(b_) + Pull(b_), "/");
}

TEST_F(EventManagerTest, LeavesANewPoolAloneAndCountsWhatWasDropped) {
  manager_.PushServerEvent(Make(1, "/s"));
  manager_.PushServerEvent(Make(1, "/t"));
  EXPECT_EQ(Pull(a_), "/s");
  EXPECT_EQ(manager_.RedoEvent(&a_, event_), 0);
  EXPECT_EQ(Pull(a_), "/t");
  EXPECT_EQ(Pull(b_), "/s");
  manager_.ClearSessionEventPool(1);
  EXPECT_EQ(manager_.RedoEvent(&a_, event_), -1);
  manager_.PushServerEvent(Make(1, "/s"));
  EXPECT_EQ(Pull(c_), "/s");
  EXPECT_EQ(Done(b_), 0);
  EXPECT_EQ(manager_.GetPendingServerEvent(1), 1);
  EXPECT_EQ(Done(c_), 0);
  manager_.CountUnappliedServerEvent(1);
  manager_.Clear();
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 3u);
}

TEST_F(EventManagerTest, TellsOfServerEventsThatLocalOnesReplaced) {
  manager_.PushLocalEvent(Make(1, "/d/f", Event::EV_MODIFY));
  EXPECT_FALSE(manager_.IsReplacedServerEventPending(1));
  manager_.PushServerEvent(Make(1, "/d/f", Event::EV_REMOVE, Event::F_SERVER));
  EXPECT_EQ(manager_.GetPendingServerEvent(1), 0);
  EXPECT_TRUE(manager_.IsReplacedServerEventPending(1));
  EXPECT_EQ(Pull(a_), "/d/f");
  EXPECT_TRUE(manager_.IsReplacedServerEventPending(1));
  EXPECT_EQ(Done(a_), 0);
  EXPECT_FALSE(manager_.IsReplacedServerEventPending(1));
}

TEST_F(EventManagerTest, CountsNewsThatAForcedDownloadTookThePlaceOf) {
  Event news = Make(1, "/f"), forced = Make(1, "/f");
  news.m_sync_id = 5;
  forced.m_sync_id = 0x7FFFFFFFFFFFFFFF;
  manager_.PushServerEvent(forced);
  manager_.PushServerEvent(news);  // takes the place of the other
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 0u);
  manager_.PushServerEvent(forced);
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 1u);
}

// One of four sessions is cleared time and again; its paths may be with an older task still.
TEST_F(EventManagerTest, NeverGivesOnePathToTwoTasks) {
  std::atomic<int> producing{3};
  std::set<std::string> held;
  std::mutex held_lock;
  const auto produce = [&](unsigned seed) {
    const char* paths[] = {"/a", "/d", "/d/b", "/d/e/c"};
    for (unsigned i = 0; i < 400; ++i) {
      const unsigned pick = i * 7 / 4 + seed;
      const Event event = Make(1 + i % 4, paths[pick % 4], pick % 5 == 0 ? EV_REMOVE : EV_MODIFY,
                               pick % 4 == 1 ? Event::F_DIR : 0u);
      i % 3 == 0 ? manager_.PushServerEvent(event) : manager_.PushLocalEvent(event);
      if (i % 50 == 0) manager_.IssueRescan(1 + i % 3, "/d", false);
      if (seed == 0 && i % 20 == 0) manager_.ClearSessionEventPool(4);
    }
    --producing;
  };
  const auto pending = [&](uint64_t s) { return manager_.GetAllPendingEventCount(s); };
  const auto consume = [&](Worker& task) {
    Event event;
    for (unsigned i = 0; producing > 0 || pending(1) + pending(2) + pending(3) > 0; ++i) {
      if (manager_.PullEvent(&task, event) != 0) continue;
      const std::string key = std::to_string(event.m_sess_id) + event.m_path.str();
      const bool watched = event.m_sess_id != 4 && !event.isExpand();
      std::unique_lock lock(held_lock);
      EXPECT_TRUE(!watched || held.insert(key).second) << key;
      lock.unlock();
      std::this_thread::yield();
      lock.lock();
      if (watched) held.erase(key);
      if (i % 4 == 0) {
        manager_.RedoEvent(&task, event);
      } else {
        while (manager_.DoneEvent(&task, event) != 0) continue;
      }
    }
  };
  std::vector<std::thread> threads;
  for (unsigned seed : {0u, 5u, 11u}) threads.emplace_back(produce, seed);
  for (Worker* task : {&a_, &b_, &c_}) threads.emplace_back(consume, std::ref(*task));
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace tolven

#include "client/core/syncer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/core/connection-manager.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/profile-set.h"
#include "lib/proto-constants.h"
#include "platform/fake-clock.h"
#include "platform/mutex.h"
#include "support/scripted-server.h"
#include "support/temp-folder.h"
#include "transport/certificates.h"

namespace tolven {

struct SyncerPeer {
  // Takes the next session in hand and pulls once.
  static int Pull(Syncer& syncer) {
    if (syncer.UpdateContext() != 0) return 1;
    return syncer.IsSessionReady() ? syncer.PullEvent() : 2;
  }
  static int HandleError(Syncer& syncer, int code) { return syncer.HandleError(code); }
};

namespace {

PObject Refusal(std::uint32_t code) {
  PObject answer;
  answer["alive"] = 60;
  answer["error"]["code"] = code;
  answer["error"]["reason"] = "no";
  return answer;
}

PObject Welcome() {
  PObject answer;
  answer["alive"] = 60;
  answer["server"]["package_version"]["build"] = 3317;
  return answer;
}

PObject Page(std::uint64_t next) {
  PObject answer;
  answer["alive"] = 60;
  answer["next_sync_id"] = next;
  answer["event_list"].asArray();
  return answer;
}

void AddRecord(PObject& page, const char* path, std::uint64_t id, bool removed = false) {
  PObject record;
  record["path"] = path;
  record["is_dir"] = false;
  record["is_removed"] = removed;
  record["sync_id"] = id;
  record["max_id"] = id;
  record["file"]["hash"] = "00112233445566778899aabbccddeeff";
  record["file"]["size"] = 1;
  record["mtime"]["mtime"] = 1;
  page["event_list"].asArray().push_back(record);
}

// Time moves with whoever sleeps, but leaves the other threads some.
class PatientClock : public platform::FakeClock {
 public:
  std::function<void()> on_sleep;
  void Sleep(std::chrono::milliseconds time) override {
    if (on_sleep) on_sleep();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    FakeClock::Sleep(time);
  }
};

class SyncerTest : public ::testing::Test {
 protected:
  SyncerTest()
      : server_([this](int command, const PObject& request) { return Answer(command, request); }),
        syncer_([this](Registry::Entry& entry, bool merge) {
          replaced_.push_back(std::to_string(entry.sess_id) + (merge ? " merge" : ""));
          return 0;
        }) {
    platform::SetClock(&clock_);
    EventManager::getInstance().SetSessionLookup([](std::uint64_t sess_id, ustring& local_path) {
      Registry::Entry entry;
      if (Registry::getInstance().Find(sess_id, entry) != 1) return 0;
      local_path = entry.local_path;
      return 1;
    });
    std::filesystem::create_directories((root_ + "/.ZentrovaWorkingDirectory").str());
    info_.conn_id = 5;
    info_.server_ip = "127.0.0.1";
    info_.server_port = server_.port();
    info_.session = "token";
    info_.version_info.build_number = 3317;
    EXPECT_EQ(ConnectionManager::getInstance().add(info_, nullptr, nullptr), 0);
    AddSession();
    syncer_.SetState(Task::RUN);
  }
  ~SyncerTest() override {
    EventManager::getInstance().Clear();
    Registry::getInstance().Clear();
    ConnectionManager::getInstance().clear();
    platform::SetClock(nullptr);
  }

  void AddSession() {
    Registry::Entry entry;
    entry.sess_id = 1;
    entry.conn_id = 5;
    entry.view_id = 9;
    entry.remote_path = "/";
    entry.local_path = root_;
    entry.event_db = std::make_shared<FileEventDB>();
    EXPECT_EQ(entry.event_db->initialize(folder_ / "db.sqlite"), 0);
    db_ = entry.event_db;
    Registry::getInstance().Set(entry);
  }
  std::uint64_t Stored() {
    std::uint64_t id = 0;
    EXPECT_EQ(db_->getSyncId(id), 0);
    return id;
  }
  std::optional<PObject> Answer(int command, const PObject& request) {
    const MutexLock hold(lock_);
    requests_.push_back(request);
    if (command == SCMD_REQUEST_CONNECT) return welcome_;
    if (command == SCMD_REQUEST_SSL_2) return Welcome();
    if (command == SCMD_GET_PROFILE) return profile_;
    if (on_pull_) on_pull_();
    return page_;
  }
  void SetPage(std::optional<PObject> page, std::function<void()> on_pull = nullptr) {
    const MutexLock hold(lock_);
    page_ = std::move(page);
    on_pull_ = std::move(on_pull);
  }
  // Does what workers do, until the object goes.
  class Workers {
   public:
    explicit Workers(const std::function<void(const Event&)>& apply = nullptr)
        : thread_([this, apply] {
            Task task;
            Event event;
            while (!stop_) {
              if (EventManager::getInstance().PullEvent(&task, event) != 0) {
                std::this_thread::yield();
                continue;
              }
              ++applied;
              if (apply) apply(event);
              EventManager::getInstance().DoneEvent(&task, event);
            }
          }) {}
    ~Workers() {
      stop_ = true;
      thread_.join();
    }
    std::atomic<int> applied{0};

   private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
  };

  test::TempFolder folder_;
  const ustring root_ = folder_ / "root";
  PatientClock clock_;
  Mutex lock_;
  std::vector<PObject> requests_ GUARDED_BY(lock_);
  PObject welcome_ GUARDED_BY(lock_) = Welcome();
  std::optional<PObject> page_ GUARDED_BY(lock_), profile_ GUARDED_BY(lock_);
  std::function<void()> on_pull_ GUARDED_BY(lock_);
  test::ScriptedServer server_;
  ConnectionInfo info_;
  std::shared_ptr<FileEventDB> db_;
  std::vector<std::string> replaced_;
  Syncer syncer_;
};

TEST_F(SyncerTest, StoresTheNumberOnceTheEventsWereApplied) {
  PObject page = Page(12);
  AddRecord(page, "/a", 11);
  AddRecord(page, "/b", 12);
  AddRecord(page, "/../outside", 12);
  AddRecord(page, "/never seen", 12, true);
  SetPage(page);
  std::uint64_t stored_while_applying = 99;
  {
    const Workers workers([&](const Event&) { stored_while_applying = Stored(); });
    EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
    EXPECT_EQ(workers.applied, 2);
  }
  EXPECT_EQ(stored_while_applying, 0U);
  EXPECT_EQ(Stored(), 12U);
  const MutexLock hold(lock_);
  ASSERT_EQ(requests_.size(), 2U);
  const PObject& pull = requests_[1];
  EXPECT_EQ(pull["action"].asString(), "pull_event");
  EXPECT_EQ(pull["session"].asString(), "token");
  EXPECT_EQ(pull["view_id"].asUInt64(), 9U);
  EXPECT_TRUE(pull["offset"]["file"].isInteger() && pull["offset"]["mtime"].isInteger());
}

TEST_F(SyncerTest, WhatIsNoAnswerChangesNothing) {
  ASSERT_EQ(db_->setSyncId(20), 0);
  const auto pull = [this](std::optional<PObject> page) {
    SetPage(std::move(page));
    return SyncerPeer::Pull(syncer_);
  };
  PObject no_number = Page(0);
  no_number["next_sync_id"] = "20";
  EXPECT_EQ(pull(std::nullopt), ErrorCodes::ERR_IO);
  EXPECT_EQ(pull(no_number), ErrorCodes::ERR_SERVER);
  EXPECT_EQ(pull(Page(19)), ErrorCodes::ERR_VIEW);  // an older backup
  EXPECT_EQ(pull(Refusal(SPROTO_ERR_SESSION_INVALID)), ErrorCodes::ERR_AUTH);
  EXPECT_EQ(pull(Refusal(SPROTO_ERR_VIEW_INVALID_PATH)), ErrorCodes::ERR_VIEW_PATH);
  EXPECT_EQ(pull(Refusal(SPROTO_ERR_SYSTEM)), ErrorCodes::ERR_SERVER);
  EXPECT_EQ(Stored(), 20U);
  EXPECT_EQ(SyncerPeer::HandleError(syncer_, ErrorCodes::ERR_AUTH), 1);
  EXPECT_EQ(SyncerPeer::HandleError(syncer_, ErrorCodes::ERR_QUOTA), -1);
  EXPECT_EQ(SyncerPeer::HandleError(syncer_, -34), -1);
}

TEST_F(SyncerTest, AHandshakeIsRefusedForItsReason) {
  SetPage(Page(0));
  const auto pull = [this](const PObject& welcome) {
    {
      const MutexLock hold(lock_);
      welcome_ = welcome;
    }
    return SyncerPeer::Pull(syncer_);
  };
  PObject other_build = Welcome();
  other_build["server"]["package_version"]["build"] = 3318;
  PObject untold;
  untold["alive"] = 60;
  EXPECT_EQ(pull(other_build), ErrorCodes::ERR_BUILD_NUM_CHANGED);
  EXPECT_EQ(pull(untold), ErrorCodes::ERR_BUILD_NUM_CHANGED);
  EXPECT_EQ(pull(PObject(PObject::TYPE_MAP)), ErrorCodes::ERR_IO);
  EXPECT_EQ(pull(Refusal(SPROTO_RES_UPGRADE)), ErrorCodes::ERR_VERSION);
  EXPECT_EQ(pull(Refusal(SPROTO_ERR_SYSTEM)), ErrorCodes::ERR_SERVER);
  EXPECT_EQ(pull(Welcome()), 0);
}

TEST_F(SyncerTest, EncryptsBeforeAnythingElseIsSaid) {
  const test::Certificates certificates("localhost", "");
  Channel::SetCERTPath(certificates.certificate().str());
  Channel::SetPriKeyPath(certificates.key().str());
  info_.use_ssl = true;
  info_.ssl_allow_untrust = true;
  ASSERT_EQ(ConnectionManager::getInstance().reload(info_, nullptr, nullptr), 0);
  SetPage(Page(3));
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(Stored(), 3U);
  const MutexLock hold(lock_);
  ASSERT_EQ(requests_.size(), 3U);
  EXPECT_EQ(requests_[1]["action"].asString(), "encrypt_channel");
  EXPECT_FALSE(requests_[0].hasMember("do_ssl"));
}

TEST_F(SyncerTest, EventsThatCameToNothingArePulledAgainThreeTimes) {
  PObject page = Page(7);
  AddRecord(page, "/a", 7);
  SetPage(page);
  const Workers workers(
      [](const Event&) { EventManager::getInstance().CountUnappliedServerEvent(1); });
  for (int i = 0; i < 3; ++i) EXPECT_EQ(SyncerPeer::Pull(syncer_), ErrorCodes::ERR_SERVER);
  EXPECT_EQ(Stored(), 0U);
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(Stored(), 7U);
}

TEST_F(SyncerTest, AWaitThatEndsEarlyStoresNothing) {
  PObject page = Page(7);
  AddRecord(page, "/a", 7);
  SetPage(page);
  Task task;
  Event event;
  const auto finish = [&] {
    ASSERT_EQ(EventManager::getInstance().PullEvent(&task, event), 0);
    EventManager::getInstance().DoneEvent(&task, event);
  };
  // Nobody takes the event: after a minute the others have their turn.
  EXPECT_EQ(SyncerPeer::Pull(syncer_), ErrorCodes::ERR_INT);
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 2);  // still pending
  finish();
  std::thread pauses([] {
    while (EventManager::getInstance().GetPendingServerEvent(1) == 0) std::this_thread::yield();
    Registry::getInstance().SetPause(1, true);
  });
  const int paused = SyncerPeer::Pull(syncer_);
  pauses.join();
  EXPECT_TRUE(paused == 0 || paused == ErrorCodes::ERR_INT) << paused;
  Registry::getInstance().SetPause(1, false);
  finish();
  // Somebody starts from the beginning while the batch is being applied.
  {
    ASSERT_EQ(db_->setSyncId(3), 0);
    const Workers workers([this](const Event&) { db_->setSyncId(0); });
    EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  }
  EXPECT_EQ(Stored(), 0U);
  // The session is added anew; what of the old one was not applied is nobody's business then.
  {
    const Workers workers([this](const Event&) {
      AddSession();
      EventManager::getInstance().CountUnappliedServerEvent(1);
    });
    EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  }
  EXPECT_EQ(Stored(), 0U);
}

TEST_F(SyncerTest, WaitsAsLongAsEventsComeToTheirEnd) {
  PObject page = Page(7);
  AddRecord(page, "/a", 7);
  SetPage(page);
  Task task;
  int sleeps = 0;
  clock_.on_sleep = [&] {
    Event event;
    if (++sleeps == 20) {  // what is being applied brings more with it
      event.m_type = Event::EV_REMOVE;
      event.m_sess_id = 1;
      for (const char* path : {"/b", "/c", "/d"}) {
        event.m_path = path;
        EventManager::getInstance().PushServerEvent(event);
      }
    } else if (sleeps % 400 == 0 && EventManager::getInstance().PullEvent(&task, event) == 0) {
      EventManager::getInstance().DoneEvent(&task, event);
    }
  };
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_GE(sleeps, 1600);  // 160 seconds
  EXPECT_EQ(Stored(), 7U);
}

TEST_F(SyncerTest, ContentsThatNobodyAskedForAreNotKept) {
  test::WriteFile(folder_ / "junk", "junk");
  PObject page = Page(7);
  PObject::binary_type file;
  file.path = folder_ / "junk";
  file.length = 4;
  page["file"]["data"].asBinary() = file;
  SetPage(page);
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(Stored(), 7U);
  EXPECT_TRUE(std::filesystem::is_empty((root_ + "/.ZentrovaWorkingDirectory").str()));
}

TEST_F(SyncerTest, ASessionThatHasCaughtUpGetsItsRescan) {
  SetPage(Page(0));
  syncer_.AddRescanEvent(1, true);
  syncer_.AddRescanEvent(2, false);
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(replaced_, std::vector<std::string>{"1 merge"});
  Task task;
  Event event;
  ASSERT_EQ(EventManager::getInstance().PullEvent(&task, event), 0);
  EventManager::getInstance().DoneEvent(&task, event);  // the root itself
  ASSERT_EQ(EventManager::getInstance().PullEvent(&task, event), 0);
  EXPECT_TRUE(event.isRescan() && event.isMerge());
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(replaced_.size(), 1U);
}

TEST_F(SyncerTest, WhatTheControlThreadDoesDuringAPullIsNotUndone) {
  // From the beginning once more, where the pull has begun as well.
  SetPage(Page(7), [this] { EXPECT_EQ(db_->setSyncId(0), 0); });
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(Stored(), 0U);
  // The rescan is the new session's, which has not asked its server yet.
  SetPage(Page(0), [this] {
    AddSession();
    syncer_.AddRescanEvent(1, true);
  });
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(replaced_, std::vector<std::string>{});
  SetPage(Page(0));
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(replaced_, std::vector<std::string>{"1 merge"});
}

TEST_F(SyncerTest, NewGroupsBringBackEverythingThatIsKnown) {
  DBFileInfo row;
  row.isExist = 1;
  row.syncID = row.maxSyncID = 4;
  for (const char* path : {"/known", "/removed since"}) {
    row.path = path;
    ASSERT_EQ(db_->setEventInfo(row), 0);
  }
  test::WriteFile(root_ + "/known", "x");
  PObject page = Page(0);
  page["is_admin"] = 1;
  page["uid"] = 77;
  page["group"].asArray() = {PObject(100), PObject(200)};
  SetPage(page);
  std::vector<std::string> seen;
  ustring key;
  {
    Workers workers([&](const Event& event) {
      db_->getConfigStrByKey("acl_rescan", key);
      if (event.isServerEvent()) seen.push_back(event.m_path.str());
    });
    EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
    EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);  // nothing has changed any more
  }
  EXPECT_FALSE(key.empty());
  EXPECT_EQ(seen, (std::vector<std::string>{"/", "/known"}));
  std::uint32_t uid = 0;
  ustring group, is_admin;
  ASSERT_EQ(db_->getUid(uid) | db_->getConfigStrByKey("group", group) |
                db_->getConfigStrByKey("is_admin", is_admin),
            0);
  EXPECT_EQ(uid, 77U);
  EXPECT_EQ(group, "2 100 200");
  EXPECT_EQ(is_admin, "1");
  ASSERT_EQ(db_->getConfigStrByKey("acl_rescan", key), 0);
  EXPECT_EQ(key, "");
}

TEST_F(SyncerTest, FetchesProfilesOnceAMinuteAtMost) {
  test::WriteFile(folder_ / "filter", "[File]\nblack_ext=\"x\"\n");
  const auto serve = [this](const char* name) {
    PObject profile;
    profile["alive"] = 60;
    PObject element;
    element["name"] = name;
    PObject::binary_type file;
    file.path = folder_ / "filter";
    file.length = std::filesystem::file_size(file.path.str());
    element["file"].asBinary() = file;
    profile["profile_list"].asArray().push_back(element);
    PObject page = Page(0);
    PObject hash;
    hash["hash"] = "somewhere else";
    page["profile_list"].asArray().push_back(hash);
    const MutexLock hold(lock_);
    profile_ = profile;
    page_ = page;
  };
  const auto fetched = [this] {
    const MutexLock hold(lock_);
    int count = 0;
    for (const PObject& request : std::as_const(requests_)) {
      if (request["action"].asString() == "get_profile") ++count;
    }
    return count;
  };
  serve("../evil");
  EXPECT_EQ(SyncerPeer::Pull(syncer_), ErrorCodes::ERR_SYS);
  serve("one.filter");
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  Registry::Entry entry;
  ASSERT_EQ(Registry::getInstance().Find(1, entry), 1);
  EXPECT_NE(entry.server_black_lists->TestFilePath("/a.x"), 0);
  EXPECT_TRUE(std::filesystem::exists((db_->getProfilePath() + "/one.filter").str()));
  EXPECT_EQ(replaced_, std::vector<std::string>{"1"});
  EXPECT_EQ(fetched(), 2);
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(fetched(), 2);
  clock_.Advance(std::chrono::seconds(60));
  EXPECT_EQ(SyncerPeer::Pull(syncer_), 0);
  EXPECT_EQ(fetched(), 3);
  {
    const MutexLock hold(lock_);
    profile_ = Page(0);  // tells of no profiles, neither some nor none
  }
  clock_.Advance(std::chrono::seconds(60));
  EXPECT_EQ(SyncerPeer::Pull(syncer_), ErrorCodes::ERR_SYS);
  EXPECT_TRUE(std::filesystem::exists((db_->getProfilePath() + "/one.filter").str()));
  EXPECT_FALSE(std::filesystem::exists((folder_ / "evil").str()));
}

TEST_F(SyncerTest, RunsAsATaskAndStopsInTheMiddleOfARequest) {
  PObject page = Page(3);
  AddRecord(page, "/a", 3);
  SetPage(page);
  syncer_.SetState(Task::STOP);
  {
    const Workers workers;
    ASSERT_EQ(syncer_.Run(), 0);
    while (Stored() != 3) std::this_thread::yield();
    syncer_.Pause();
    syncer_.Resume();
  }
  syncer_.Stop();
  EXPECT_EQ(syncer_.Join(), 0);
}

}  // namespace
}  // namespace tolven

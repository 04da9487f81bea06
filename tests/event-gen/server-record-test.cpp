#include "client/core/server-record.h"

#include "client/core/unanswered-uploads.h"
#include "event-gen/session-fixture.h"

namespace tolven {
namespace {

PObject Record(const char* path, std::uint64_t sync_id, bool is_dir = false) {
  PObject record;
  record["path"] = path;
  record["is_dir"] = is_dir;
  record["is_removed"] = false;
  record["sync_id"] = sync_id;
  record["max_id"] = sync_id;
  return record;
}

class ServerRecordTest : public test::SessionTest {
 protected:
  // The one event that a record gives.
  Event Made(const PObject& record) {
    EXPECT_EQ(PushEvent(entry_, record), 1);
    const std::vector<Event> events = Events();
    EXPECT_EQ(events.size(), 1u);
    return events.empty() ? Event() : events[0];
  }
};

TEST_F(ServerRecordTest, DropsWhatTheClientDidItself) {
  Row("/d/f", 5);
  PObject removal = Record("/unknown", 9);
  removal["is_removed"] = 1;
  EXPECT_EQ(PushEvent(entry_, removal), 2);
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 6)), 1);  // news
  EXPECT_EQ(Plan(), std::vector<std::string>{"</d/f"});

  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 1);  // gone, so restored
  EXPECT_EQ(Plan(), std::vector<std::string>{"</d/f"});
  std::filesystem::create_directory((entry_.local_path + "/d").str());
  Touch("/d/f");
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 0);

  std::filesystem::remove_all((entry_.local_path + "/d").str());
  PushLocalRemoveEvent(entry_, "/d", true);
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 0);
  Event removing;
  ASSERT_EQ(EventManager::getInstance().PullEvent(&task_, removing), 0);
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 0);  // a worker is at it
  EventManager::getInstance().DoneEvent(&task_, removing);
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 1);
}

TEST_F(ServerRecordTest, LeavesRemovedWhatWasInAFolderThatTheServerBringsBack) {
  Row("/d", 4, true);
  Row("/d/f", 5);
  PushLocalRemoveEvent(entry_, "/d", true);
  EXPECT_EQ(PushEvent(entry_, Record("/d", 7, true)), 1);
  EXPECT_EQ(PushEvent(entry_, Record("/d/f", 5)), 0);
  EXPECT_EQ(Plan(), std::vector<std::string>{"</d/"});
}

TEST_F(ServerRecordTest, TakesAContentThatWasSentForTheAnswerToIt) {
  UnansweredUploads& uploads = UnansweredUploads::getInstance();
  const auto told = [](const char* path, const char* hash) {
    PObject record = Record(path, 8);
    record["file"]["hash"] = hash;
    record["file"]["size"] = 4;
    return record;
  };
  Row("/f", 5);
  for (const char* path : {"/f", "/never recorded"}) {
    uploads.Add(1, path, "ours");
    EXPECT_EQ(PushEvent(entry_, told(path, "ours")), 0);
    EXPECT_EQ(Plan(), std::vector<std::string>{std::string("-") + path});
    DBFileInfo row;
    ASSERT_EQ(entry_.event_db->getEventInfo(path, row), 1);
    EXPECT_EQ(row.syncID, 8u);
    EXPECT_EQ(row.fileCheckSum, "ours");
    ASSERT_EQ(entry_.event_db->getServerEventByPath(path, row), 1);
    EXPECT_NE(row.serverUnixMode, 0u);
  }
  // Whichever of several the server took.
  for (const char* hash : {"first", "second"}) uploads.Add(1, "/several", hash);
  EXPECT_EQ(PushEvent(entry_, told("/several", "first")), 0);
  EXPECT_EQ(Plan(), std::vector<std::string>{"-/several"});
  // Another's content is news, and so is one of which the answer came.
  uploads.Add(1, "/g", "ours");
  EXPECT_EQ(PushEvent(entry_, told("/g", "another's")), 1);
  EXPECT_EQ(Plan(), std::vector<std::string>{"</g"});
  uploads.Remove(1, "/g");
  EXPECT_EQ(PushEvent(entry_, told("/g", "ours")), 1);
  EXPECT_EQ(Plan(), std::vector<std::string>{"</g"});
  // A worker that is about the path writes the record.
  uploads.Add(1, "/f", "later");
  Event older;
  PObject news = told("/f", "another's");
  news["sync_id"] = 9;
  EXPECT_EQ(PushEvent(entry_, news), 1);
  ASSERT_EQ(EventManager::getInstance().PullEvent(&task_, older), 0);
  news["file"]["hash"] = "later";
  news["sync_id"] = 10;
  EXPECT_EQ(PushEvent(entry_, news), 1);
  EXPECT_EQ(EventManager::getInstance().DoneEvent(&task_, older), -1);
  EXPECT_EQ(older.m_sync_id, 10u);
  EXPECT_EQ(EventManager::getInstance().DoneEvent(&task_, older), 0);
  // What is there by then goes on from that version, even when it goes before it was looked at.
  Touch("/g");
  uploads.Add(1, "/g", "ours");
  EXPECT_EQ(PushEvent(entry_, told("/g", "ours")), 0);
  EXPECT_EQ(Plan(), std::vector<std::string>{"+/g"});
  DBFileInfo row;
  ASSERT_EQ(entry_.event_db->getEventInfo("/g", row), 1);
  EXPECT_EQ(row.syncID, 8u);
  EXPECT_EQ(row.localFileModTime, 0u) << "nothing tells that it has the content that was sent";
}

TEST_F(ServerRecordTest, FillsWhatIsNotTold) {
  Row("/f", 5);
  PObject record = Record("/f", 8);
  record["unix_perm"]["uid"] = 4;
  record["file"]["size"] = 10;
  record["share_priv"]["disabled"] = 1;
  Event event = Made(record);
  EXPECT_EQ(event.m_mode, Event::F_SERVER);
  EXPECT_EQ(event.m_type, Event::EV_CREATE);
  EXPECT_EQ(event.m_data_size, 10u);
  EXPECT_EQ(event.m_data_hash, "old");
  EXPECT_EQ(event.m_time, 70u);
  EXPECT_EQ(event.m_privilege.unix_mode.uid, 4u);
  EXPECT_EQ(event.m_privilege.unix_mode.gid, 9u);
  EXPECT_EQ(event.m_privilege.unix_mode.mode, 0x700u);
  EXPECT_EQ(event.m_privilege.share_priv.share_priv_disabled, 1);

  event = Made(Record("/f", 9, true));  // no content of a file for a folder
  EXPECT_TRUE(event.m_data_hash.empty());
  event = Made(Record("/new", 9));
  EXPECT_EQ(event.m_privilege.unix_mode.mode, 1877u);
  EXPECT_EQ(event.m_exec_bit, 1u);

  PushDownloadEvent(entry_, "/f", false);
  event = Events().at(0);
  EXPECT_EQ(event.m_sync_id, 0x7FFFFFFFFFFFFFFFu);
  EXPECT_EQ(event.m_data_hash, "old");
}

TEST_F(ServerRecordTest, RefusesWhatIsMalformedOrLeadsOut) {
  for (const char* path : {"", "f", "/", "//", "/a//b", "/a/", "/..", "/a/../b", "/./a", "/\xff",
                           "/a/.ZentrovaWorkingDirectory", "/.ZentrovaWorkingDirectory/x"}) {
    EXPECT_EQ(PushEvent(entry_, Record(path, 1)), -1) << path;
  }
  EXPECT_EQ(PushEvent(entry_, Record(("/" + std::string(5000, 'a')).c_str(), 1)), -1);
  PObject root = Record("/", 1, true);
  root["is_removed"] = true;
  EXPECT_EQ(PushEvent(entry_, root), -1);

  using Spoil = void (*)(PObject&);
  const Spoil spoils[] = {
      [](PObject& r) { r = 7; },
      [](PObject& r) { r["path"] = 7; },
      [](PObject& r) { r.asMap().erase("is_dir"); },
      [](PObject& r) { r.asMap().erase("is_removed"); },
      [](PObject& r) { r.asMap().erase("sync_id"); },
      [](PObject& r) { r["sync_id"] = "5"; },
      [](PObject& r) { r["sync_id"] = 0x7FFFFFFFFFFFFFFF; },
      [](PObject& r) { r["max_id"] = -1; },
      [](PObject& r) { r["file"] = "x"; },
      [](PObject& r) { r["file"]["size"] = -1; },
      [](PObject& r) { r["file"]["hash"] = 1; },
      [](PObject& r) { r["mtime"]["mtime"] = std::uint64_t{1} << 32; },
      [](PObject& r) { r["unix_perm"]["mode"].asArray(); },
  };
  for (std::size_t i = 0; i < std::size(spoils); ++i) {
    PObject record = Record("/f", 5);
    spoils[i](record);
    EXPECT_EQ(PushEvent(entry_, record), -1) << i;
  }

  if (test::MakeLink(folder_.path(), (entry_.local_path + "/link").str())) {
    EXPECT_EQ(PushEvent(entry_, Record("/link/f", 5)), -1);
  }
  EXPECT_TRUE(Events().empty());
  entry_.isMSDOS = true;  // a disk on which the other spelling is the same folder
  EXPECT_EQ(PushEvent(entry_, Record("/.zentrovaworkingdirectory/x", 1)), -1);
  EXPECT_EQ(PushEvent(entry_, Record("/link", 5)), 1);
}

}  // namespace
}  // namespace tolven

#include "client/file-event-db.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "client/event-db-columns.h"
#include "client/file-list.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

class EventDb : public testing::Test {
 protected:
  EventDb() { EXPECT_EQ(db_.initialize(folder_ / "event.sqlite"), 0); }
  ~EventDb() override { db_.destroy(); }

  void Put(const char* path, std::uint64_t sync_id, const char* hash, int type = 0) {
    DBFileInfo info;
    info.path = path;
    info.syncID = sync_id;
    info.maxSyncID = sync_id;
    info.fileType = type;
    info.fileCheckSum = hash;
    EXPECT_EQ(db_.setEventInfo(info), 0) << path;
  }
  bool Has(const char* path) {
    DBFileInfo info;
    return db_.getEventInfo(path, info) == 1;
  }

  const test::TempFolder folder_;
  FileEventDB db_;
};

TEST_F(EventDb, KeepsRowsAndTheSyncIdOverARestart) {
  Put("/dir/file", 41, "abc");
  EXPECT_EQ(db_.setSyncId(77), 0);
  db_.destroy();
  ASSERT_EQ(db_.initialize(folder_ / "event.sqlite"), 0);
  std::uint64_t sync_id = 0;
  EXPECT_EQ(db_.getSyncId(sync_id), 0);
  EXPECT_EQ(sync_id, 77u);
  DBFileInfo info;
  ASSERT_EQ(db_.getEventInfo("/dir/file", info), 1);
  EXPECT_EQ(info.syncID, 41u);
  EXPECT_EQ(info.fileCheckSum, "abc");
  // The folder on the way got a row, and the highest number below it.
  ASSERT_EQ(db_.getEventInfo("/dir", info), 1);
  EXPECT_TRUE(info.IsDir());
  EXPECT_EQ(info.maxSyncID, 41u);
  ustring path;
  EXPECT_EQ(db_.getFilePathByHash("abc", path), 1);
  EXPECT_EQ(path, "/dir/file");
}

// As when a session is added anew while a task still works with its old database.
TEST_F(EventDb, OpensWhileAnotherConnectionWrites) {
  std::atomic<bool> is_over{false};
  std::thread writer([&] {
    for (std::uint64_t id = 1; !is_over; ++id) EXPECT_EQ(db_.setSyncId(id), 0);
  });
  for (int i = 0; i < 100; ++i) {
    FileEventDB another;
    EXPECT_EQ(another.initialize(folder_ / "event.sqlite"), 0);
  }
  is_over = true;
  writer.join();
}

TEST_F(EventDb, RemovalTakesThePathAndNothingThatOnlyLooksLikeIt) {
  for (const char* path :
       {"/a[b]*/x", "/ab/x", "/a[b]/x", "/docs/x", "/docs.zip", "/docs - Copy"}) {
    Put(path, 1, "h");
  }
  EXPECT_EQ(db_.commitRemove("/a[b]*"), 0);
  EXPECT_FALSE(Has("/a[b]*/x"));
  EXPECT_TRUE(Has("/ab/x") && Has("/a[b]/x"));
  EXPECT_EQ(db_.commitRemove("/docs"), 0);
  EXPECT_FALSE(Has("/docs") || Has("/docs/x"));
  EXPECT_TRUE(Has("/docs.zip") && Has("/docs - Copy"));
}

TEST_F(EventDb, NothingStaysParkedBelowAFileButWhatIsNewer) {
  FilteredEvent parked;
  parked.filter_type = FilteredEvent::FILTERED_SELECTIVE_SYNC;
  const auto park = [&](const char* path, bool is_server, std::uint64_t sync_id) {
    parked.path = path;
    parked.is_server = is_server;
    parked.sync_id = sync_id;
    EXPECT_EQ(is_server ? db_.setServerFilteredEvent(parked) : db_.setLocalFilteredEvent(parked),
              0);
  };
  const auto count = [&](bool is_server) {
    std::vector<FilteredEvent> found;
    constexpr int kAll = FileEventDB::FILTER_FLAG_INCLUDE_CHILD;
    EXPECT_EQ(is_server ? db_.getServerFilteredEvent(FilteredEvent::FILTERED_ALL, "/", kAll, found)
                        : db_.getLocalFilteredEvent(FilteredEvent::FILTERED_ALL, "/", kAll, found),
              0);
    return found.size();
  };
  for (const char* path : {"/a/old", "/a b", "/a.x", "/a0", "/a/x/y"}) {
    park(path, true, 5);
    park(path, false, 0);
  }
  park("/a/new", true, 9);
  Put("/a", 7, "", 1);
  EXPECT_EQ(count(true), 6U) << "a folder";
  Put("/a", 7, "h");
  EXPECT_EQ(count(true), 4U);
  EXPECT_EQ(count(false), 3U);
}

TEST_F(EventDb, ASignatureNeverStandsBesideAnotherContent) {
  DBFileInfo info;
  info.path = "/file";
  info.fileCheckSum = "first";
  info.signaturePath = folder_ / "signature";
  test::WriteFile(info.signaturePath, "of first");
  ASSERT_EQ(db_.setEventInfo(info), 0);
  DBFileInfo row;
  ASSERT_EQ(db_.getEventInfo("/file", row), 1);
  EXPECT_EQ(test::ReadFile(row.signaturePath), "of first");

  info.fileCheckSum = "second";
  info.signaturePath.clear();
  ASSERT_EQ(db_.setEventInfo(info), 0);
  EXPECT_FALSE(std::filesystem::exists(row.signaturePath.str()));
}

TEST_F(EventDb, AFolderIsNeverRememberedAsItWasBeforeAWrite) {
  DBFileInfo folder, file;
  folder.path = "/p";
  folder.fileType = 1;
  file.path = "/p/x";
  FilteredEvent parked;
  parked.path = "/p";
  parked.is_server = true;
  parked.sync_id = 70;
  parked.unix_mode = 7;
  const std::vector<std::function<int()>> writes = {
      [&] { return db_.setEventInfo(file); },  // the folder comes as one known from below
      [&] { return folder.serverUnixMode = 5, db_.setEventInfo(folder); },
      [&] { return file.maxSyncID = 90, db_.setEventInfo(file); },
      [&] { return db_.setServerFilteredEvent(parked); },
      [&] { return db_.setEventInfo(file); },
      [&] { return db_.rmServerFilteredEvent(FilteredEvent::FILTERED_ACL, "/p", 0); },
      [&] { return db_.setServerFilteredEvent(parked); },
      [&] { return db_.setEventInfo(folder); },  // takes it out of what is parked
      [&] { return db_.commitRemove("/p/x"); },
      [&] { return folder.fileType = 0, db_.setEventInfo(folder); },
      [&] { return db_.rmLocalEventInfo("/p"); },
  };
  for (std::size_t i = 0; i < writes.size(); ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(writes[i](), 0);
    DBFileInfo fresh, remembered;
    const int found = db_.getServerEventByPath("/p", fresh);
    ASSERT_GE(found, 0);
    for (int time = 0; time < 2; ++time) {
      ASSERT_EQ(db_.getServerFolder("/p", remembered), found);
      if (found == 0) continue;
      EXPECT_EQ(remembered.serverUnixMode, fresh.serverUnixMode);
      EXPECT_EQ(remembered.fileType, fresh.fileType);
      EXPECT_EQ(remembered.isExist, fresh.isExist);
    }
  }
}

// Gives each field another value.
void FillRecord(DBFileInfo& info) {
  unsigned number = 100;
  event_db::VisitRecord(info, [&number](const char*, auto& field) {
    if constexpr (std::is_same_v<decltype(field), ustring&>) {
      field = "value " + std::to_string(++number);
    } else {
      field = static_cast<std::remove_reference_t<decltype(field)>>(++number);
    }
  });
  info.path = "/p/x";
  info.isExist = 1;
}

TEST_F(EventDb, EachColumnComesBackFromTheRowAndFromWhatIsParked) {
  DBFileInfo info, back, seen;
  FillRecord(info);
  ASSERT_EQ(db_.setEventInfo(info), 0);
  ASSERT_EQ(db_.getEventInfo("/p/x", back), 1);
  EXPECT_EQ(back.serverExecBit, 0U);
  ASSERT_EQ(db_.fillServerColumns("/p/x", back), 1);
  back.signaturePath.clear();
  EXPECT_EQ(back.ToPObject().toString(), info.ToPObject().toString());

  ustring found;
  EXPECT_TRUE(db_.getMacAttributeByHash(info.macHash, found) == 1 && found == "/p/x");
  EXPECT_TRUE(db_.getZentACLByHash(info.aclHash, found) == 1 && found == info.aclAttribute);
  EXPECT_EQ(db_.getSharePrivilegeByHash(info.sharePrivHash, seen), 1);
  EXPECT_TRUE(seen.sharePrivDisabled == info.sharePrivDisabled &&
              seen.sharePrivDenyList == info.sharePrivDenyList &&
              seen.sharePrivRoList == info.sharePrivRoList &&
              seen.sharePrivRwList == info.sharePrivRwList &&
              seen.sharePrivHash == info.sharePrivHash);
  EXPECT_EQ(db_.getZentACLByHash("no such", found), 0);

  const auto expect_server_view = [&](std::uint64_t number, std::uint32_t mode) {
    ASSERT_EQ(db_.getServerEventByPath("/p/x", seen), 1);
    EXPECT_EQ(seen.syncID, number);
    EXPECT_EQ(seen.serverUnixMode, mode);
    EXPECT_EQ(seen.fileCheckSum, info.fileCheckSum);
    EXPECT_EQ(seen.fileModTime, info.fileModTime);
    EXPECT_EQ(seen.serverAclHash, info.serverAclHash);
    EXPECT_EQ(seen.serverSharePrivRwList, info.serverSharePrivRwList);
    EXPECT_EQ(seen.unixMode, 0U);
  };
  expect_server_view(info.syncID, info.serverUnixMode);
  // The folder is parked, and what is known below it with it; then the file's newer change.
  FilteredEvent event;
  event.path = "/p";
  event.is_server = true;
  EXPECT_EQ(db_.setLocalFilteredEvent(event), -1);
  ASSERT_EQ(db_.setServerFilteredEvent(event), 0);
  std::vector<FilteredEvent> parked;
  ASSERT_EQ(db_.getServerFilteredEvent(FilteredEvent::FILTERED_ACL, "/p/x", 0, parked), 0);
  ASSERT_EQ(parked.size(), 1U);
  event = FileEventDB::ToFilteredEvent(FileEventDB::ToEvent(parked[0], 3), parked[0].filter_type);
  EXPECT_EQ(event.name, "x");
  event.sync_id = 999;
  event.unix_mode = 7;
  ASSERT_EQ(db_.setServerFilteredEvent(event), 0);
  expect_server_view(999, 7);
  std::vector<DBFileInfo> below;
  EXPECT_EQ(db_.getServerEventByPrefix("/", below), 0);
  EXPECT_EQ(below.size(), 3U);
  // Synced at last, it is parked no more.
  ASSERT_EQ(db_.setEventInfo(info), 0);
  expect_server_view(info.syncID, info.serverUnixMode);
}

TEST_F(EventDb, ParentsListingsAndTheRecycleBin) {
  Put("/a/b/c", 9, "sum");
  Put("/a/b/d", 5, "other");
  DBFileInfo info;
  for (const char* parent : {"/", "/a", "/a/b"}) {
    ASSERT_EQ(db_.getEventInfo(parent, info), 1) << parent;
    EXPECT_TRUE(info.IsDir() && info.syncID == 0 && info.maxSyncID == 9 && info.unixMode == 1877);
  }
  const auto names = [](auto list_into) {
    StringBuffer buffer;
    FileList list(buffer);
    EXPECT_EQ(list_into(list), 0);
    std::string shown;
    for (auto entry = list.rbegin(); entry != list.rend(); ++entry) {
      shown += entry->path.str() + (entry->is_dir() ? "/ " : " ");
    }
    return shown;
  };
  const auto one_level = [this](auto... rest) {
    return [=, this](FileList& list) { return db_.getFileListWithoutRecursive(list, rest...); };
  };
  EXPECT_EQ(names([this](FileList& list) { return db_.getFileList(list, "/a"); }),
            "/b/d /b/c /b/ ");
  EXPECT_EQ(names(one_level("/")), "/a/ ");
  EXPECT_EQ(names(one_level("/a/b")), "/d /c ");
  EXPECT_EQ(names(one_level("/a/b", std::uint64_t{5})), "/d ");

  std::uint32_t oldest = 1;
  EXPECT_EQ(db_.getOldestRecyleTime(oldest), 0);
  EXPECT_EQ(oldest, 0U);
  EXPECT_EQ(db_.dumpDirToRecycleBin("/a", "/a 2"), 0);
  ustring path;
  EXPECT_EQ(db_.getFilePathByHash("sum", path), 0);
  EXPECT_EQ(db_.getFilePathByHashFromRecycle("sum", path), 1);
  EXPECT_EQ(path, "/a 2/b/c");
  std::set<ustring> rotated;
  EXPECT_EQ(db_.getRotateList(UINT32_MAX, rotated), 0);
  EXPECT_EQ(rotated, std::set<ustring>{"/a 2"});
  EXPECT_EQ(db_.clear(), 0);
  EXPECT_EQ(db_.getFilePathByHashFromRecycle("sum", path), 1);
}

TEST(FilterTypes, LooksAtTheRuleOfACode) {
  for (const int code : {-515, -264, -523, -262}) EXPECT_TRUE(FileEventDB::IsValidFilterType(code));
  for (const int code : {-258, -265, -266}) EXPECT_FALSE(FileEventDB::IsValidFilterType(code));
}

}  // namespace
}  // namespace tolven

#include "client/file-event-db.h"

#include <gtest/gtest.h>

#include <filesystem>

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

TEST(FilterTypes, LooksAtTheRuleOfACode) {
  for (const int code : {-515, -264, -523, -262}) EXPECT_TRUE(FileEventDB::IsValidFilterType(code));
  for (const int code : {-258, -265, -266}) EXPECT_FALSE(FileEventDB::IsValidFilterType(code));
}

}  // namespace
}  // namespace tolven

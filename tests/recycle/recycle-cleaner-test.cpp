#include "client/core/recycle-cleaner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "client/file-event-db.h"
#include "platform/fake-clock.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven {

struct RecycleCleanerPeer {
  static int Step(RecycleCleaner& cleaner) {
    return cleaner.UpdateContext() != 0 ? -1 : cleaner.Rotate();
  }
  static std::uint64_t Session(const RecycleCleaner& cleaner) {
    return cleaner.context.entry.sess_id;
  }
  static PermissionMode Mode(const RecycleCleaner& cleaner) {
    return cleaner.context.entry.perm_mode;
  }
};

namespace {

class RecycleCleanerTest : public ::testing::Test {
 protected:
  RecycleCleanerTest() : clock_(1'700'000'000) {
    platform::SetClock(&clock_);
    platform::SetFiles(&files_);
  }
  ~RecycleCleanerTest() override {
    Registry::getInstance().Clear();
    platform::SetFiles(nullptr);
    platform::SetClock(nullptr);
  }

  // A session whose bin holds nothing yet.
  std::shared_ptr<FileEventDB> AddSession(std::uint64_t id) {
    Registry::Entry entry;
    entry.sess_id = id;
    entry.local_path = folder_ / std::to_string(id);
    std::filesystem::create_directories(Bin(id).str());
    entry.event_db = std::make_shared<FileEventDB>();
    EXPECT_EQ(entry.event_db->initialize(folder_ / (std::to_string(id) + ".sqlite")), 0);
    Registry::getInstance().Set(entry);
    return entry.event_db;
  }
  void Recycle(std::uint64_t id, const char* name) {
    Registry::Entry entry;
    ASSERT_EQ(Registry::getInstance().Find(id, entry), 1);
    test::WriteFile(Bin(id) + name, "x");
    ASSERT_EQ(entry.event_db->addFileToRecycleBin(name, 1, "hash", ""), 0);
    Registry::getInstance().InitRecycleTime(entry,
                                            static_cast<std::uint32_t>(clock_.WallSeconds()));
  }
  bool Holds(std::uint64_t id, const char* name) const {
    return std::filesystem::exists((Bin(id) + name).str());
  }
  ustring Bin(std::uint64_t id) const {
    return folder_ / (std::to_string(id) + "/.ZentrovaWorkingDirectory/#ZentRecycle");
  }
  std::uint32_t RecycleTime(std::uint64_t id) const {
    Registry::Entry entry;
    Registry::getInstance().Find(id, entry);
    return entry.recycle_time;
  }

  test::TempFolder folder_;
  platform::FakeClock clock_;
  platform::FaultPlan plan_;
  platform::ForwardingFiles files_{platform::files(), plan_.hook()};
  RecycleCleaner cleaner_;
};

TEST_F(RecycleCleanerTest, RemovesWhatLayForHalfAnHourInTheBinOfEachSessionInTurn) {
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), -1);
  EXPECT_EQ(RecycleCleanerPeer::Mode(cleaner_), PERM_SYNC_ALL);
  const auto one = AddSession(1);
  AddSession(2);
  Recycle(1, "/old");
  clock_.Advance(std::chrono::seconds(100));
  Recycle(1, "/new");
  const std::uint32_t new_time = static_cast<std::uint32_t>(clock_.WallSeconds());
  clock_.Advance(std::chrono::seconds(1699));
  for (const std::uint64_t id : {1U, 2U}) {
    EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), 0);
    EXPECT_EQ(RecycleCleanerPeer::Session(cleaner_), id);
  }
  EXPECT_TRUE(Holds(1, "/old"));
  clock_.Advance(std::chrono::seconds(1));
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), 0);
  EXPECT_FALSE(Holds(1, "/old"));
  EXPECT_TRUE(Holds(1, "/new"));
  EXPECT_EQ(RecycleTime(1), new_time);
  clock_.SetWallSeconds(1'600'000'000);  // what lies in the future counts as old
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_) | RecycleCleanerPeer::Step(cleaner_), 0);
  EXPECT_TRUE(Holds(1, "/new"));
  clock_.SetWallSeconds(1'800'000'000);
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_) | RecycleCleanerPeer::Step(cleaner_), 0);
  EXPECT_FALSE(Holds(1, "/new"));
  EXPECT_EQ(RecycleTime(1), 0U);
}

TEST_F(RecycleCleanerTest, AnItemThatStaysKeepsTheRowsOfItsBatch) {
  const auto db = AddSession(1);
  Recycle(1, "/a");
  Recycle(1, "/b");
  clock_.Advance(std::chrono::seconds(1800));
  plan_.FailNth("RemoveFile", 2, platform::ErrorKind::kAccessDenied);
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), -1);
  ASSERT_EQ(plan_.failures(), 1U);
  std::set<ustring> rows;
  ASSERT_EQ(db->getRotateList(UINT32_MAX, rows), 0);
  EXPECT_EQ(rows.size(), 2U);
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), 0);
  EXPECT_FALSE(Holds(1, "/a") || Holds(1, "/b"));
  rows.clear();
  ASSERT_EQ(db->getRotateList(UINT32_MAX, rows), 0);
  EXPECT_TRUE(rows.empty());
}

// Keeps to the permissions of folders, which the system does not for everybody.
class StrictFiles : public platform::ForwardingFiles {
 public:
  using ForwardingFiles::ForwardingFiles;

  platform::Status RemoveFile(const ustring& path) override {
    return MayWriteAbove(path) ? ForwardingFiles::RemoveFile(path) : Denied();
  }
  platform::Status RemoveDirectory(const ustring& path) override {
    return MayWriteAbove(path) ? ForwardingFiles::RemoveDirectory(path) : Denied();
  }
  platform::Status OpenRealDirectory(const ustring& path, bool want_info,
                                     std::unique_ptr<platform::DirReader>& reader) override {
    const bool shut = (Mode(path) & 0400) == 0;
    return shut ? Denied() : ForwardingFiles::OpenRealDirectory(path, want_info, reader);
  }

 private:
  static platform::Status Denied() {
    platform::Status status;
    status.kind = platform::ErrorKind::kAccessDenied;
    return status;
  }
  static unsigned Mode(const std::filesystem::path& path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
  }
  static unsigned Mode(const ustring& path) { return Mode(std::filesystem::path(path.str())); }
  static bool MayWriteAbove(const ustring& path) {
    return (Mode(std::filesystem::path(path.str()).parent_path()) & 0200) != 0;
  }
};

TEST_F(RecycleCleanerTest, NeitherClosedFoldersNorLinksKeepAnItem) {
  AddSession(1);
  Recycle(1, "/file");
  const std::string tree = Bin(1).str() + "/tree";
  std::filesystem::create_directories(tree + "/read-only/inner");
  std::filesystem::create_directories(tree + "/shut");
  test::WriteFile(ustring(tree + "/read-only/file"), "x");
  test::WriteFile(ustring(tree + "/shut/file"), "x");
  test::WriteFile(folder_ / "precious", "x");
  if (!test::HasModes() || !test::MakeLink(folder_.path(), tree + "/link")) {
    GTEST_SKIP() << "neither closed folders nor links here";
  }
  Registry::Entry entry;
  ASSERT_EQ(Registry::getInstance().Find(1, entry), 1);
  ASSERT_EQ(entry.event_db->addFileToRecycleBin("/tree", 1, "hash", ""), 0);
  clock_.Advance(std::chrono::seconds(1800));
  std::filesystem::permissions(tree + "/read-only", std::filesystem::perms(0500));
  std::filesystem::permissions(tree + "/shut", std::filesystem::perms(0));

  StrictFiles files(files_);
  platform::SetFiles(&files);
  cleaner_.Pause();  // leaves off at once
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), 0);
  EXPECT_TRUE(Holds(1, "/file"));
  cleaner_.Resume();
  EXPECT_EQ(RecycleCleanerPeer::Step(cleaner_), 0);
  platform::SetFiles(&files_);
  EXPECT_FALSE(Holds(1, "/file") || Holds(1, "/tree"));
  EXPECT_TRUE(std::filesystem::exists((folder_ / "precious").str()));
  EXPECT_EQ(RecycleTime(1), 0U);
}

TEST_F(RecycleCleanerTest, RunsAsATaskUntilItIsStopped) {
  AddSession(1);
  Recycle(1, "/a");
  clock_.Advance(std::chrono::seconds(1800));
  ASSERT_EQ(cleaner_.Run(), 0);
  while (RecycleTime(1) != 0) std::this_thread::yield();
  EXPECT_FALSE(Holds(1, "/a"));
  cleaner_.Pause();
  cleaner_.Resume();
  cleaner_.Stop();
  EXPECT_EQ(cleaner_.Join(), 0);
}

}  // namespace
}  // namespace tolven

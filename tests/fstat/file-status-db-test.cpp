#include "lib/file-status-db.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/program.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

// The reader in another process, as far as SQLite can tell: a connection of its own.
class Reader {
 public:
  explicit Reader(const ustring& path) { sqlite3_open(path.c_str_utf8(), &db_); }
  ~Reader() { sqlite3_close(db_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // Every value of the result with a blank behind it, or the error.
  std::string Run(const char* sql) {
    std::string text;
    char* error = nullptr;
    const auto add = [](void* out, int columns, char** values, char**) {
      for (int i = 0; i < columns; ++i) static_cast<std::string*>(out)->append(values[i]) += ' ';
      return 0;
    };
    if (sqlite3_exec(db_, sql, add, &text, &error) != SQLITE_OK) text = error;
    sqlite3_free(error);
    return text;
  }

 private:
  sqlite3* db_ = nullptr;
};

class FileStatusDBTest : public testing::Test {
 protected:
  FileStatusDBTest() { EXPECT_EQ(FileStatusDB::initialize(path_), 0); }
  ~FileStatusDBTest() override { FileStatusDB::destroy(); }

  static int Set(const char* path, int status = FSTAT_SYNCING, int type = 0) {
    FileStatusInfo info;
    info.path = path;
    info.syncStatus = status;
    info.fileType = type;
    return FileStatusDB::setFileSyncStat(info);
  }
  static void Remove(const char* path) {
    FileStatusInfo info;
    info.path = path;
    EXPECT_EQ(FileStatusDB::rmFileSyncStat(info), 0);
  }
  std::string Rows() { return Reader(path_).Run("select path from fstatinfo order by path"); }
  static int Status(const char* path) {
    FileStatusInfo info;
    return FileStatusDB::getFileSyncStat(path, &info) == 1 ? info.syncStatus : -1;
  }

  const test::TempFolder folder_;
  const ustring path_ = folder_ / "status.sqlite";
};

TEST_F(FileStatusDBTest, AnotherConnectionSeesEveryWriteAtOnce) {
  Reader reader(path_);
  EXPECT_EQ(reader.Run("PRAGMA journal_mode"), "wal ");
  EXPECT_EQ(reader.Run("select name from pragma_table_info('fstatinfo')"),
            "id path fileType syncStatus ");
  EXPECT_EQ(Set("C:\\it's"), 0);
  EXPECT_EQ(reader.Run("select * from fstatinfo"), "1 C:\\it's 0 2 ");
  EXPECT_EQ(Set("C:\\it's", FSTAT_READ_ONLY, 1), 0);
  EXPECT_EQ(reader.Run("select * from fstatinfo"), "2 C:\\it's 1 4 ");
  EXPECT_EQ(reader.Run("insert into fstatinfo values(NULL,'theirs',0,2)"), "");
  EXPECT_EQ(Status("theirs"), FSTAT_SYNCING);
  EXPECT_EQ(FileStatusDB::updateAllSyncingEntry(), 0);
  EXPECT_EQ(reader.Run("select syncStatus from fstatinfo"), "4 1 ");
  EXPECT_EQ(FileStatusDB::removeAllEntry(), 0);
  EXPECT_EQ(reader.Run("select * from fstatinfo"), "");
}

TEST_F(FileStatusDBTest, WaitsForTheLockOfAnotherConnection) {
  Reader reader(path_);
  EXPECT_EQ(reader.Run("begin immediate"), "");
  std::thread writer([] { EXPECT_EQ(Set("C:\\a"), 0); });
  EXPECT_EQ(reader.Run("insert into fstatinfo values(NULL,'C:\\b',0,2);commit"), "");
  writer.join();
  EXPECT_EQ(Rows(), "C:\\a C:\\b ");
}

TEST_F(FileStatusDBTest, SharesTheFileWithAnotherProcess) {
  EXPECT_EQ(Set("C:\\ours"), 0);
  const auto run = [this](const std::string& sql) {
    return test::RunProgram({RUN_SQL, path_, sql}).status;
  };
  ASSERT_EQ(run("update fstatinfo set syncStatus=5 where syncStatus=2;"
                "insert into fstatinfo values(NULL,'theirs',0,2)"),
            0);
  EXPECT_EQ(Status("C:\\ours"), FSTAT_NO_PERM);
  EXPECT_EQ(FileStatusDB::rmFileStatByPath("C:\\ours"), 0);
  EXPECT_EQ(Rows(), "theirs ");

  // Both write at the same time, and nothing is lost.
  std::thread other([&run] {
    std::string sql;
    for (int i = 0; i < 300; ++i)
      sql += "insert into fstatinfo values(NULL,'t" + std::to_string(i) + "',0,2);";
    EXPECT_EQ(run(sql), 0);
  });
  for (int i = 0; i < 300; ++i) EXPECT_EQ(Set(("o" + std::to_string(i)).c_str()), 0);
  other.join();
  EXPECT_EQ(Reader(path_).Run("select count(*) from fstatinfo"), "601 ");
}

TEST_F(FileStatusDBTest, RemovesAPathASubtreeOrABatch) {
  const char* const paths[] = {"C:\\a",    "C:\\a\\b",    "C:\\a/c",   "C:\\a\\b\\d", "C:\\ab",
                               "C:\\a[1]", "C:\\a[1]\\e", "C:\\a1\\f", "C:\\*\\g"};
  for (const char* path : paths) ASSERT_EQ(Set(path), 0);
  EXPECT_EQ(FileStatusDB::rmFileStatByPath("C:\\a"), 0);
  EXPECT_EQ(Status("C:\\a"), -1);
  EXPECT_EQ(Status("C:\\a\\b"), FSTAT_SYNCING);
  Remove("C:\\a");
  EXPECT_EQ(Rows(), "C:\\*\\g C:\\a1\\f C:\\a[1] C:\\a[1]\\e C:\\ab ");
  Remove("C:\\a[1]");
  Remove("C:\\*");
  EXPECT_EQ(Rows(), "C:\\a1\\f C:\\ab ");

  EXPECT_EQ(Set("C:\\it's"), 0);
  EXPECT_EQ(FileStatusDB::rmFileStatByPaths({}), 0);
  EXPECT_EQ(FileStatusDB::rmFileStatByPaths({"C:\\ab", "C:\\none", "C:\\it's"}), 0);
  EXPECT_EQ(Rows(), "C:\\a1\\f ");

  // All or none, and the connection is fit for use afterwards.
  ASSERT_EQ(Set("C:\\x"), 0);
  Reader reader(path_);
  ASSERT_EQ(reader.Run("create trigger keep before delete on fstatinfo when old.path='C:\\x' begin "
                       "select raise(abort,'kept'); end"),
            "");
  EXPECT_NE(FileStatusDB::rmFileStatByPaths({"C:\\a1\\f", "C:\\x"}), 0);
  EXPECT_EQ(Set("C:\\y"), 0);
  EXPECT_EQ(Rows(), "C:\\a1\\f C:\\x C:\\y ");
}

TEST_F(FileStatusDBTest, LooksUpPathsAsTheyAreWritten) {
  for (const char* path : {"C:\\100%", "C:\\100 percent", "C:\\a_b", "C:\\axb", "C:\\q\\"}) {
    ASSERT_EQ(Set(path, FSTAT_SYNCED), 0);
  }
  FileStatusInfo info;
  ASSERT_EQ(FileStatusDB::getFileSyncStat("C:\\100%", &info), 1);
  EXPECT_EQ(info.path, "C:\\100%");
  ASSERT_EQ(FileStatusDB::getFileSyncStat("C:\\a_b", &info), 1);
  EXPECT_EQ(info.path, "C:\\a_b");
  EXPECT_EQ(Status("C:\\q\\"), FSTAT_SYNCED);
  EXPECT_EQ(FileStatusDB::getFileSyncStat("C:\\a%", &info), 0);
  EXPECT_EQ(FileStatusDB::getFileSyncStat("C:\\a_b", nullptr), -1);
  EXPECT_EQ(FileStatusDB::getFileSyncStat("", &info), -1);

  ASSERT_EQ(Set("C:\\a_b\\c", FSTAT_SYNCING), 0);
  EXPECT_TRUE(FileStatusDB::isAnySubFileDirSyncing("C:\\a_b"));
  EXPECT_FALSE(FileStatusDB::isAnySubFileDirSyncing("C:\\a_c"));
  EXPECT_FALSE(FileStatusDB::isAnySubFileDirSyncing("C:\\100%"));
  EXPECT_FALSE(FileStatusDB::isAnyFileSyncing());
}

TEST_F(FileStatusDBTest, PagesDirectChildren) {
  for (const char* path : {"/r/a", "/r/b", "/r/c", "/r/a/x", "/r", "/rr/a", "/r_/a"}) {
    ASSERT_EQ(Set(path), 0);
  }
  int count = -1;
  const auto page = FileStatusDB::getFileSyncStats("/r", 1, 5, count);
  ASSERT_NE(page, nullptr);
  ASSERT_EQ(count, 2);
  EXPECT_EQ(page[0].path, "/r/b");
  EXPECT_EQ(page[1].path, "/r/c");
  EXPECT_NE(FileStatusDB::getFileSyncStats("/r", 0, 2, count), nullptr);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(FileStatusDB::getFileSyncStats("/r", 3, 5, count), nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_NE(FileStatusDB::getFileSyncStats("/r_", 0, 5, count), nullptr);
  EXPECT_EQ(count, 1);
}

TEST_F(FileStatusDBTest, ReportsFailuresAndRecovers) {
  EXPECT_EQ(FileStatusDB::initialize(""), -1);
  EXPECT_EQ(Set("C:\\a"), 0);  // a refused path changes nothing

  // The last connection takes the journal with it.
  FileStatusDB::destroy();
  EXPECT_FALSE(std::filesystem::exists(path_.str() + "-wal"));
  EXPECT_NE(Set("C:\\b"), 0);
  EXPECT_EQ(Status("C:\\a"), -1);

  EXPECT_EQ(FileStatusDB::initialize(folder_.path() + "/none/status.sqlite"), SQLITE_CANTOPEN);
  std::filesystem::create_directory(folder_.path() + "/none");
  EXPECT_NE(Set("C:\\b"), 0);  // there is no table yet
  EXPECT_EQ(FileStatusDB::initialize(folder_.path() + "/none/status.sqlite"), 0);
  EXPECT_EQ(Set("C:\\b"), 0);

  test::WriteFile(folder_ / "garbage", std::string(4096, 'x'));
  EXPECT_EQ(FileStatusDB::initialize(folder_ / "garbage"), SQLITE_NOTADB);
  EXPECT_EQ(FileStatusDB::initialize(path_), 0);
  EXPECT_EQ(Rows(), "C:\\a ");
}

}  // namespace
}  // namespace tolven

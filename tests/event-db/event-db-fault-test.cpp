// What stands after the process was killed and after any single call to the disk has failed, and
// that no query below a folder walks the whole table.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "client/event-db-functions.h"
#include "client/file-event-db.h"
#include "client/file-list.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/faulty-vfs.h"
#include "support/program.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;
using Rows = std::vector<std::string>;

// The first column of each row, read past the class under test.
Rows Select(const ustring& file, const std::string& sql) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(file.c_str_utf8(), &db), SQLITE_OK);
  Rows rows;
  const int code = sqlite3_exec(
      db, sql.c_str(),
      [](void* out, int, char** values, char**) {
        static_cast<Rows*>(out)->emplace_back(values[0] == nullptr ? "" : values[0]);
        return 0;
      },
      &rows, nullptr);
  EXPECT_EQ(code, SQLITE_OK) << sqlite3_errmsg(db) << "\n" << sql;
  sqlite3_close(db);
  return rows;
}

void ExpectSignaturesMatch(const std::string& folder, const std::string& content_of_row) {
  const ustring file(folder + "/event.sqlite");
  Rows expected = Select(file, "SELECT id || '=' || " + content_of_row + " FROM event_table");
  for (const std::string& row : expected) {
    const std::size_t split = row.find('=');
    const ustring path(folder + "/sign/" + event_db::path_convert(std::stoull(row)));
    if (!fs::exists(path.str())) continue;
    EXPECT_EQ(test::ReadFile(path), row.substr(split + 1)) << path;
  }
}

TEST(EventDbKilled, HoldsWholeRecordsAlone) {
  const test::TempFolder folder;
  const ustring file = folder / "event.sqlite";
  constexpr unsigned kRounds = 300;
  for (unsigned round = 0; round < kRounds; ++round) {
    const test::Outcome killed =
        test::RunProgram({EVENT_DB_WRITER, folder.path(), std::to_string(1 + round * 100),
                          std::to_string(1 + round * 37 % 1009)});
    ASSERT_EQ(killed.status, 9) << round << ": " << killed.output;
    if (round % 5 != 0) continue;  // mostly, the next writer finds what the last one left
    ASSERT_EQ(Select(file, "PRAGMA integrity_check"), Rows{"ok"});
    if (Select(file, "SELECT name FROM sqlite_master").empty()) continue;
    EXPECT_EQ(Select(file,
                     "SELECT path FROM event_table e WHERE isExist <> 1 OR (fileType = 0 AND "
                     "(syncID <> fileSize OR maxSyncID <> fileSize OR fileCheckSum <> fileSize OR "
                     "EXISTS (SELECT 1 FROM local_filter_table l WHERE l.path = e.path AND "
                     "l.syncID <= e.syncID)))"),
              Rows());
    EXPECT_EQ(Select(file,
                     "SELECT c.path FROM event_table c LEFT JOIN event_table p ON p.path IN "
                     "('/', substr(c.path, 1, 3), substr(c.path, 1, 5)) AND p.fileType = 1 WHERE "
                     "c.fileType = 0 GROUP BY c.path HAVING count(p.path) < 3 OR min(p.maxSyncID) "
                     "< max(c.maxSyncID)"),
              Rows());
    ExpectSignaturesMatch(folder.path(), "fileCheckSum");
  }
  FileEventDB db;
  EXPECT_EQ(db.initialize(file), 0);
  EXPECT_GT(Select(file, "SELECT path FROM event_table WHERE fileType = 0").size(), 10U);
}

DBFileInfo Record(const char* path, std::uint64_t number) {
  DBFileInfo info;
  info.path = path;
  info.syncID = info.maxSyncID = number;
  info.fileCheckSum = std::to_string(number);
  return info;
}

FilteredEvent Parked(const char* path, bool server) {
  FilteredEvent event;
  event.path = path;
  event.is_server = server;
  return event;
}

using Operation = std::function<int(FileEventDB&, const test::TempFolder&)>;

int SetWithSignature(FileEventDB& db, const test::TempFolder& folder) {
  DBFileInfo info = Record("/a/file", 20);
  info.signaturePath = folder / "new-signature";
  test::WriteFile(info.signaturePath, "20");
  return db.setEventInfo(info);
}

const std::vector<Operation> kOperations = {
    SetWithSignature,
    [](FileEventDB& db, auto&) { return db.setEventInfo(Record("/new/b/c", 21)); },
    [](FileEventDB& db, auto&) { return db.commitRemove("/a"); },
    [](FileEventDB& db, auto&) { return db.rmLocalEventInfo("/a"); },
    [](FileEventDB& db, auto&) { return db.clear(); },
    [](FileEventDB& db, auto&) { return db.rmAllFolders(); },
    [](FileEventDB& db, auto&) { return db.dumpDirToRecycleBin("/a", "/a-bin"); },
    [](FileEventDB& db, auto&) { return db.dumpFileToRecycleBin("/a/file", "/bin"); },
    [](FileEventDB& db, auto&) { return db.setServerFilteredEvent(Parked("/a", true)); },
    [](FileEventDB& db, auto&) { return db.expandLocalFilteredEvent("/a"); },
    [](FileEventDB& db, auto&) { return db.updateEventRecordLocalMtime("/a/file", 5); },
    [](FileEventDB& db, auto&) { return db.setSyncId(9); },
    [](FileEventDB& db, auto& folder) {
      db.destroy();
      return db.initialize(folder / "event.sqlite");
    },
};

class EventDbFaults : public testing::Test {
 protected:
  // A fresh folder with some rows, open.
  static void Fill(const test::TempFolder& folder, FileEventDB& db) {
    ASSERT_EQ(db.initialize(folder / "event.sqlite"), 0);
    DBFileInfo info = Record("/a/file", 10);
    info.signaturePath = folder / "old-signature";
    test::WriteFile(info.signaturePath, "10");
    ASSERT_EQ(db.setEventInfo(info), 0);
    ASSERT_EQ(db.setEventInfo(Record("/a/b/deep", 11)), 0);
    ASSERT_EQ(db.setLocalFilteredEvent(Parked("/a/parked", false)), 0);
    ASSERT_EQ(db.setServerFilteredEvent(Parked("/other", true)), 0);
  }

  static Rows Dump(const test::TempFolder& folder) {
    return Select(folder / "event.sqlite",
                  "SELECT path || '|' || syncID || '|' || maxSyncID || '|' || localFileModTime || "
                  "'|' || fileCheckSum FROM event_table UNION ALL SELECT 's' || path || isExist "
                  "FROM server_filter_table UNION ALL SELECT 'l' || path || isExist FROM "
                  "local_filter_table UNION ALL SELECT 'r' || path || fileCheckSum FROM "
                  "recycle_bin_table UNION ALL SELECT key || '=' || value FROM config_table ORDER "
                  "BY 1");
  }

  platform::FaultPlan plan_;
};

TEST_F(EventDbFaults, EachCallThatFailsLeavesTheStateBeforeOrAfter) {
  platform::ForwardingFiles files(platform::files(), plan_.hook());
  platform::Files* const real = platform::SetFiles(&files);
  const test::FaultyVfs vfs(plan_.hook());
  for (std::size_t i = 0; i < kOperations.size(); ++i) {
    Rows before, after;
    bool failed = true;
    for (unsigned nth = 0; failed; ++nth) {  // 0: no failure, for the state after
      SCOPED_TRACE("operation " + std::to_string(i) + ", call " + std::to_string(nth));
      ASSERT_LT(nth, 1000U);
      const test::TempFolder folder;
      FileEventDB db;
      Fill(folder, db);
      if (nth == 0) before = Dump(folder);
      plan_.Clear();
      if (nth > 0) plan_.FailNth(nth, platform::ErrorKind::kOther);
      const int result = kOperations[i](db, folder);
      failed = nth == 0 || plan_.failures() > 0;
      plan_.Clear();
      const Rows now = Dump(folder);
      if (nth == 0) after = now;
      ASSERT_TRUE(result == 0 || (nth > 0 && failed && result == -1)) << result;
      ASSERT_TRUE(now == after || (result == -1 && now == before)) << testing::PrintToString(now);
      ExpectSignaturesMatch(folder.path(), "fileCheckSum");
      if (now != after) {  // nothing is left locked or half open
        ASSERT_EQ(kOperations[i](db, folder), 0);
        ASSERT_EQ(Dump(folder), after);
      }
    }
  }
  platform::SetFiles(real);
}

TEST_F(EventDbFaults, RefusesWhatIsNoDatabaseAndWaitsForNobodyForever) {
  const test::TempFolder folder;
  FileEventDB db;
  EXPECT_EQ(db.setSyncId(1), -1);  // closed
  EXPECT_EQ(db.initialize(""), -1);
  EXPECT_EQ(db.initialize(folder / "missing/event.sqlite"), -1);
  test::WriteFile(folder / "garbage", std::string(5000, 'x'));
  EXPECT_EQ(db.initialize(folder / "garbage"), -1);
  Fill(folder, db);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open((folder / "event.sqlite").c_str_utf8(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_EQ(db.setEventInfo(Record("/a/file", 30)), -1);  // after 5 seconds
  sqlite3_close(other);
  EXPECT_EQ(db.setEventInfo(Record("/a/file", 30)), 0);
  db.destroy();
  {
    const test::FaultyVfs vfs(nullptr);
    test::FaultyVfs::ReadOnly() = true;
    EXPECT_EQ(db.initialize(folder / "event.sqlite"), -1);
    test::FaultyVfs::ReadOnly() = false;
    EXPECT_EQ(db.initialize(folder / "event.sqlite"), 0);
    db.destroy();
  }
  // Cut at any length, what it still answers is right.
  const std::string whole = test::ReadFile(folder / "event.sqlite");
  int refused = 0;
  for (std::size_t size = 1000; size < whole.size(); size += 4099) {
    test::WriteFile(folder / "cut", whole.substr(0, size));
    FileEventDB cut;
    DBFileInfo info;
    const bool opened = cut.initialize(folder / "cut") == 0;
    if (opened && cut.getEventInfo("/a/file", info) == 1) {
      EXPECT_EQ(info.fileCheckSum, "30");
    } else {
      ++refused;
    }
  }
  EXPECT_GT(refused, 3);
}

// Each statement that the class runs, as SQLite sees it.
Rows* traced = nullptr;
sqlite3* traced_db = nullptr;

int Trace(sqlite3* db, char**, const sqlite3_api_routines*) {
  traced_db = db;
  return sqlite3_trace_v2(
      db, SQLITE_TRACE_STMT,
      [](unsigned, void*, void* statement, void* text) {
        if (traced == nullptr || std::strncmp(static_cast<char*>(text), "--", 2) == 0) return 0;
        char* const sql = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
        traced->emplace_back(sql);
        sqlite3_free(sql);
        return 0;
      },
      nullptr);
}

TEST_F(EventDbFaults, EveryQueryBelowAFolderUsesTheIndexOnPaths) {
  const test::TempFolder folder;
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(Trace));
  FileEventDB db;
  Fill(folder, db);
  sqlite3_reset_auto_extension();
  Rows statements;
  traced = &statements;
  StringBuffer buffer;
  FileList list(buffer);
  std::vector<FilteredEvent> events;
  std::vector<DBFileInfo> infos;
  ustring found;
  EXPECT_EQ(db.getFileList(list, "/a"), 0);
  EXPECT_EQ(db.getFileListWithoutRecursive(list, "/a"), 0);
  EXPECT_EQ(db.getFileListWithoutRecursive(list, "/a", 5), 0);
  int files = 0;
  for (auto entry = list.rbegin(); entry != list.rend(); ++entry) files += entry->is_file();
  EXPECT_EQ(files, 2);  // a file that is listed again stays one
  EXPECT_EQ(db.getServerEventByPrefix("/a", infos), 0);
  for (const int option : {0, 1, 3}) {
    EXPECT_EQ(db.getLocalFilteredEvent(FilteredEvent::FILTERED_ACL, "/a", option, events), 0);
    EXPECT_EQ(db.rmServerFilteredEvent(FilteredEvent::FILTERED_ACL, "/a", option), 0);
  }
  EXPECT_EQ(db.getFilePathByHash("10", found), 1);
  EXPECT_EQ(db.setServerFilteredEvent(Parked("/a", true)), 0);
  EXPECT_EQ(db.expandLocalFilteredEvent("/a"), 0);
  EXPECT_EQ(db.dumpDirToRecycleBin("/a", "/bin"), 0);
  EXPECT_EQ(db.commitRemove("/b"), 0);
  traced = nullptr;
  EXPECT_GT(statements.size(), 20U);
  for (const std::string& sql : statements) {
    std::string plan;
    sqlite3_exec(
        traced_db, ("EXPLAIN QUERY PLAN " + sql).c_str(),
        [](void* out, int, char** values, char**) {
          static_cast<std::string*>(out)->append(values[3]).append("\n");
          return 0;
        },
        &plan, nullptr);
    EXPECT_EQ(plan.find("SCAN"), std::string::npos) << sql << "\n" << plan;
    EXPECT_EQ(plan.find("isExist_idx"), std::string::npos) << sql << "\n" << plan;
  }
}

}  // namespace
}  // namespace tolven

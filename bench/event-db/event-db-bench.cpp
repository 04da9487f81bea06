// The event database with 1,000,000 rows: records written with their parents and filter tables,
// beside a bare prepared upsert of the row alone, each in a transaction of its own on a file with
// the same tables, indexes and journal mode; and a listing of all rows beside bare stepping over
// them.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "client/event-db-columns.h"
#include "client/file-event-db.h"
#include "client/file-list.h"
#include "support/temp-folder.h"

namespace {

using Clock = std::chrono::steady_clock;
using tolven::DBFileInfo;
using tolven::FileEventDB;
using tolven::FileList;
using tolven::StringBuffer;
using tolven::ustring;

constexpr int kRows = 1'000'000, kWrites = 40'000;

std::string PathOf(int number) {
  return "/d" + std::to_string(number / 1000) + "/file number " + std::to_string(number);
}

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void Check(bool held) {
  if (held) return;
  std::fprintf(stderr, "bench_event_db: a call failed\n");
  std::exit(1);
}

// Bare access to a file that FileEventDB has made.
class Bare {
 public:
  explicit Bare(const ustring& path) {
    Check(sqlite3_open(path.c_str_utf8(), &db_) == SQLITE_OK);
    Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
    Check(sqlite3_prepare_v2(db_, UpsertText().c_str(), -1, &upsert_, nullptr) == SQLITE_OK);
  }
  ~Bare() {
    sqlite3_finalize(upsert_);
    sqlite3_close(db_);
  }
  void Run(const char* sql) {
    Check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
  }
  void Upsert(const DBFileInfo& info) {
    tolven::event_db::ColumnBinder bind(upsert_);
    tolven::event_db::VisitRecord(info, bind);
    Check(bind.code() == SQLITE_OK && sqlite3_step(upsert_) == SQLITE_DONE);
    sqlite3_reset(upsert_);
  }
  // Reads what a listing needs of each row.
  std::size_t StepAll() {
    sqlite3_stmt* all = nullptr;
    Check(sqlite3_prepare_v2(db_,
                             "SELECT path, fileType, fileSize, localFileModTime, aclHash FROM "
                             "event_table NOT INDEXED WHERE isExist = 1",
                             -1, &all, nullptr) == SQLITE_OK);
    std::size_t bytes = 0;
    while (sqlite3_step(all) == SQLITE_ROW) {
      sqlite3_column_text(all, 0);
      sqlite3_column_text(all, 4);
      bytes += static_cast<std::size_t>(sqlite3_column_bytes(all, 0)) +
               static_cast<std::size_t>(sqlite3_column_bytes(all, 4)) +
               static_cast<std::size_t>(sqlite3_column_int(all, 1)) +
               static_cast<std::size_t>(
                   (sqlite3_column_int64(all, 2) ^ sqlite3_column_int64(all, 3)) & 1);
    }
    sqlite3_finalize(all);
    return bytes;
  }

 private:
  // All columns, by the path.
  static std::string UpsertText() {
    std::string names, values, sets;
    int number = 0;
    const DBFileInfo shape;
    tolven::event_db::VisitRecord(shape, [&](const std::string& name, const auto&) {
      const std::string value = "?" + std::to_string(++number);
      names += ", " + name;
      values += ", " + value;
      if (name != "path") sets += (sets.empty() ? "" : ", ") + name + " = " + value;
    });
    return "INSERT INTO event_table (isExist" + names + ") VALUES (1" + values +
           ") ON CONFLICT(path) DO UPDATE SET " + sets + ";";
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
};

DBFileInfo RecordOf(int number, std::uint64_t sync_id) {
  DBFileInfo info;
  info.path = ustring(PathOf(number));
  info.isExist = 1;
  info.syncID = info.maxSyncID = sync_id;
  info.fileSize = static_cast<std::uint64_t>(number);
  info.fileModTime = info.localFileModTime = 1'700'000'000;
  char sum[33];
  std::snprintf(sum, sizeof sum, "%032d", number);
  info.fileCheckSum = sum;
  return info;
}

// Half of the writes meet a row.
int NumberOf(std::mt19937& random) {
  return static_cast<int>(random() % static_cast<unsigned>(2 * kRows));
}

// What the check of access costs for a folder above a file, in microseconds, while files are
// written: each batch of 100 in one folder.
template <class Find>
double FolderLookups(FileEventDB& db, Find&& find) {
  constexpr int kFiles = 5'000;
  double seconds = 0;
  DBFileInfo found;
  for (int i = 0; i < kFiles; ++i) {
    const int number = i / 100 * 1000 + i % 100;
    const ustring folder = "/d" + std::to_string(number / 1000);
    const Clock::time_point start = Clock::now();
    Check(find(folder, found) == 1);
    seconds += Since(start);
    Check(db.setEventInfo(RecordOf(number, static_cast<std::uint64_t>(i + 3))) == 0);
  }
  return seconds / kFiles * 1e6;
}

}  // namespace

int main() {
  const tolven::test::TempFolder folder;
  const ustring path = folder / "events.sqlite";
  {
    FileEventDB maker;
    Check(maker.initialize(path) == 0);
  }
  {
    Bare bare(path);
    bare.Run("BEGIN;");
    for (int i = 0; i < kRows; ++i) bare.Upsert(RecordOf(i, 1));
    bare.Run("COMMIT;");
    bare.Run("PRAGMA wal_checkpoint(TRUNCATE);");
  }
  std::mt19937 random(1);
  FileEventDB db;
  Check(db.initialize(path) == 0);
  db.setEventInfo(RecordOf(0, 2));
  Clock::time_point start = Clock::now();
  for (int i = 0; i < kWrites; ++i) {
    Check(db.setEventInfo(RecordOf(NumberOf(random), static_cast<std::uint64_t>(i + 3))) == 0);
  }
  const double ours = kWrites / Since(start);

  StringBuffer buffer(0x200);
  FileList list(buffer);
  start = Clock::now();
  Check(db.getFileList(list, "/") == 0);
  const double listed = Since(start);
  const double queried = FolderLookups(
      db, [&](const ustring& at, DBFileInfo& out) { return db.getServerEventByPath(at, out); });
  const double remembered = FolderLookups(
      db, [&](const ustring& at, DBFileInfo& out) { return db.getServerFolder(at, out); });
  db.destroy();

  Bare bare(path);
  bare.Run("PRAGMA wal_checkpoint(TRUNCATE);");
  random.seed(1);
  start = Clock::now();
  for (int i = 0; i < kWrites; ++i) {
    bare.Run("BEGIN IMMEDIATE;");
    bare.Upsert(RecordOf(NumberOf(random), static_cast<std::uint64_t>(i + 3)));
    bare.Run("COMMIT;");
  }
  const double theirs = kWrites / Since(start);
  start = Clock::now();
  Check(bare.StepAll() > 0);
  const double stepped = Since(start);

  std::printf("records: %.0f a second, bare upserts %.0f: ratio %.2f (wanted 0.4)\n", ours, theirs,
              ours / theirs);
  std::printf("listing: %.2f s, bare stepping %.2f s: ratio %.2f (wanted 0.5)\n", listed, stepped,
              stepped / listed);
  std::printf("a folder's row while files are written: %.1f us asked for, %.2f us remembered\n",
              queried, remembered);
  return ours / theirs >= 0.4 && stepped / listed >= 0.5 ? 0 : 1;
}

// Status writes a second, on the connection that FileStatusDB keeps, and with one opened and closed
// for each call, bare and beside a connection that another reader holds.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "lib/file-status-db.h"

namespace {

using tolven::FileStatusDB;
using tolven::FileStatusInfo;

class Database {
 public:
  Database() : folder_(std::filesystem::temp_directory_path() / "tolven-bench-fstat") {
    std::filesystem::create_directories(folder_);
    FileStatusDB::initialize(file());
  }
  ~Database() {
    FileStatusDB::destroy();
    std::filesystem::remove_all(folder_);
  }
  std::string file() const { return (folder_ / "status.sqlite").string(); }

 private:
  std::filesystem::path folder_;
};

FileStatusInfo NextStatus() {
  static int number = 0;
  FileStatusInfo info;
  info.syncStatus = tolven::FSTAT_SYNCING;
  info.path = "C:\\Users\\someone\\Documents\\file-" + std::to_string(++number % 1000);
  return info;
}

void KeptConnection(benchmark::State& state) {
  const Database database;
  for (auto _ : state) {
    if (FileStatusDB::setFileSyncStat(NextStatus()) != 0) state.SkipWithError("write failed");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(KeptConnection);

// `range(0)`: whether some other connection keeps the journal from being torn down.
void OpenedForEachCall(benchmark::State& state) {
  const Database database;
  if (state.range(0) == 0) FileStatusDB::destroy();
  for (auto _ : state) {
    const FileStatusInfo info = NextStatus();
    sqlite3* db = nullptr;
    sqlite3_open(database.file().c_str(), &db);
    sqlite3_busy_timeout(db, 300000);
    sqlite3_exec(db, "PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF;", nullptr, nullptr,
                 nullptr);
    char* const sql = sqlite3_mprintf(
        "insert or replace into fstatinfo (id, path, fileType, syncStatus) "
        "values(NULL, '%q', %d, %d);",
        info.path.c_str(), info.fileType, info.syncStatus);
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != 0) state.SkipWithError("write failed");
    sqlite3_free(sql);
    sqlite3_close(db);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OpenedForEachCall)->ArgName("beside_kept")->Arg(0)->Arg(1);

}  // namespace

#include "lib/file-status-db.h"

#include <sqlite3.h>

#include <algorithm>
#include <functional>

#include "lib/db-escape.h"
#include "lib/log.h"
#include "platform/mutex.h"

namespace tolven {

namespace {

constexpr int kBusyMilliseconds = 300000;
constexpr char kConnectionPragmas[] = "PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF;";
constexpr char kSchema[] =
    "PRAGMA journal_mode = WAL;"
    "PRAGMA synchronous = OFF; "
    "CREATE TABLE IF NOT EXISTS fstatinfo ("
    "        id   INTEGER PRIMARY KEY AUTOINCREMENT, "
    "\t\tpath text unique NOT NULL,  "
    "\t\tfileType integer NOT NULL,  "
    "\t\tsyncStatus integer NOT NULL  "
    "); ";
constexpr char kIndex[] = "CREATE INDEX IF NOT EXISTS fstatinfo_path_idx on fstatinfo(path);";

// The two statements of every event's road are compiled once for each connection.
constexpr char kSetStatement[] =
    "insert or replace into fstatinfo  (id, path, fileType, syncStatus)  values(NULL, ?1, ?2, ?3);";
constexpr char kRemoveStatement[] = "delete from fstatinfo where path = ?1;";

// Called with each row's number and its statement.
using RowReader = std::function<void(int, sqlite3_stmt*)>;

struct State {
  Mutex lock;
  ustring m_fstatDBPath GUARDED_BY(lock);
  // Opened and compiled on demand.
  sqlite3* db GUARDED_BY(lock) = nullptr;
  sqlite3_stmt* set GUARDED_BY(lock) = nullptr;
  sqlite3_stmt* remove GUARDED_BY(lock) = nullptr;
};

State& state() {
  static State* const instance = new State;
  return *instance;
}

void Close(State& s) REQUIRES(s.lock) {
  sqlite3_finalize(s.set);
  sqlite3_finalize(s.remove);
  s.set = s.remove = nullptr;
  sqlite3_close(s.db);
  s.db = nullptr;
}

// Logs a failure and gives the connection up, so that the next call begins afresh.
int Fail(State& s, int line, int code) REQUIRES(s.lock) {
  Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                 L"[ERROR] file-status-db(%d): failed on '%s': [%d] %s\n", line, s.m_fstatDBPath,
                 code, s.db == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(s.db));
  Close(s);
  return code;
}

int Open(State& s) REQUIRES(s.lock) {
  if (s.db != nullptr) return SQLITE_OK;
  int code = sqlite3_open(s.m_fstatDBPath.c_str_utf8(), &s.db);
  if (code != SQLITE_OK) return Fail(s, __LINE__, code);
  // Before the pragmas: switching the journal of a file in use waits, too.
  sqlite3_busy_timeout(s.db, kBusyMilliseconds);
  code = sqlite3_exec(s.db, kConnectionPragmas, nullptr, nullptr, nullptr);
  return code == SQLITE_OK ? code : Fail(s, __LINE__, code);
}

int Execute(State& s, int line, const char* sql) REQUIRES(s.lock) {
  if (const int code = Open(s); code != SQLITE_OK) return code;
  const int code = sqlite3_exec(s.db, sql, nullptr, nullptr, nullptr);
  return code == SQLITE_OK ? code : Fail(s, line, code);
}

int Execute(int line, const char* sql) {
  State& s = state();
  const MutexLock hold(s.lock);
  return Execute(s, line, sql);
}

int Prepare(State& s, int line, const char* sql, sqlite3_stmt*& statement) REQUIRES(s.lock) {
  if (const int code = Open(s); code != SQLITE_OK || statement != nullptr) return code;
  const int code =
      sqlite3_prepare_v3(s.db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return code == SQLITE_OK ? code : Fail(s, line, code);
}

// Runs a compiled statement whose first parameter is a path.
int Step(State& s, int line, sqlite3_stmt* statement, std::string_view path) REQUIRES(s.lock) {
  int code =
      sqlite3_bind_text64(statement, 1, path.data(), path.size(), SQLITE_STATIC, SQLITE_UTF8);
  if (code == SQLITE_OK) {
    sqlite3_step(statement);
    code = sqlite3_reset(statement);
  }
  return code == SQLITE_OK ? code : Fail(s, line, code);
}

int RemovePath(State& s, int line, const ustring& path) REQUIRES(s.lock) {
  if (const int code = Prepare(s, line, kRemoveStatement, s.remove); code != SQLITE_OK) return code;
  return Step(s, line, s.remove, path.view());
}

// Text from sqlite3_mprintf.
struct SqlText {
  explicit SqlText(char* made) : text(made) {}
  ~SqlText() { sqlite3_free(text); }
  SqlText(const SqlText&) = delete;
  SqlText& operator=(const SqlText&) = delete;

  char* const text;
};

int Execute(int line, const SqlText& sql) {
  if (sql.text != nullptr) return Execute(line, sql.text);
  Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                 L"[ERROR] file-status-db(%d): out of memory for a statement\n", line);
  return SQLITE_NOMEM;
}

// The number of rows, or -1.
int Query(int line, const std::string& sql, const RowReader& read_row) {
  State& s = state();
  const MutexLock hold(s.lock);
  if (Open(s) != SQLITE_OK) return -1;
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(s.db, sql.c_str(), -1, &statement, nullptr);
  int rows = 0;
  if (code == SQLITE_OK) {
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) read_row(rows++, statement);
  }
  const std::string text = sqlite3_errmsg(s.db);
  sqlite3_finalize(statement);
  if (code == SQLITE_DONE) return rows;
  Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                 L"[ERROR] file-status-db(%d): failed on '%s': [%d] %s\n", line, s.m_fstatDBPath,
                 code, text);
  if (code != SQLITE_ERROR) Close(s);  // which says that the statement is wrong, not the file
  return -1;
}

FileStatusInfo ReadRow(int row, sqlite3_stmt* statement) {
  FileStatusInfo info;
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    switch (column) {
      case 0:
        break;
      case 1:
        if (const auto* const text = sqlite3_column_text(statement, column)) {
          info.path = reinterpret_cast<const char*>(text);
        }
        break;
      case 2:
        info.fileType = sqlite3_column_int(statement, column);
        break;
      case 3:
        info.syncStatus = sqlite3_column_int(statement, column);
        break;
      default:
        Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                       L"[ERROR] file-status-db(%d): mismatched db output index. row-idx:[%d] "
                       L"col-idx:[%d]\n",
                       __LINE__, row, column);
    }
  }
  return info;
}

// A path as the literal beginning of a GLOB pattern, which knows no escape character.
std::string GlobLiteral(std::string_view path) {
  std::string pattern;
  for (const char c : path) {
    if (c == '*' || c == '?' || c == '[') {
      pattern.append(1, '[').append(1, c).append(1, ']');
    } else {
      pattern += c;
    }
  }
  return pattern;
}

}  // namespace

FileStatusDB::FileStatusDB(const ustring& path) { initialize(path); }

int FileStatusDB::initialize(const ustring& path) {
  if (path.empty()) {
    Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                   L"[ERROR] file-status-db(%d): empty path of the database\n", __LINE__);
    return -1;
  }
  State& s = state();
  const MutexLock hold(s.lock);
  Close(s);
  s.m_fstatDBPath = path;
  if (const int code = Execute(s, __LINE__, kSchema); code != SQLITE_OK) return code;
  return Execute(s, __LINE__, kIndex);
}

void FileStatusDB::destroy() {
  State& s = state();
  const MutexLock hold(s.lock);
  Close(s);
  s.m_fstatDBPath.clear();
}

int FileStatusDB::setFileSyncStat(const FileStatusInfo& info) {
  State& s = state();
  const MutexLock hold(s.lock);
  if (const int code = Prepare(s, __LINE__, kSetStatement, s.set); code != SQLITE_OK) return code;
  sqlite3_bind_int(s.set, 2, info.fileType);
  sqlite3_bind_int(s.set, 3, info.syncStatus);
  return Step(s, __LINE__, s.set, info.path);
}

int FileStatusDB::rmFileSyncStat(const FileStatusInfo& info) {
  const std::string below = GlobLiteral(info.path);
  return Execute(__LINE__, SqlText(sqlite3_mprintf(
                               "delete from fstatinfo where (path = %Q OR path GLOB '%q/*' OR path "
                               "GLOB '%q\\*');",
                               info.path.c_str(), below.c_str(), below.c_str())));
}

int FileStatusDB::rmFileStatByPath(const ustring& path) {
  State& s = state();
  const MutexLock hold(s.lock);
  return RemovePath(s, __LINE__, path);
}

int FileStatusDB::rmFileStatByPaths(const std::vector<ustring>& paths) {
  if (paths.empty()) return SQLITE_OK;
  State& s = state();
  const MutexLock hold(s.lock);
  int code = Execute(s, __LINE__, "BEGIN IMMEDIATE;");
  for (auto path = paths.begin(); code == SQLITE_OK && path != paths.end(); ++path) {
    code = RemovePath(s, __LINE__, *path);  // a failure closes the connection, which rolls back
  }
  return code == SQLITE_OK ? Execute(s, __LINE__, "COMMIT;") : code;
}

int FileStatusDB::getFileSyncStat(const ustring& path, FileStatusInfo* info) {
  if (path.empty() || info == nullptr) {
    Logger::LogMsg(Logger::L_ERR, "fstat_db_debug",
                   L"[ERROR] file-status-db(%d): no path to look up, or no place for its status\n",
                   __LINE__);
    return -1;
  }
  const std::string sql = ZENTDBEscapeStringEX3(
      "select * from fstatinfo where path like '@ZENT:LVAR' ESCAPE '\\'", path);
  const int rows = Query(__LINE__, sql, [info](int row, sqlite3_stmt* statement) {
    if (row == 0) *info = ReadRow(row, statement);
  });
  return std::min(rows, 1);
}

std::unique_ptr<FileStatusInfo[]> FileStatusDB::getFileSyncStats(const ustring& path, int offset,
                                                                 int limit, int& count) {
  count = 0;
  const std::string sql = ZENTDBEscapeStringEX3(
      "select * from fstatinfo where path like '@ZENT:LVAR/%%' ESCAPE '\\' and path not like "
      "'@ZENT:LVAR/%%/%%' ESCAPE '\\' limit @ZENT:INT, @ZENT:INT ",
      path, path, offset, limit);
  std::vector<FileStatusInfo> found;
  const int rows = Query(__LINE__, sql, [&found](int row, sqlite3_stmt* statement) {
    found.push_back(ReadRow(row, statement));
  });
  if (rows <= 0) return nullptr;
  auto page = std::make_unique<FileStatusInfo[]>(found.size());
  std::move(found.begin(), found.end(), page.get());
  count = rows;
  return page;
}

bool FileStatusDB::isAnyFileSyncing() {
  // The misspelled column makes the statement fail, and the answer "no", on purpose.
  const std::string sql =
      "select * from fstatinfo where syncStatuc=" + std::to_string(FSTAT_SYNCING) + " limit 2";
  return Query(__LINE__, sql, [](int, sqlite3_stmt*) {}) > 0;
}

bool FileStatusDB::isAnySubFileDirSyncing(const ustring& path) {
  const std::string sql = ZENTDBEscapeStringEX3(
      "select * from fstatinfo where path like '@ZENT:LVAR%' ESCAPE '\\' and syncStatus=@ZENT:INT "
      "limit 2",
      path, static_cast<int>(FSTAT_SYNCING));
  return Query(__LINE__, sql, [](int, sqlite3_stmt*) {}) > 0;
}

int FileStatusDB::updateAllSyncingEntry() {
  return Execute(__LINE__, "UPDATE fstatinfo SET syncStatus = 1 WHERE syncStatus = 2");
}

int FileStatusDB::removeAllEntry() {
  return Execute(__LINE__, "DELETE FROM fstatinfo;ANALYZE;VACUUM;");
}

}  // namespace tolven

#include "server/store/database.h"

#include "lib/log.h"

namespace tolven::server {

namespace {

constexpr int kBusyMilliseconds = 30'000;

// A checkpoint costs two syncs and a write of each page that was touched, which are mostly the same
// few: a longer journal pays. 32 MiB, and 8 MiB of memory.
constexpr int kCheckpointPages = 8192;

void LogFailure(int line, sqlite3* db, int code) {
  Logger::LogMsg(Logger::L_ERR, "server", L"[ERROR] database(%d): [%d] %s\n", line, code,
                 db == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(db));
}

}  // namespace

Query::~Query() {
  if (statement_ == nullptr) return;
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Query& Query::operator<<(std::int64_t value) {
  if (sqlite3_bind_int64(statement_, ++parameter_, value) != SQLITE_OK) failed_ = true;
  return *this;
}

Query& Query::operator<<(const std::string& text) {
  if (sqlite3_bind_text64(statement_, ++parameter_, text.data(), text.size(), SQLITE_TRANSIENT,
                          SQLITE_UTF8) != SQLITE_OK) {
    failed_ = true;
  }
  return *this;
}

Query& Query::Bytes(const std::string& bytes) {
  if (sqlite3_bind_blob64(statement_, ++parameter_, bytes.data(), bytes.size(), SQLITE_STATIC) !=
      SQLITE_OK) {
    failed_ = true;
  }
  return *this;
}

int Query::Step() {
  if (statement_ == nullptr || failed_) return -1;
  column_ = 0;
  const int code = sqlite3_step(statement_);
  if (code == SQLITE_ROW) return 1;
  if (code == SQLITE_DONE) return 0;
  LogFailure(__LINE__, db_, code);
  return -1;
}

std::uint64_t Query::Number() {
  return static_cast<std::uint64_t>(sqlite3_column_int64(statement_, column_++));
}

std::string Query::Text() {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column_));
  const int size = sqlite3_column_bytes(statement_, column_++);
  return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(size));
}

std::string Query::Bytes() {
  const void* const bytes = sqlite3_column_blob(statement_, column_);
  const int size = sqlite3_column_bytes(statement_, column_++);
  return bytes == nullptr
             ? std::string()
             : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

Database::~Database() {
  for (const auto& [text, statement] : statements_) sqlite3_finalize(statement);
  sqlite3_close(db_);
}

bool Database::Open(const ustring& path) {
  const int code =
      sqlite3_open_v2(path.c_str_utf8(), &db_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code != SQLITE_OK) {
    LogFailure(__LINE__, db_, code);
    return false;
  }
  sqlite3_busy_timeout(db_, kBusyMilliseconds);
  (void)sqlite3_wal_autocheckpoint(db_, kCheckpointPages);
  // An acknowledged change survives a loss of power: every commit is synced.
  return Execute(
      "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; "
      "PRAGMA cache_size = -8192; PRAGMA temp_store = MEMORY;");
}

bool Database::Execute(const char* script) {
  const int code = sqlite3_exec(db_, script, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) LogFailure(__LINE__, db_, code);
  return code == SQLITE_OK;
}

Query Database::Prepare(const char* sql) {
  sqlite3_stmt*& statement = statements_[sql];
  if (statement == nullptr) {
    const int code =
        sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) LogFailure(__LINE__, db_, code);
  }
  return Query(db_, statement);
}

std::uint64_t Database::last_id() const {
  return static_cast<std::uint64_t>(sqlite3_last_insert_rowid(db_));
}

}  // namespace tolven::server

#include "client/event-db-connection.h"

#include <cstdarg>
#include <new>

namespace tolven::event_db {

namespace {
constexpr int kBusyMilliseconds = 5000;
}

std::string Sql(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char* const text = sqlite3_vmprintf(format, args);
  va_end(args);
  if (text == nullptr) throw std::bad_alloc();
  std::string sql = text;
  sqlite3_free(text);
  return sql;
}

int Connection::Open(const ustring& path) {
  // The owner's lock makes SQLite's own superfluous.
  const int code =
      sqlite3_open_v2(path.c_str_utf8(), &db_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code == SQLITE_OK) sqlite3_busy_timeout(db_, kBusyMilliseconds);
  return code;
}

void Connection::Close() {
  for (sqlite3_stmt*& statement : statements_) {
    sqlite3_finalize(statement);
    statement = nullptr;
  }
  sqlite3_close(db_);
  db_ = nullptr;
}

std::string Connection::error_text() const {
  return db_ == nullptr ? "out of memory" : sqlite3_errmsg(db_);
}

int Connection::Execute(int line, const std::string& script) {
  if (!is_open()) return FailClosed(line);
  const int code = sqlite3_exec(db_, script.c_str(), nullptr, nullptr, nullptr);
  if (code == SQLITE_OK) return 0;
  Fail(line, "sqlite3_exec", code);
  Rollback();
  return -1;
}

sqlite3_stmt* Connection::Prepare(int line, Statement which, const char* sql) {
  if (!is_open()) {
    FailClosed(line);
    return nullptr;
  }
  sqlite3_stmt*& statement = statements_[which];
  if (statement == nullptr) {
    const int code =
        sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) Fail(line, "sqlite3_prepare_v2", code);
  }
  return statement;
}

int Connection::Step(int line, sqlite3_stmt* statement) {
  const int code = sqlite3_step(statement);
  if (code == SQLITE_ROW) return 1;
  if (code == SQLITE_DONE) return 0;
  Fail(line, "sqlite3_step", code);
  return -1;
}

void Connection::Rollback() {
  if (is_open() && sqlite3_get_autocommit(db_) == 0) {
    sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
  }
}

int Connection::Fail(int line, const char* call, int code) const {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): %s: [%d] %s\n", line, call, code,
                 error_text());
  return -1;
}

int Connection::FailClosed(int line) const {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): the database is not open\n",
                 line);
  return -1;
}

}  // namespace tolven::event_db

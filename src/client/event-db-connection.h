// One connection to an SQLite file, with its failures logged as "event_db_debug". Not locked: its
// owner serialises all calls.
#pragma once

#include <sqlite3.h>

#include <array>
#include <string>

#include "lib/log.h"
#include "ustring/ustring.h"

namespace tolven::event_db {

inline constexpr char kCategory[] = "event_db_debug";

// Text by sqlite3_mprintf, with its %q and %Q. Numbers are passed as what their directive takes:
// unsigned long long for %llu, unsigned long for %lu.
std::string Sql(const char* format, ...);

// Statements that are compiled once for a connection.
enum Statement : std::size_t {
  kBegin,
  kCommit,
  kInsert,
  kUpdate,
  kUnparkLocal,
  kUnparkServer,
  kInsertParent,
  kRaiseParent,
  kContent,
  kContains,
  kGetInfo,
  kServerColumns,
  kServerView,
  kAnyParked,
  kConfig,
  kStatements
};

class Connection {
 public:
  Connection() = default;
  ~Connection() { Close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // SQLite's code; the caller logs with error_text() and closes.
  int Open(const ustring& path);
  void Close();
  bool is_open() const { return db_ != nullptr; }
  sqlite3* get() const { return db_; }
  std::string error_text() const;

  // Runs a script: 0 or -1. A transaction that a failing script leaves open is rolled back.
  int Execute(int line, const std::string& script);

  // Calls `read_row(sqlite3_stmt*)` for each row: their number, or -1.
  template <class ReadRow>
  int Query(int line, const std::string& sql, ReadRow&& read_row);

  // A compiled statement, its parameters unset; null after a failure.
  sqlite3_stmt* Prepare(int line, Statement which, const char* sql);
  // Steps a compiled statement once: 1 with a row, 0 at the end, -1.
  int Step(int line, sqlite3_stmt* statement);
  void Rollback();

  // Logs a failure: -1.
  int Fail(int line, const char* call, int code) const;

 private:
  int FailClosed(int line) const;

  sqlite3* db_ = nullptr;
  std::array<sqlite3_stmt*, kStatements> statements_{};
};

// Ends the read that a stepped statement holds.
class ResetAtEnd {
 public:
  explicit ResetAtEnd(sqlite3_stmt* statement) : statement_(statement) {}
  ~ResetAtEnd() { sqlite3_reset(statement_); }
  ResetAtEnd(const ResetAtEnd&) = delete;
  ResetAtEnd& operator=(const ResetAtEnd&) = delete;

 private:
  sqlite3_stmt* const statement_;
};

template <class ReadRow>
int Connection::Query(int line, const std::string& sql, ReadRow&& read_row) {
  if (!is_open()) return FailClosed(line);
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
  if (code != SQLITE_OK) return Fail(line, "sqlite3_prepare_v2", code);
  int rows = 0;
  while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
    read_row(statement);
    ++rows;
  }
  if (code != SQLITE_DONE) rows = Fail(line, "sqlite3_step", code);
  sqlite3_finalize(statement);
  return rows;
}

}  // namespace tolven::event_db

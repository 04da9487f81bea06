// SQLite as the stores use it. Failures are logged as "server".
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven::server {

// A compiled statement that is being run. It is reset at the end of the scope and compiled once for
// each database and text.
class Query {
 public:
  Query(sqlite3* db, sqlite3_stmt* statement) : db_(db), statement_(statement) {}
  ~Query();
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  // Parameters, from the first one on.
  Query& operator<<(std::int64_t value);
  Query& operator<<(std::uint64_t value) { return *this << static_cast<std::int64_t>(value); }
  Query& operator<<(std::uint32_t value) { return *this << static_cast<std::int64_t>(value); }
  Query& operator<<(bool value) { return *this << static_cast<std::int64_t>(value); }
  Query& operator<<(const std::string& text);
  // Not copied: they stay until the statement has run.
  Query& Bytes(const std::string& bytes);

  // 1 with a row, 0 at the end, -1.
  int Step();
  // For statements without rows: whether it worked.
  bool Run() { return Step() == 0; }

  // Columns of the row, in order.
  std::uint64_t Number();
  std::string Text();
  std::string Bytes();

 private:
  sqlite3* const db_;
  sqlite3_stmt* const statement_;
  int parameter_ = 0, column_ = 0;
  bool failed_ = false;
};

// One connection. Belongs to whoever holds the lock that its owner has for it.
class Database {
 public:
  Database() = default;
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  bool Open(const ustring& path);
  bool Execute(const char* script);
  // A failure may have taken the transaction back as a whole.
  bool InTransaction() const { return sqlite3_get_autocommit(db_) == 0; }
  Query Prepare(const char* sql);
  std::uint64_t last_id() const;
  std::int64_t changes() const { return sqlite3_changes64(db_); }

 private:
  sqlite3* db_ = nullptr;
  std::map<const char*, sqlite3_stmt*> statements_;  // by the address of a literal
};

}  // namespace tolven::server

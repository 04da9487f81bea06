// The rows of the recycle bin.

#include "client/event-db-columns.h"
#include "client/event-db-paths.h"
#include "client/file-event-db.h"
#include "lib/log.h"
#include "platform/clock.h"

namespace tolven {

using event_db::GlobPrefix;
using event_db::kCategory;
using event_db::Sql;

namespace {

unsigned long Now() { return static_cast<unsigned long>(platform::clock().WallSeconds()); }

int RefuseRoot() {
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] event-db(%d): the root cannot be moved to the recycle bin\n", __LINE__);
  return -1;
}

}  // namespace

int FileEventDB::dumpDirToRecycleBin(const ustring& path, const ustring& target) {
  if (event_db::IsRoot(path)) return RefuseRoot();
  const char* const from = path.c_str_utf8();
  const char* const to = target.c_str_utf8();
  const std::string below = GlobPrefix(path);
  const unsigned long now = Now();
  return Run(__LINE__,
             Sql("BEGIN TRANSACTION;INSERT INTO recycle_bin_table (path, fileSize, fileCheckSum, "
                 "macHash, time) VALUES (%Q, 0, '', '', %lu);INSERT INTO recycle_bin_table (path, "
                 "fileSize, fileCheckSum, macHash, time) SELECT (%Q || substr(path, "
                 "length(%Q)+1)), fileSize, fileCheckSum, macHash, %lu FROM event_table WHERE "
                 "fileType = 0 AND (path GLOB '%q/*') ;DELETE FROM event_table WHERE (path = %Q OR "
                 "path GLOB '%q/*');DELETE FROM local_filter_table WHERE (path = %Q OR path GLOB "
                 "'%q/*');END TRANSACTION;",
                 to, now, to, from, now, below.c_str(), from, below.c_str(), from, below.c_str()));
}

int FileEventDB::dumpFileToRecycleBin(const ustring& path, const ustring& target) {
  if (event_db::IsRoot(path)) return RefuseRoot();
  const char* const from = path.c_str_utf8();
  return Run(__LINE__,
             Sql("BEGIN TRANSACTION;INSERT INTO recycle_bin_table (path, fileSize, fileCheckSum, "
                 "macHash, time) SELECT (%Q), fileSize, fileCheckSum, macHash, "
                 "strftime('%%s','now') FROM event_table WHERE path = %Q;DELETE FROM event_table "
                 "WHERE path = %Q;DELETE FROM local_filter_table WHERE (path = %Q OR path GLOB "
                 "'%q/*');END TRANSACTION;",
                 target.c_str_utf8(), from, from, from, GlobPrefix(path).c_str()));
}

int FileEventDB::addFileToRecycleBin(const ustring& path, std::uint64_t size, const ustring& hash,
                                     const ustring& macHash) {
  return Run(__LINE__, Sql("INSERT INTO recycle_bin_table (path, fileSize, fileCheckSum, macHash, "
                           "time) VALUES ('%q', %llu, '%q', '%q', %lu);",
                           path.c_str_utf8(), static_cast<unsigned long long>(size),
                           hash.c_str_utf8(), macHash.c_str_utf8(), Now()));
}

int FileEventDB::rmRecycleByPath(const ustring& path) {
  return Run(__LINE__, Sql("DELETE FROM recycle_bin_table WHERE path = '%q';", path.c_str_utf8()));
}

int FileEventDB::resetRecycleBin() { return Run(__LINE__, "DELETE FROM recycle_bin_table;"); }

int FileEventDB::getRotateList(std::uint32_t time, std::set<ustring>& paths) {
  const MutexLock hold(m_dbMutex);
  const int rows = m_db.Query(
      __LINE__,
      Sql("SELECT path FROM recycle_bin_table WHERE path NOT LIKE '/%%/%%' AND time <= %lu;",
          static_cast<unsigned long>(time)),
      [&paths](sqlite3_stmt* row) { paths.emplace(event_db::ColumnText(row, 0)); });
  return rows < 0 ? -1 : 0;
}

int FileEventDB::rmRotateRecords(std::uint32_t time) {
  return Run(__LINE__, Sql("DELETE FROM recycle_bin_table WHERE time <= %lu;",
                           static_cast<unsigned long>(time)));
}

int FileEventDB::getOldestRecyleTime(std::uint32_t& time) {
  const MutexLock hold(m_dbMutex);
  const int rows =
      m_db.Query(__LINE__, "SELECT MIN(time) FROM recycle_bin_table;", [&time](sqlite3_stmt* row) {
        time = static_cast<std::uint32_t>(sqlite3_column_int64(row, 0));
      });
  return rows < 0 ? -1 : 0;
}

}  // namespace tolven

// Listings, removal of rows, and lookups.

#include "client/event-db-columns.h"
#include "client/event-db-paths.h"
#include "client/file-event-db.h"
#include "client/file-list.h"
#include "lib/log.h"

namespace tolven {

using event_db::AtOrBelow;
using event_db::ColumnReader;
using event_db::ColumnText;
using event_db::GlobPrefix;
using event_db::kCategory;
using event_db::Prefix;
using event_db::Sql;

namespace {

constexpr char kListColumns[] =
    "SELECT fileType, localFileModTime, fileSize, aclHash, path FROM event_table ";
// Left alone, SQLite prefers the index on `isExist`, which nearly every row matches.
constexpr char kByPath[] = "INDEXED BY event_table_path_idx ";

// The range finds the rows, and holds where LIKE would also take other cases and wildcards in the
// path itself.
std::string OneLevelQuery(const ustring& path, const std::string& more) {
  const std::string prefix(Prefix(path));
  const char* const p = prefix.c_str();
  return std::string(kListColumns) + kByPath +
         Sql("WHERE isExist = 1 AND path LIKE '%q/%%' AND path NOT LIKE '%q/%%/%%' AND path > "
             "'%q/' AND path < '%q0'",
             p, p, p, p) +
         more + ";";
}

// `fresh`: the list holds nothing but rows of this query, and no two rows have one path.
void AddRow(FileList& list, bool fresh, std::size_t prefix_length, sqlite3_stmt* row) {
  const bool is_dir = sqlite3_column_int(row, 0) != 0;
  const auto mtime = static_cast<std::uint32_t>(sqlite3_column_int64(row, 1));
  const auto size = static_cast<std::uint64_t>(sqlite3_column_int64(row, 2));
  const std::string_view acl_hash = ColumnText(row, 3);
  const std::string_view text = ColumnText(row, 4);
  const std::string_view path = text.substr(std::min(prefix_length, text.size()));
  // A refused row is the root, or a directory that a deeper path has made already.
  if (is_dir) {
    list.AddDirectoryAt(path, mtime, acl_hash);
  } else if (fresh) {
    list.AddNewFileAt(path, mtime, size, acl_hash);
  } else {
    list.AddFileAt(path, mtime, size, acl_hash);
  }
}

}  // namespace

int FileEventDB::ListInto(int line, FileList& list, const ustring& path, const std::string& sql) {
  const MutexLock hold(m_dbMutex);
  const std::size_t prefix_length = Prefix(path).size();
  const bool fresh = list.empty();
  const int rows =
      m_db.Query(line, sql, [&](sqlite3_stmt* row) { AddRow(list, fresh, prefix_length, row); });
  return rows < 0 || list.incomplete() ? -1 : 0;
}

int FileEventDB::getFileList(FileList& list, const ustring& path) {
  if (event_db::IsRoot(path)) list.Expect(CountRows());
  const std::string where =
      event_db::IsRoot(path)
          ? std::string("NOT INDEXED WHERE isExist = 1;")
          : kByPath + Sql("WHERE path GLOB '%q/*' and isExist = 1;", GlobPrefix(path).c_str());
  return ListInto(__LINE__, list, path, kListColumns + where);
}

// 0 when it cannot be told.
std::size_t FileEventDB::CountRows() {
  const MutexLock hold(m_dbMutex);
  std::size_t count = 0;
  m_db.Query(__LINE__, "SELECT count(*) FROM event_table;", [&count](sqlite3_stmt* row) {
    count = static_cast<std::size_t>(sqlite3_column_int64(row, 0));
  });
  return count;
}

int FileEventDB::getFileListWithoutRecursive(FileList& list, const ustring& path) {
  return ListInto(__LINE__, list, path, OneLevelQuery(path, ""));
}

int FileEventDB::getFileListWithoutRecursive(FileList& list, const ustring& path,
                                             std::uint64_t syncId) {
  return ListInto(
      __LINE__, list, path,
      OneLevelQuery(path, Sql(" AND syncID <= %llu", static_cast<unsigned long long>(syncId))));
}

void FileEventDB::DumpEventTable() {
  const MutexLock hold(m_dbMutex);
  m_db.Query(__LINE__, "SELECT path FROM event_table;", [](sqlite3_stmt* row) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] event-db(%d): %s\n", __LINE__,
                   ColumnText(row, 0));
  });
}

int FileEventDB::hasFiles() {
  const MutexLock hold(m_dbMutex);
  return m_db.Query(__LINE__,
                    "SELECT 1 FROM event_table WHERE fileType = 0 AND isExist = 1 LIMIT 1;",
                    [](sqlite3_stmt*) {});
}

int FileEventDB::rmLocalEventInfo(const ustring& path) {
  if (event_db::IsRoot(path)) return 0;
  const std::string where = AtOrBelow(path);
  return Run(__LINE__, "BEGIN TRANSACTION;DELETE FROM event_table WHERE " + where +
                           ";DELETE FROM local_filter_table WHERE " + where + ";END TRANSACTION;");
}

int FileEventDB::rmOwnEventInfo(const ustring& path) {
  if (event_db::IsRoot(path)) return 0;
  return Run(__LINE__, Sql("DELETE FROM event_table WHERE path = %Q;", path.c_str_utf8()));
}

int FileEventDB::commitRemove(const ustring& path) {
  if (event_db::IsRoot(path)) return 0;
  const std::string where = AtOrBelow(path);
  return Run(__LINE__, "BEGIN TRANSACTION;DELETE FROM event_table WHERE " + where +
                           ";DELETE FROM local_filter_table WHERE " + where +
                           ";DELETE FROM server_filter_table WHERE " + where + ";END TRANSACTION;");
}

int FileEventDB::clear() {
  return Run(__LINE__,
             "BEGIN TRANSACTION;DELETE FROM event_table;DELETE FROM local_filter_table;END "
             "TRANSACTION;");
}

int FileEventDB::rmAllFolders() {
  return Run(__LINE__,
             "BEGIN TRANSACTION;DELETE FROM event_table WHERE path GLOB '/*/*';DELETE FROM "
             "local_filter_table WHERE path GLOB '/*/*';END TRANSACTION;");
}

int FileEventDB::getFilePathByHash(const ustring& hash, ustring& path) {
  return FindText(__LINE__,
                  Sql("SELECT path FROM event_table INDEXED BY event_table_fileCheckSum_idx WHERE "
                      "fileCheckSum = '%q' AND isExist = 1 LIMIT 1;",
                      hash.c_str_utf8()),
                  path);
}

int FileEventDB::getFilePathByHashFromRecycle(const ustring& hash, ustring& path) {
  return FindText(__LINE__,
                  Sql("SELECT path FROM recycle_bin_table WHERE fileCheckSum = '%q' LIMIT 1;",
                      hash.c_str_utf8()),
                  path);
}

int FileEventDB::getMacAttributeByHash(const ustring& hash, ustring& path) {
  return FindText(
      __LINE__,
      Sql("SELECT path FROM event_table WHERE macHash = '%q' LIMIT 1;", hash.c_str_utf8()), path);
}

int FileEventDB::getZentACLByHash(const ustring& hash, ustring& acl) {
  return FindText(
      __LINE__,
      Sql("SELECT aclAttribute FROM event_table WHERE aclHash = '%q' LIMIT 1;", hash.c_str_utf8()),
      acl);
}

int FileEventDB::getSharePrivilegeByHash(const ustring& hash, DBFileInfo& info) {
  const MutexLock hold(m_dbMutex);
  return m_db.Query(
      __LINE__,
      Sql("SELECT sharePrivDisabled, sharePrivDenyList, sharePrivRoList, sharePrivRwList, "
          "sharePrivHash FROM event_table WHERE sharePrivHash = '%q' LIMIT 1;",
          hash.c_str_utf8()),
      [&info](sqlite3_stmt* row) {
        ColumnReader read(row);
        read("sharePrivDisabled", info.sharePrivDisabled);
        read("sharePrivDenyList", info.sharePrivDenyList);
        read("sharePrivRoList", info.sharePrivRoList);
        read("sharePrivRwList", info.sharePrivRwList);
        read("sharePrivHash", info.sharePrivHash);
      });
}

int FileEventDB::getPathByInode(std::uint64_t, ustring&) { return -1; }
int FileEventDB::setPathInode(const ustring&, std::uint64_t) { return -1; }

}  // namespace tolven

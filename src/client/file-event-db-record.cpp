// Single entries: reading, and writing with their parents and signatures.

#include "client/event-db-columns.h"
#include "client/event-db-functions.h"
#include "client/event-db-paths.h"
#include "client/file-event-db.h"
#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

using event_db::ColumnBinder;
using event_db::ColumnNames;
using event_db::ColumnReader;
using event_db::ColumnText;
using event_db::kCategory;
using event_db::ResetAtEnd;
using event_db::Sql;

namespace {

std::string MakeInsert() {
  ColumnNames names;
  std::string values = "1";
  int number = 0;
  DBFileInfo shape;
  event_db::VisitRecord(shape, [&](const char* name, const auto& field) {
    names(name, field);
    values += ", ?" + std::to_string(++number);
  });
  return "INSERT OR IGNORE INTO event_table (isExist, " + names.text() + ") VALUES (" + values +
         ");";
}

// With the parameters of the INSERT, of a row that is there. The path stays out of what is set:
// writing it would make its two indexes anew.
std::string MakeUpdate() {
  std::string sets;
  int number = 0;
  DBFileInfo shape;
  event_db::VisitRecord(shape, [&](const char* name, const auto&) {
    ++number;
    if (std::string_view(name) == "path") return;
    sets.append(sets.empty() ? "" : ", ").append(name).append(" = ?" + std::to_string(number));
  });
  return "UPDATE event_table SET " + sets + " WHERE path = ?" + std::to_string(number) + ";";
}

std::string MakeGetInfo() {
  ColumnNames names;
  DBFileInfo shape;
  event_db::VisitLocalView(shape, names);
  return "SELECT id, " + names.text() + "  from event_table where path = ?1";
}

constexpr char kServerColumnsQuery[] =
    "SELECT serverExecBit, serverUnixUid, serverUnixGid, serverUnixMode, serverAclAttribute, "
    "serverAclHash, serverSharePrivDisabled, serverSharePrivDenyList, serverSharePrivRoList, "
    "serverSharePrivRwList, serverSharePrivHash FROM event_table WHERE path = ?1;";

// A directory that is only known from below: number 0, exec bit 1, mode 1877.
constexpr char kInsertParentText[] =
    "INSERT OR IGNORE INTO event_table (isExist, syncID, maxSyncID,  fileType, fileSize, "
    "fileCheckSum,  inode, path,  fileModTime, localFileModTime, execBit, macHash,  aclAttribute, "
    "aclHash,  unixUid, unixGid, unixMode, unixHash,  serverExecBit, serverUnixUid, serverUnixGid, "
    "serverUnixMode,  serverAclAttribute, serverAclHash,  sharePrivDisabled, sharePrivDenyList, "
    "sharePrivRoList, sharePrivRwList, sharePrivHash,  serverSharePrivDisabled, "
    "serverSharePrivDenyList, serverSharePrivRoList, serverSharePrivRwList, serverSharePrivHash) "
    "VALUES (1, 0, ?1,  1, 0, '',  0, ?2,  ?3, ?4, 1, '',  '', '',  0, 0, 1877, '',  1, 0, 0, "
    "1877,  '', '',  0, '', '', '', '',  0, '', '', '', '');";
constexpr char kRaiseParentText[] =
    "UPDATE event_table SET maxSyncID = ?1 WHERE path = ?2 AND maxSyncID < ?1;";

// "/" for a first-level path, empty above "/".
std::string_view ParentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || path == "/") return {};
  return path.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace

int FileEventDB::getEventInfo(const ustring& path, DBFileInfo& info) {
  static const std::string query = MakeGetInfo();
  const MutexLock hold(m_dbMutex);
  info.Clear();
  if (path.empty()) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): The strpath is empty.\n",
                   __LINE__);
    return -1;
  }
  sqlite3_stmt* const statement = m_db.Prepare(__LINE__, event_db::kGetInfo, query.c_str());
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("path", path);
  const int found = m_db.Step(__LINE__, statement);
  if (found != 1) return found;
  event_db::VisitLocalView(info, ColumnReader(statement, 1));
  info.signaturePath =
      SignaturePath(static_cast<std::uint64_t>(sqlite3_column_int64(statement, 0)));
  return 1;
}

int FileEventDB::fillServerColumns(const ustring& path, DBFileInfo& info) {
  const MutexLock hold(m_dbMutex);
  sqlite3_stmt* const statement =
      m_db.Prepare(__LINE__, event_db::kServerColumns, kServerColumnsQuery);
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("path", path);
  const int found = m_db.Step(__LINE__, statement);
  if (found == 1) event_db::VisitServerAttributes(info, ColumnReader(statement));
  return found;
}

int FileEventDB::setEventInfo(const DBFileInfo& info) {
  const MutexLock hold(m_dbMutex);
  if (info.path.empty()) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): The strpath is empty.\n",
                   __LINE__);
    return -1;
  }
  if (WriteRecord(info) != 0) {
    m_db.Rollback();
    return -1;
  }
  if (info.fileType == 0 && !info.signaturePath.empty() &&
      setSignature(info.path, info.signaturePath) != 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] event-db(%d): signature file of '%s' is lost\n", __LINE__,
                   info.path);
  }
  return 0;
}

// The record and its parents in one transaction, which stays open after a failure.
int FileEventDB::WriteRecord(const DBFileInfo& info) {
  // At once, since waiting for another writer works only before the transaction's first read.
  sqlite3_stmt* const begin = m_db.Prepare(__LINE__, event_db::kBegin, "BEGIN IMMEDIATE;");
  if (begin == nullptr) return -1;
  const ResetAtEnd reset_begin(begin);
  if (m_db.Step(__LINE__, begin) != 0 || setSingleRecord(info) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): failed to set record of '%s'\n", __LINE__, info.path);
    return -1;
  }
  if (updateParentRecord(info.path, info.maxSyncID, info.fileModTime, info.localFileModTime) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): failed to update parent folder\n", __LINE__);
    return -1;
  }
  sqlite3_stmt* const commit = m_db.Prepare(__LINE__, event_db::kCommit, "COMMIT;");
  if (commit == nullptr) return -1;
  const ResetAtEnd reset_commit(commit);
  if (m_db.Step(__LINE__, commit) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): failed to set record of '%s'\n",
                 __LINE__, info.path);
  return -1;
}

int FileEventDB::setSingleRecord(const DBFileInfo& info) {
  StoredContent before;
  if (ReadContent(info.path, before) != 0) return -1;
  const bool same_content = before.row_id != 0 && before.file_type == 0 && info.fileType == 0 &&
                            before.check_sum == info.fileCheckSum;
  if (info.fileType != 0 || before.file_type != 0) ForgetServerFolders();
  // While the row is still the old one: a row without its signature is sound, the other way round
  // it is not.
  if (before.row_id != 0 && !same_content && RemoveSignature(before.row_id) != 0) return -1;
  if (Upsert(info, before) != 0) return -1;
  // Ids of deleted rows are given out again, and a signature may have outlived its row.
  if (before.row_id == 0 &&
      RemoveSignature(static_cast<std::uint64_t>(sqlite3_last_insert_rowid(m_db.get()))) != 0) {
    return -1;
  }
  return Unpark(info);
}

// A row that is there keeps its id.
int FileEventDB::Upsert(const DBFileInfo& info, const StoredContent& before) {
  static const std::string insert_text = MakeInsert();
  static const std::string update_text = MakeUpdate();
  sqlite3_stmt* const statement =
      before.row_id == 0 ? m_db.Prepare(__LINE__, event_db::kInsert, insert_text.c_str())
                         : m_db.Prepare(__LINE__, event_db::kUpdate, update_text.c_str());
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  event_db::VisitRecord(info, bind);
  if (bind.code() != SQLITE_OK) return m_db.Fail(__LINE__, "sqlite3_bind", bind.code());
  if (m_db.Step(__LINE__, statement) != 0) return -1;
  if (before.row_id == 0 || before.is_exist) return 0;
  return m_db.Execute(__LINE__, Sql("UPDATE event_table SET isExist = 1 WHERE id = %llu;",
                                    static_cast<unsigned long long>(before.row_id)));
}

// There is nothing below a file, unless the server told of it since.
int FileEventDB::Unpark(const DBFileInfo& info) {
  sqlite3_stmt* const local =
      m_db.Prepare(__LINE__, event_db::kUnparkLocal,
                   "DELETE FROM local_filter_table WHERE path = ?1 OR (?2 <> 0 AND path > ?1 || "
                   "'/' AND path < ?1 || '0');");
  sqlite3_stmt* const server =
      m_db.Prepare(__LINE__, event_db::kUnparkServer,
                   "DELETE FROM server_filter_table WHERE path = ?1 OR (?2 <> 0 AND path > ?1 || "
                   "'/' AND path < ?1 || '0' AND syncID <= ?3);");
  if (local == nullptr || server == nullptr) return -1;
  for (sqlite3_stmt* const statement : {local, server}) {
    const ResetAtEnd reset(statement);
    ColumnBinder bind(statement);
    bind("path", info.path);
    bind("isFile", info.fileType == 0 ? 1 : 0);
    if (statement == server) bind("syncID", info.syncID);
    if (bind.code() != SQLITE_OK) return m_db.Fail(__LINE__, "sqlite3_bind", bind.code());
    if (m_db.Step(__LINE__, statement) != 0) return -1;
    if (statement == server && sqlite3_changes(m_db.get()) > 0) ForgetServerFolders();
  }
  return 0;
}

int FileEventDB::updateParentRecord(const ustring& path, std::uint64_t maxSyncID,
                                    std::uint32_t mtime, std::uint32_t localMtime) {
  for (auto parent = ParentOf(path.view()); !parent.empty(); parent = ParentOf(parent)) {
    const int raised = RaiseParent(ustring(parent), maxSyncID);
    if (raised < 0) return -1;
    // It is missing, or has a number that is as high.
    if (raised == 0 && InsertParent(ustring(parent), maxSyncID, mtime, localMtime) != 0) return -1;
  }
  return 0;
}

int FileEventDB::RaiseParent(const ustring& path, std::uint64_t maxSyncID) {
  sqlite3_stmt* const statement = m_db.Prepare(__LINE__, event_db::kRaiseParent, kRaiseParentText);
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("maxSyncID", maxSyncID);
  bind("path", path);
  if (bind.code() != SQLITE_OK) return m_db.Fail(__LINE__, "sqlite3_bind", bind.code());
  return m_db.Step(__LINE__, statement) != 0 ? -1 : sqlite3_changes(m_db.get());
}

int FileEventDB::InsertParent(const ustring& path, std::uint64_t maxSyncID, std::uint32_t mtime,
                              std::uint32_t localMtime) {
  sqlite3_stmt* const statement =
      m_db.Prepare(__LINE__, event_db::kInsertParent, kInsertParentText);
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("maxSyncID", maxSyncID);
  bind("path", path);
  bind("fileModTime", mtime);
  bind("localFileModTime", localMtime);
  if (bind.code() != SQLITE_OK) return m_db.Fail(__LINE__, "sqlite3_bind", bind.code());
  return m_db.Step(__LINE__, statement) != 0 ? -1 : 0;
}

int FileEventDB::ReadContent(const ustring& path, StoredContent& content) {
  sqlite3_stmt* const statement =
      m_db.Prepare(__LINE__, event_db::kContent,
                   "SELECT id, fileType, fileCheckSum, isExist FROM event_table WHERE path = ?1;");
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("path", path);
  const int found = m_db.Step(__LINE__, statement);
  if (found != 1) return found;
  content.row_id = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 0));
  content.file_type = sqlite3_column_int(statement, 1);
  content.check_sum.assign(ColumnText(statement, 2));
  content.is_exist = sqlite3_column_int(statement, 3) == 1;
  return 0;
}

int FileEventDB::contains(const ustring& path, EventInfo& info) {
  sqlite3_stmt* const statement = m_db.Prepare(
      __LINE__, event_db::kContains, "SELECT id, syncID FROM event_table WHERE path = ?;");
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  ColumnBinder bind(statement);
  bind("path", path);
  const int found = m_db.Step(__LINE__, statement);
  if (found != 1) return found;
  info.row_id = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 0));
  info.sync_id = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 1));
  return 1;
}

// After a failure there is no signature at the row's place.
int FileEventDB::setSignature(const ustring& path, const ustring& temp) {
  EventInfo row;
  if (contains(path, row) != 1) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): missing record while updating signature (%s)\n",
                   __LINE__, path);
    return -1;
  }
  const ustring target = SignaturePath(row.row_id);
  if (temp == target) return 0;
  // The folder is there, but for the first signature in it. One that a power cut takes away is made
  // anew with the next version.
  if (FSRenameUnsynced(temp, target) == 0) return 0;
  const ustring folder = target.substr(0, target.rfind('/'));
  if (FSMKDir(folder, true) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): Failed to Create folder at [%s].\n", __LINE__, folder);
  } else if (FSRenameUnsynced(temp, target) != 0) {
    // The end of the line stands before the point, as readers of the log know it.
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): Failed to rename from [%s] to [%s]\n.", __LINE__, temp,
                   target);
  } else {
    return 0;
  }
  RemoveSignature(row.row_id);
  return -1;
}

int FileEventDB::RemoveSignature(std::uint64_t row_id) {
  const ustring path = SignaturePath(row_id);
  if (FSRemove(path, false) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] event-db(%d): failed to remove the old signature '%s'\n", __LINE__,
                 path);
  return -1;
}

ustring FileEventDB::SignaturePath(std::uint64_t row_id) const {
  return m_signPath + "/" + event_db::path_convert(row_id);
}

int FileEventDB::updateEventRecordLocalMtime(const ustring& path, std::uint32_t mtime) {
  return Run(__LINE__, Sql("UPDATE event_table SET localFileModTime = %u WHERE path = %Q;", mtime,
                           path.c_str_utf8()));
}

}  // namespace tolven

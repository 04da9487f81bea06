// Changes that filters held back, and the server's view, which takes them into account.

#include <cstdlib>

#include "client/event-db-columns.h"
#include "client/event-db-functions.h"
#include "client/event-db-paths.h"
#include "client/file-event-db.h"
#include "lib/log.h"

namespace tolven {

using event_db::ColumnBinder;
using event_db::ColumnNames;
using event_db::ColumnReader;
using event_db::GlobPrefix;
using event_db::kCategory;
using event_db::ResetAtEnd;
using event_db::Sql;

namespace {

constexpr std::size_t kRememberedFolders = 1024;

// A row of event_table as one of a filter table, with the server's attributes; behind filterType.
constexpr char kRowAsFiltered[] =
    "syncID, maxSyncID, path, base_name(path), fileType, fileSize, fileCheckSum, fileModTime, "
    "macHash, 0, serverExecBit as execBit, serverUnixUid AS unixUid, serverUnixGid AS unixGid, "
    "serverUnixMode AS unixMode, serverAclAttribute AS aclAttribute, serverAclHash AS aclHash, "
    "serverSharePrivDisabled AS sharePrivDisabled, serverSharePrivDenyList AS sharePrivDenyList, "
    "serverSharePrivRoList AS sharePrivRoList, serverSharePrivRwList AS sharePrivRwList, "
    "serverSharePrivHash AS sharePrivHash";

const std::string& FilteredColumns() {
  static const std::string columns = [] {
    ColumnNames names;
    FilteredEvent shape;
    event_db::VisitFiltered(shape, names);
    return names.text();
  }();
  return columns;
}

// What is parked under `conditions`, and the rows of all paths that are not.
std::string ServerViewQuery(const std::string& conditions) {
  return "SELECT " + FilteredColumns() + " FROM server_filter_table WHERE 1 " + conditions +
         "UNION ALL " + Sql("SELECT isExist, %d, %s", FilteredEvent::FILTERED_ALL, kRowAsFiltered) +
         " FROM event_table WHERE path NOT in (SELECT path FROM server_filter_table) " + conditions;
}

// The values of a row as %d, %llu and %Q write them.
class LiteralList {
 public:
  void operator()(const char*, const ustring& field) { Add(Sql("%Q", field.c_str_utf8())); }
  void operator()(const char*, std::uint64_t field) { Add(std::to_string(field)); }
  template <class T>
  void operator()(const char*, T field) {
    Add(std::to_string(static_cast<std::int32_t>(field)));
  }
  const std::string& text() const { return text_; }

 private:
  void Add(const std::string& literal) {
    if (!text_.empty()) text_ += ", ";
    text_ += literal;
  }
  std::string text_;
};

std::string Join(const FileEventDB::Conditions& conditions) {
  std::string sql;
  for (const std::string& condition : conditions) sql += " AND (" + condition + ") ";
  return sql;
}

std::string TypeCondition(FilteredEvent::FilterType type) {
  return type == FilteredEvent::FILTERED_ALL ? "" : Sql(" AND filterType = %d", type);
}

}  // namespace

const char* FileEventDB::GetTableName(bool isServer) {
  return isServer ? "server_filter_table" : "local_filter_table";
}

bool FileEventDB::IsValidFilterType(int code) {
  if (code >= 0) return false;
  switch (-static_cast<std::int64_t>(code) & 0xFF) {
    case 3:
    case 4:
    case 5:
    case 6:
    case 7:
    case 8:
    case 11:
      return true;
    default:
      return false;
  }
}

int FileEventDB::setLocalFilteredEvent(const FilteredEvent& event) {
  if (!event.is_server) return setFilteredEvent(event);
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] event-db(%d): '%s' is not a local filtered event\n", __LINE__,
                 event.path);
  return -1;
}

int FileEventDB::setServerFilteredEvent(const FilteredEvent& event) {
  if (event.is_server) return setFilteredEvent(event);
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] event-db(%d): '%s' is not a server filtered event\n", __LINE__,
                 event.path);
  return -1;
}

int FileEventDB::setFilteredEvent(const FilteredEvent& event) {
  const std::string expand =
      event.is_server ? GetExpandFilteredEventSQL(true, event.filter_type, event.path) : "";
  const int result = Run(__LINE__, "BEGIN TRANSACTION;" + expand +
                                       GetInsertFilteredEventSQL(event) + "END TRANSACTION;");
  if (result != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): setFilteredEvent: Failed to set filtered entry '%s': "
                   L"[%d]\n",
                   __LINE__, event.path, result);
  }
  return result;
}

std::string FileEventDB::GetInsertFilteredEventSQL(const FilteredEvent& event) {
  LiteralList values;
  event_db::VisitFiltered(event, values);
  return std::string(" INSERT OR REPLACE INTO ") + GetTableName(event.is_server) + "  (" +
         FilteredColumns() + ")  VALUES  ( " + values.text() + " );";
}

std::string FileEventDB::GetExpandFilteredEventSQL(bool isServer, FilteredEvent::FilterType type,
                                                   const ustring& path) {
  const char* const table = GetTableName(isServer);
  const std::string below = GlobPrefix(path);
  return Sql(
      "INSERT INTO %s (%s) SELECT isExist, %d, %s from event_table WHERE path NOT IN (SELECT path "
      "FROM %s WHERE path GLOB '%q/*') AND path GLOB '%q/*';",
      table, FilteredColumns().c_str(), type, kRowAsFiltered, table, below.c_str(), below.c_str());
}

int FileEventDB::expandLocalFilteredEvent(const ustring& path) {
  return Run(__LINE__,
             Sql("BEGIN; UPDATE local_filter_table SET isExist = 0 WHERE path GLOB '%q/*'; ",
                 GlobPrefix(path).c_str()) +
                 GetExpandFilteredEventSQL(false, FilteredEvent::FILTERED_ACL, path) + "END; ");
}

FileEventDB::Conditions FileEventDB::GetConditions(const ustring& path, int option) {
  Conditions conditions;
  if ((option & FILTER_FLAG_INCLUDE_CHILD) != 0) {
    conditions.push_back(event_db::AtOrBelow(path));
  } else {
    conditions.push_back(Sql("path = %Q", path.empty() ? "/" : path.c_str_utf8()));
  }
  if ((option & FILTER_FLAG_REMOVED_ONLY) != 0) conditions.emplace_back("isExist = 0");
  return conditions;
}

int FileEventDB::SelectFiltered(int line, bool isServer, FilteredEvent::FilterType type,
                                const Conditions& conditions, std::vector<FilteredEvent>& out) {
  const std::string sql = "SELECT " + FilteredColumns() + " FROM " + GetTableName(isServer) +
                          " WHERE 1 " + TypeCondition(type) + Join(conditions);
  const MutexLock hold(m_dbMutex);
  if (isServer) {
    if (const int any = HasParked(); any != 1) return any;
  }
  const int rows = m_db.Query(line, sql, [&out, isServer](sqlite3_stmt* row) {
    FilteredEvent& event = out.emplace_back();
    event.is_server = isServer;
    event_db::VisitFiltered(event, ColumnReader(row));
  });
  return rows < 0 ? -1 : 0;
}

// Asked for with every download, and mostly there is nothing at all.
int FileEventDB::HasParked() {
  sqlite3_stmt* const statement =
      m_db.Prepare(__LINE__, event_db::kAnyParked, "SELECT 1 FROM server_filter_table LIMIT 1;");
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  return m_db.Step(__LINE__, statement);
}

int FileEventDB::getLocalFilteredEvent(FilteredEvent::FilterType type, const ustring& path,
                                       int option, std::vector<FilteredEvent>& out) {
  return SelectFiltered(__LINE__, false, type, GetConditions(path, option), out);
}

int FileEventDB::getLocalFilteredEvent(FilteredEvent::FilterType type, const Conditions& conditions,
                                       std::vector<FilteredEvent>& out) {
  return SelectFiltered(__LINE__, false, type, conditions, out);
}

int FileEventDB::getServerFilteredEvent(FilteredEvent::FilterType type, const ustring& path,
                                        int option, std::vector<FilteredEvent>& out) {
  return SelectFiltered(__LINE__, true, type, GetConditions(path, option), out);
}

int FileEventDB::getServerFilteredEvent(FilteredEvent::FilterType type,
                                        const Conditions& conditions,
                                        std::vector<FilteredEvent>& out) {
  return SelectFiltered(__LINE__, true, type, conditions, out);
}

int FileEventDB::rmLocalFilteredEvent(FilteredEvent::FilterType type, const ustring& path,
                                      int option) {
  return Run(__LINE__, std::string("DELETE FROM ") + GetTableName(false) + " WHERE 1 " +
                           TypeCondition(type) + Join(GetConditions(path, option)));
}

int FileEventDB::rmServerFilteredEvent(FilteredEvent::FilterType type, const ustring& path,
                                       int option) {
  return Run(__LINE__, std::string("DELETE FROM ") + GetTableName(true) + " WHERE 1 " +
                           TypeCondition(type) + Join(GetConditions(path, option)));
}

int FileEventDB::SelectServerView(int line, const Conditions& conditions, const std::string& order,
                                  std::vector<DBFileInfo>& out) {
  const std::string sql = ServerViewQuery(Join(conditions)) + order + ";";
  const MutexLock hold(m_dbMutex);
  const int rows = m_db.Query(line, sql, [&out](sqlite3_stmt* row) {
    event_db::VisitServerView(out.emplace_back(), ColumnReader(row));
  });
  return rows < 0 ? -1 : 0;
}

int FileEventDB::getServerEvent(const Conditions& conditions, std::vector<DBFileInfo>& out) {
  return SelectServerView(__LINE__, conditions, "", out);
}

int FileEventDB::getServerEventByPath(const ustring& path, DBFileInfo& info) {
  const MutexLock hold(m_dbMutex);
  const int found = FindServerView(path, info);
  if (found == 0) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-db(%d): getServerEventByPath: No record for server event path: "
                   L"[%s]\n",
                   __LINE__, path);
  }
  return found;
}

int FileEventDB::FindServerView(const ustring& path, DBFileInfo& info) {
  static const std::string query = ServerViewQuery(" AND (path = ?1) ") + ";";
  sqlite3_stmt* const statement = m_db.Prepare(__LINE__, event_db::kServerView, query.c_str());
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  const ustring asked = path.empty() ? ustring("/") : path;
  ColumnBinder bind(statement);
  bind("path", asked);
  const int found = m_db.Step(__LINE__, statement);
  if (found != 1) return found;
  info.Clear();
  event_db::VisitServerView(info, ColumnReader(statement));
  return 1;
}

int FileEventDB::getServerFolder(const ustring& path, DBFileInfo& info) {
  const MutexLock hold(m_dbMutex);
  if (const auto known = m_serverFolders.find(path.str()); known != m_serverFolders.end()) {
    info = known->second;
    return 1;
  }
  if (const int found = FindServerView(path, info); found != 1) return found;
  if (m_serverFolders.size() == kRememberedFolders) ForgetServerFolders();
  m_serverFolders.emplace(path.str(), info);
  return 1;
}

int FileEventDB::getServerEventByPrefix(const ustring& path, std::vector<DBFileInfo>& out) {
  return getServerEvent(GetConditions(path, FILTER_FLAG_INCLUDE_CHILD), out);
}

int FileEventDB::getServerEventPage(const ustring& path, const ustring& after, std::size_t limit,
                                    std::vector<DBFileInfo>& out) {
  Conditions conditions = GetConditions(path, FILTER_FLAG_INCLUDE_CHILD);
  conditions.push_back(Sql("path > %Q", after.c_str_utf8()));
  return SelectServerView(__LINE__, conditions, " ORDER BY path LIMIT " + std::to_string(limit),
                          out);
}

}  // namespace tolven

#include "client/filter-db.h"

#include <sqlite3.h>

#include "client/event-db-connection.h"
#include "lib/log.h"

namespace tolven {

using event_db::Sql;

namespace {

constexpr char kCategory[] = "filter_db_debug";
constexpr int kBusyMilliseconds = 300000;
constexpr char kFilterTable[] = "filter_table";
constexpr char kWhiteListTable[] = "white_list_table";

std::string RuleTable(const std::string& name) {
  std::string sql = "CREATE TABLE IF NOT EXISTS " + name +
                    " (sess_id INTEGER NOT NULL, sync_id INTEGER NOT NULL, filter_type INTEGER NOT "
                    "NULL, filter_desc TEXT NOT NULL, primary key (sess_id, filter_type, "
                    "filter_desc) ON CONFLICT IGNORE);";
  const auto add_index = [&sql, &name](const char* index, const char* column) {
    sql += "CREATE INDEX IF NOT EXISTS " + name + index + " ON " + name + "(" + column + ");";
  };
  add_index("_sess_id_idx", "sess_id");
  add_index("_type_idx", "filter_type");
  add_index("_desc_idx", "filter_desc");
  return sql;
}

// Runs at each start, so each statement leaves alone what is there.
std::string Schema() {
  return "PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL;BEGIN;"
         "CREATE TABLE IF NOT EXISTS config_table (key VARCHAR PRIMARY KEY ON CONFLICT IGNORE, "
         "value VARCHAR NOT NULL);"
         "INSERT or IGNORE into config_table values ('version', 15);" +
         RuleTable(kWhiteListTable) + RuleTable(kFilterTable) + RuleTable("filter_range_table") +
         "COMMIT;";
}

unsigned long long Number(std::uint64_t value) { return value; }

void LogUnknownType(int line, std::int64_t type) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] filter-db(%d): Unknow filter_type: %lld\n",
                 line, type);
}

// Where the rules of a kind stand; null for one number alone, and for what is no kind.
SelectiveSyncInfo::Set* FindSet(SelectiveSyncInfo& info, std::int64_t type) {
  switch (type) {
    case FilterDB::FILTER_TYPE_PATH:
      return &info.black_path;
    case FilterDB::FILTER_TYPE_NAME:
      return &info.black_name;
    case FilterDB::FILTER_TYPE_PREFIX:
      return &info.black_prefix;
    case FilterDB::FILTER_TYPE_SUFFIX:
      return &info.black_suffix;
    case FilterDB::FILTER_TYPE_GLOB:
      return &info.black_glob;
    case FilterDB::FILTER_TYPE_COMMON_PREFIX:
      return &info.black_common_prefix;
    default:
      return nullptr;
  }
}

FilterInfo ReadRule(sqlite3_stmt* row) {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(row, 2));
  return {static_cast<std::uint64_t>(sqlite3_column_int64(row, 1)), ustring(text ? text : "")};
}

}  // namespace

class SCOPED_CAPABILITY FilterDB::Guard {
 public:
  explicit Guard(FilterDB& db) ACQUIRE(db) : db_(db) { db_.Lock(); }
  ~Guard() RELEASE() { db_.Unlock(); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  FilterDB& db_;
};

FilterDB& FilterDB::getInstance() {
  static FilterDB instance;
  return instance;
}

FilterDB::~FilterDB() { destroy(); }

int FilterDB::initialize(const ustring& path) {
  const Guard guard(*this);
  if (m_db != nullptr) {
    Logger::LogMsg(Logger::L_INFO, kCategory,
                   L"[INFO] filter-db(%d): FilterDB has been initialized (no-op)\n", __LINE__);
    return 0;
  }
  int code = sqlite3_open(path.c_str_utf8(), &m_db);
  if (code != SQLITE_OK) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] filter-db(%d): FilterDB: Failed to open database at '%s'. [%d] %s\n",
                   __LINE__, path, code, sqlite3_errmsg(m_db));
  } else {
    // Before the script: switching the journal of a file in use waits, too.
    sqlite3_busy_timeout(m_db, kBusyMilliseconds);
    code = sqlite3_exec(m_db, Schema().c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
      Logger::LogMsg(
          Logger::L_ERR, kCategory,
          L"[ERROR] filter-db(%d): FilterDB: Failed to initialize database at '%s'. [%d] %s\n",
          __LINE__, path, code, sqlite3_errmsg(m_db));
    }
  }
  if (code == SQLITE_OK) {
    m_filter_db_path = path;
    return 0;
  }
  Close();
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] filter-db(%d): FilterDB init fail %s\n",
                 __LINE__, path);
  return -1;
}

void FilterDB::destroy() {
  const Guard guard(*this);
  Close();
}

void FilterDB::Close() {
  sqlite3_close(m_db);
  m_db = nullptr;
  m_filter_db_path.clear();
}

int FilterDB::Execute(const std::string& sql) {
  const int code =
      m_db == nullptr ? SQLITE_MISUSE : sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, nullptr);
  if (code == SQLITE_OK) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] filter-db(%d): sqlite3_exec: [%d] %s\n",
                 __LINE__, code, m_db == nullptr ? "closed" : sqlite3_errmsg(m_db));
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] filter-db(%d): %s\n", __LINE__, sql);
  if (m_db != nullptr && sqlite3_get_autocommit(m_db) == 0) {
    sqlite3_exec(m_db, "ROLLBACK;", nullptr, nullptr, nullptr);
  }
  return -1;
}

template <class ReadRow>
int FilterDB::Query(const std::string& sql, ReadRow&& read_row) {
  sqlite3_stmt* statement = nullptr;
  int code = m_db == nullptr ? SQLITE_MISUSE
                             : sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr);
  if (code == SQLITE_OK) {
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) read_row(statement);
  }
  sqlite3_finalize(statement);
  if (code == SQLITE_DONE) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] filter-db(%d): sqlite3_step: [%d] %s\n",
                 __LINE__, code, m_db == nullptr ? "closed" : sqlite3_errmsg(m_db));
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] filter-db(%d): %s\n", __LINE__, sql);
  return -1;
}

int FilterDB::setConfigItem(const ustring& key, const ustring& value) {
  const Guard guard(*this);
  return Execute(Sql("INSERT OR REPLACE INTO config_table  (key, value) VALUES(%Q, %Q);",
                     key.c_str_utf8(), value.c_str_utf8()));
}

int FilterDB::setFilterInfo(const char* table, std::uint64_t sess_id, FilterType type,
                            const FilterInfo& info) {
  return Execute(
      Sql("INSERT INTO %s  (sess_id, sync_id, filter_type, filter_desc) VALUES (%llu, %llu, %d, "
          "%Q)",
          table, Number(sess_id), Number(info.sync_id), static_cast<int>(type),
          info.filter_desc.c_str_utf8()));
}

int FilterDB::setFilterInfos(const char* table, std::uint64_t sess_id, FilterType type,
                             const SelectiveSyncInfo::Set& rules) {
  for (const FilterInfo& rule : rules) {
    if (setFilterInfo(table, sess_id, type, rule) != 0) return -1;
  }
  return 0;
}

int FilterDB::setSelectiveSyncInfo(std::uint64_t sess_id, const SelectiveSyncInfo& info) {
  const Guard guard(*this);
  const struct {
    const char* table;
    FilterType type;
    const SelectiveSyncInfo::Set& rules;
  } kinds[] = {
      {kFilterTable, FILTER_TYPE_PATH, info.black_path},
      {kFilterTable, FILTER_TYPE_NAME, info.black_name},
      {kFilterTable, FILTER_TYPE_PREFIX, info.black_prefix},
      {kFilterTable, FILTER_TYPE_SUFFIX, info.black_suffix},
      {kFilterTable, FILTER_TYPE_GLOB, info.black_glob},
      {kFilterTable, FILTER_TYPE_COMMON_PREFIX, info.black_common_prefix},
      {kWhiteListTable, FILTER_TYPE_EXT, info.white_ext},
  };
  for (const auto& kind : kinds) {
    if (setFilterInfos(kind.table, sess_id, kind.type, kind.rules) != 0) return -1;
  }
  return setFilterInfo(kFilterTable, sess_id, FILTER_TYPE_FILE_SIZE, info.black_size);
}

int FilterDB::getSelectiveSyncInfo(std::uint64_t sess_id, SelectiveSyncInfo& info) {
  const Guard guard(*this);
  if (ConvertFilterDBToSelectiveSyncInfo(sess_id, info) != 0) return -1;
  return ConvertWhiteFilterDBToSelectiveSyncInfo(sess_id, info);
}

int FilterDB::ConvertFilterDBToSelectiveSyncInfo(std::uint64_t sess_id, SelectiveSyncInfo& info) {
  return Query(
      Sql("SELECT filter_type, sync_id, filter_desc FROM filter_table WHERE sess_id = %llu; ",
          Number(sess_id)),
      [&info](sqlite3_stmt* row) {
        const std::int64_t type = sqlite3_column_int64(row, 0);
        FilterInfo rule = ReadRule(row);
        if (type == FILTER_TYPE_FILE_SIZE) {
          info.black_size = std::move(rule);
        } else if (type == FILTER_TYPE_EXT) {
          info.black_suffix.emplace(rule.sync_id, ustring(".") + rule.filter_desc);
        } else if (SelectiveSyncInfo::Set* const set = FindSet(info, type)) {
          set->insert(std::move(rule));
        } else {
          LogUnknownType(__LINE__, type);
        }
      });
}

int FilterDB::ConvertWhiteFilterDBToSelectiveSyncInfo(std::uint64_t sess_id,
                                                      SelectiveSyncInfo& info) {
  return Query(
      Sql("SELECT filter_type, sync_id, filter_desc FROM white_list_table WHERE sess_id = %llu;",
          Number(sess_id)),
      [&info](sqlite3_stmt* row) {
        const std::int64_t type = sqlite3_column_int64(row, 0);
        if (type == FILTER_TYPE_EXT) {
          info.white_ext.insert(ReadRule(row));
        } else {
          LogUnknownType(__LINE__, type);
        }
      });
}

int FilterDB::removeSelectiveSyncInfo(std::uint64_t sess_id) {
  const Guard guard(*this);
  return Execute(
      Sql("BEGIN; DELETE FROM filter_table WHERE sess_id = %llu; DELETE FROM "
          "white_list_table WHERE sess_id = %llu; END; ",
          Number(sess_id), Number(sess_id)));
}

}  // namespace tolven

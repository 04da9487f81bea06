// Opening and closing, and the configuration.

#include "client/file-event-db.h"

#include <cstdlib>

#include "client/event-db-columns.h"
#include "client/event-db-functions.h"
#include "client/event-db-schema.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "platform/paths.h"

namespace tolven {

using event_db::ColumnText;
using event_db::kCategory;
using event_db::ResetAtEnd;
using event_db::Sql;

namespace {

// In front of a path in the configuration, and where the path begins.
constexpr char kUncertain[] = "uncertain:";
constexpr int kAfterUncertain = sizeof(kUncertain);

ustring FolderOf(const ustring& path) {
  std::string_view text = path.view();
  while (!text.empty() && !platform::IsPathSeparator(text.back())) text.remove_suffix(1);
  return text.empty() ? ustring(".") : ustring(text.substr(0, text.size() - 1));
}

constexpr int kCheckpointPages = 8192;                       // 32 MiB of journal
constexpr char kCacheSize[] = "PRAGMA cache_size = -8192;";  // KiB

}  // namespace

FileEventDB& FileEventDB::getInstance() {
  static FileEventDB* const instance = new FileEventDB;
  return *instance;
}

int FileEventDB::initialize(const ustring& path) {
  const MutexLock hold(m_dbMutex);
  if (m_db.is_open()) return 0;
  // SQLite would open a file without a name, and "sign" would stand at the root of the disk.
  const int code = path.empty() ? SQLITE_CANTOPEN : m_db.Open(path);
  if (code == SQLITE_OK && Configure(path) == 0) return 0;
  if (code != SQLITE_OK) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): FileEventDB: Failed to open database at '%s'. [%d] "
                   L"%s\n",
                   __LINE__, path, code, m_db.error_text());
  }
  m_db.Close();
  return -1;
}

int FileEventDB::Configure(const ustring& path) {
  const ustring folder = FolderOf(path);
  m_eventDBPath = path;
  m_signPath = folder + "/sign";
  m_profilePath = folder + "/profiles";
  int code = sqlite3_exec(m_db.get(), event_db::kSchema, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): FileEventDB: Failed to initialize database at '%s'. "
                   L"[%d] %s\n",
                   __LINE__, path, code, m_db.error_text());
    return -1;
  }
  code = event_db::CreateFunctions(m_db.get(), &m_signPath);
  if (code != SQLITE_OK) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): FileEventDB: Failed to create function. %s (%d)\n",
                   __LINE__, m_db.error_text(), code);
    return -1;
  }
  code = sqlite3_exec(m_db.get(), "PRAGMA recursive_triggers = true;", nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): FileEventDB: Failed to enable recursive triggers. %s "
                   L"(%d)\n",
                   __LINE__, m_db.error_text(), code);
    return -1;
  }
  // Only a matter of speed: a checkpoint costs two syncs, and each write of a record touches the
  // same few pages of its parents and indexes, so a longer journal and some more memory pay.
  (void)sqlite3_wal_autocheckpoint(m_db.get(), kCheckpointPages);
  (void)sqlite3_exec(m_db.get(), kCacheSize, nullptr, nullptr, nullptr);
  if (FSMKDir(m_profilePath, true) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-db(%d): FileEventDB: Failed to create folder at '%s'.\n",
                   __LINE__, m_profilePath);
    return -1;
  }
  return 0;
}

void FileEventDB::destroy() {
  const MutexLock hold(m_dbMutex);
  ForgetServerFolders();
  m_db.Close();
}

ustring FileEventDB::getProfilePath() const {
  const MutexLock hold(m_dbMutex);
  return m_profilePath;
}

int FileEventDB::Run(int line, const std::string& script) {
  const MutexLock hold(m_dbMutex);
  ForgetServerFolders();
  return m_db.Execute(line, script);
}

int FileEventDB::FindText(int line, const std::string& sql, ustring& out) {
  const MutexLock hold(m_dbMutex);
  return m_db.Query(line, sql, [&out](sqlite3_stmt* row) { out.assign(ColumnText(row, 0)); });
}

int FileEventDB::GetConfig(const char* key, std::string& value) {
  const int found = FindConfig(key, value);
  if (found != 0) return found < 0 ? -1 : 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] event-db(%d): no '%s' in '%s'\n", __LINE__,
                 key, m_eventDBPath);
  return -1;
}

int FileEventDB::FindConfig(std::string_view key, std::string& value) {
  sqlite3_stmt* const statement = m_db.Prepare(
      __LINE__, event_db::kConfig, "SELECT ifnull(value, '') FROM config_table WHERE key = ?1;");
  if (statement == nullptr) return -1;
  const ResetAtEnd reset(statement);
  const int code =
      sqlite3_bind_text64(statement, 1, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
  if (code != SQLITE_OK) return m_db.Fail(__LINE__, "sqlite3_bind", code);
  const int found = m_db.Step(__LINE__, statement);
  if (found == 1) value = ColumnText(statement, 0);
  return found;
}

int FileEventDB::getSyncId(std::uint64_t& sync_id, std::uint64_t* times_set) {
  const MutexLock hold(m_dbMutex);
  if (times_set != nullptr) *times_set = m_timesSyncIdSet;
  std::string value;
  if (GetConfig("sync_id", value) != 0) return -1;
  sync_id = std::strtoull(value.c_str(), nullptr, 10);
  return 0;
}

int FileEventDB::setSyncId(std::uint64_t sync_id) {
  const MutexLock hold(m_dbMutex);
  ++m_timesSyncIdSet;
  return m_db.Execute(__LINE__, Sql("UPDATE config_table SET value = '%llu' WHERE key = 'sync_id';",
                                    static_cast<unsigned long long>(sync_id)));
}

int FileEventDB::replaceSyncId(std::uint64_t expected, std::uint64_t times_set,
                               std::uint64_t sync_id) {
  const MutexLock hold(m_dbMutex);
  if (times_set != m_timesSyncIdSet) return 0;
  const int result = m_db.Execute(
      __LINE__,
      Sql("UPDATE config_table SET value = '%llu' WHERE key = 'sync_id' AND value = '%llu';",
          static_cast<unsigned long long>(sync_id), static_cast<unsigned long long>(expected)));
  return result != 0 ? -1 : sqlite3_changes(m_db.get());
}

int FileEventDB::getUid(std::uint32_t& uid) {
  const MutexLock hold(m_dbMutex);
  std::string value;
  if (GetConfig("uid", value) != 0) return -1;
  uid = static_cast<std::uint32_t>(std::strtoull(value.c_str(), nullptr, 10));
  return 0;
}

int FileEventDB::updateUid(std::uint32_t uid) {
  return Run(__LINE__, Sql("UPDATE config_table SET value = '%lu' WHERE key = 'uid';",
                           static_cast<unsigned long>(uid)));
}

int FileEventDB::getConfigStrByKey(const ustring& key, ustring& value) {
  value.clear();
  std::string text;
  const MutexLock hold(m_dbMutex);
  if (FindConfig(key.view(), text) < 0) return -1;
  value = text;
  return 0;
}

int FileEventDB::updateConfigStrByKey(const ustring& key, const ustring& value) {
  return Run(__LINE__, Sql("UPDATE config_table SET value = %Q WHERE key = %Q;", value.c_str_utf8(),
                           key.c_str_utf8()));
}

int FileEventDB::addConfigStr(const ustring& key, const ustring& value) {
  return Run(__LINE__, Sql("INSERT OR REPLACE INTO config_table VALUES (%Q, %Q);", key.c_str_utf8(),
                           value.c_str_utf8()));
}

int FileEventDB::rmConfigStr(const ustring& key) {
  return Run(__LINE__, Sql("DELETE FROM config_table WHERE key = %Q;", key.c_str_utf8()));
}

int FileEventDB::addUncertain(const ustring& path) {
  return addConfigStr(ustring(kUncertain + path.str()), "");
}

int FileEventDB::rmUncertain(const ustring& path) {
  return rmConfigStr(ustring(kUncertain + path.str()));
}

int FileEventDB::getUncertain(std::vector<ustring>& paths) {
  const MutexLock hold(m_dbMutex);
  const int forgotten = m_db.Execute(
      __LINE__, Sql("DELETE FROM config_table WHERE key GLOB '%q*' AND substr(key, %d) NOT IN "
                    "(SELECT path FROM event_table WHERE isExist = 1);",
                    kUncertain, kAfterUncertain));
  if (forgotten != 0) return -1;
  const int rows =
      m_db.Query(__LINE__,
                 Sql("SELECT substr(key, %d) FROM config_table WHERE key GLOB '%q*';",
                     kAfterUncertain, kUncertain),
                 [&paths](sqlite3_stmt* row) { paths.emplace_back(ColumnText(row, 0)); });
  return rows < 0 ? -1 : 0;
}

}  // namespace tolven

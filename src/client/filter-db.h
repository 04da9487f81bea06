// The selective sync rules of all sessions as they were last applied, in one SQLite file, so that a
// change of rules can be told from what held before. Rules are rows of (session, kind, text); a
// rule that is there already is not added again.
//
// All operations may be called from any thread, and wait up to 5 minutes for another process.
// Results are 0 or -1; failures are logged as "filter_db_debug".
#pragma once

#include <cstdint>
#include <string>

#include "lib/selective-sync-info.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

struct sqlite3;

namespace tolven {

// The object is itself what Lock() takes, so that clang finds calls that would deadlock.
class CAPABILITY("filter database") FilterDB {
 public:
  // What a row's filter_type says.
  enum FilterType : int {
    FILTER_TYPE_PREFIX = -1,
    FILTER_TYPE_SUFFIX = -2,
    FILTER_TYPE_GLOB = -3,
    FILTER_TYPE_COMMON_PREFIX = -4,
    FILTER_TYPE_EXT = -12,
    FILTER_TYPE_PATH = -13,
    FILTER_TYPE_NAME = -14,
    FILTER_TYPE_FILE_SIZE = -15,
  };

  static FilterDB& getInstance();

  FilterDB() = default;
  ~FilterDB();
  FilterDB(const FilterDB&) = delete;
  FilterDB& operator=(const FilterDB&) = delete;

  // Opens the file, made when missing. 0 at once when open already.
  int initialize(const ustring& path) EXCLUDES(this);
  void destroy() EXCLUDES(this);

  int setConfigItem(const ustring& key, const ustring& value) EXCLUDES(this);
  // Adds rules; what is stored for the session stays. After a failure a part of them may stand.
  int setSelectiveSyncInfo(std::uint64_t sess_id, const SelectiveSyncInfo& info) EXCLUDES(this);
  // Adds the stored rules to `info`; nothing for an unknown session.
  int getSelectiveSyncInfo(std::uint64_t sess_id, SelectiveSyncInfo& info) EXCLUDES(this);
  int removeSelectiveSyncInfo(std::uint64_t sess_id) EXCLUDES(this);

  // For callers that work in several steps with setFilterInfo().
  void Lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { m_db_mutex.lock(); }
  void Unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS { m_db_mutex.unlock(); }
  int setFilterInfo(const char* table, std::uint64_t sess_id, FilterType type,
                    const FilterInfo& info) REQUIRES(this);

 private:
  class Guard;

  int Execute(const std::string& sql) REQUIRES(this);
  template <class ReadRow>
  int Query(const std::string& sql, ReadRow&& read_row) REQUIRES(this);
  int setFilterInfos(const char* table, std::uint64_t sess_id, FilterType type,
                     const SelectiveSyncInfo::Set& rules) REQUIRES(this);
  int ConvertFilterDBToSelectiveSyncInfo(std::uint64_t sess_id, SelectiveSyncInfo& info)
      REQUIRES(this);
  int ConvertWhiteFilterDBToSelectiveSyncInfo(std::uint64_t sess_id, SelectiveSyncInfo& info)
      REQUIRES(this);
  void Close() REQUIRES(this);

  Mutex m_db_mutex;
  ustring m_filter_db_path GUARDED_BY(this);
  sqlite3* m_db GUARDED_BY(this) = nullptr;
};

}  // namespace tolven

// The memory of one session: what both sides looked like when they last agreed. Every later change
// of either side is judged against it, and a change that a filter held back is kept in it. It is
// all of a session that survives a restart, but for what a rescan finds anew.
//
// One SQLite file (tables in event-db-schema.cpp, WAL journal, synchronous = NORMAL: a crash may
// lose the last transactions and never harms the file). Beside it stand the folders "sign", with
// the rsync signature of each row's content under the name that path_convert() gives to the row's
// id, and "profiles". A signature may be missing; it never stands beside a content that it does not
// describe.
//
// Paths are those of events: "/" or "/a/b"; "" means "/" unless told otherwise. Results are 0 on
// success and -1 on failure, logged as "event_db_debug", unless told otherwise; lookups give 1
// found, 0 none, -1 error. Every write is one transaction: after a failure nothing of it stands. A
// closed database fails every call. Results are written to the last parameter; what it holds after
// a failure is not told.
//
// All operations may be called from any thread. They wait for each other, and up to 5 seconds for
// another process.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/db-file-info.h"
#include "client/event-db-connection.h"
#include "client/event.h"
#include "client/filtered-event.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class FileList;

class FileEventDB {
 public:
  // Bits of `option`.
  enum FILTER_FLAG {
    FILTER_FLAG_INCLUDE_CHILD = 1,  // the path and all below it, in place of the path alone
    FILTER_FLAG_REMOVED_ONLY = 2,
  };
  struct EventInfo {
    std::uint64_t row_id = 0;
    std::uint64_t sync_id = 0;
  };
  // SQL conditions that all have to hold.
  using Conditions = std::vector<std::string>;

  FileEventDB() = default;
  FileEventDB(const FileEventDB&) = delete;
  FileEventDB& operator=(const FileEventDB&) = delete;

  // An object that nobody opens, for callers that have no session.
  static FileEventDB& getInstance();

  // Opens the file, made when missing, in a folder that exists. 0 at once when open already.
  int initialize(const ustring& path);
  void destroy();
  ustring getProfilePath() const;

  // --- the configuration ---
  // `times_set` becomes how often this object's setSyncId was called.
  int getSyncId(std::uint64_t& sync_id, std::uint64_t* times_set = nullptr);
  int setSyncId(std::uint64_t sync_id);
  // Stores `sync_id` unless somebody stored one, be it the same, since getSyncId gave `expected`
  // and `times_set`: 1, 0 or -1.
  int replaceSyncId(std::uint64_t expected, std::uint64_t times_set, std::uint64_t sync_id);
  int getUid(std::uint32_t& uid);
  int updateUid(std::uint32_t uid);
  // An unknown key reads as "" and is not written.
  int getConfigStrByKey(const ustring& key, ustring& value);
  int updateConfigStrByKey(const ustring& key, const ustring& value);
  // For keys that are there at times only.
  int addConfigStr(const ustring& key, const ustring& value);
  int rmConfigStr(const ustring& key);

  // --- files whose size and time do not tell whether they are what their rows say ---
  int addUncertain(const ustring& path);
  int rmUncertain(const ustring& path);
  // Those that still have a row; the others are forgotten.
  int getUncertain(std::vector<ustring>& paths);

  // --- single entries ---
  // The local view alone; `signaturePath` becomes the row's place in the store, whether or not a
  // signature is there. An empty path is an error.
  int getEventInfo(const ustring& path, DBFileInfo& info);
  // Fills the `server` fields of `info` from the row and leaves the others as they are: before a
  // record is written back that came from getEventInfo, so that what an answer did not tell stays.
  int fillServerColumns(const ustring& path, DBFileInfo& info);
  // Writes all columns of the row of info.path, as existing. Ancestors that have no row get one as
  // directories, and each one's maxSyncID is raised to info.maxSyncID; the path leaves the filter
  // tables, for a file with all below it. For a file, `signaturePath` is moved into the store when
  // not empty: a failure of that is only warned of. A signature of another content is removed
  // first.
  int setEventInfo(const DBFileInfo& info);
  int updateEventRecordLocalMtime(const ustring& path, std::uint32_t mtime);

  // --- listings of existing entries, with paths below `path` ---
  int getFileList(FileList& list, const ustring& path);
  // Direct children; the second form hides what is newer than `syncId`.
  int getFileListWithoutRecursive(FileList& list, const ustring& path);
  int getFileListWithoutRecursive(FileList& list, const ustring& path, std::uint64_t syncId);
  void DumpEventTable();
  int hasFiles();  // whether some existing entry is a file: 1, 0 or -1

  // --- removal of rows, with their signatures ---
  // The path and all below it, from event_table and local_filter_table. "/" is left alone.
  int rmLocalEventInfo(const ustring& path);
  // The row of the path alone, which then counts as never synced.
  int rmOwnEventInfo(const ustring& path);
  // From server_filter_table, too.
  int commitRemove(const ustring& path);
  // event_table and local_filter_table as a whole.
  int clear();
  // All but the first level.
  int rmAllFolders();

  // --- lookups by content or attribute: 1, 0 or -1 ---
  int getFilePathByHash(const ustring& hash, ustring& path);
  int getFilePathByHashFromRecycle(const ustring& hash, ustring& path);
  int getMacAttributeByHash(const ustring& hash, ustring& path);
  int getZentACLByHash(const ustring& hash, ustring& acl);
  // Fills the local share privilege fields.
  int getSharePrivilegeByHash(const ustring& hash, DBFileInfo& info);
  // Reserved: always -1.
  int getPathByInode(std::uint64_t inode, ustring& path);
  int setPathInode(const ustring& path, std::uint64_t inode);

  // --- the server's view, in the `server` fields; what is parked for a path wins over its row ---
  int getServerEvent(const Conditions& conditions, std::vector<DBFileInfo>& out);
  int getServerEventByPath(const ustring& path, DBFileInfo& info);  // 1, 0 or -1
  // The same for a folder above others, from memory where it was asked for before and no folder has
  // changed since: a batch of events asks for the same few ones again and again. Its maxSyncID may
  // be an older one.
  int getServerFolder(const ustring& path, DBFileInfo& info);
  // The path and all below it.
  int getServerEventByPrefix(const ustring& path, std::vector<DBFileInfo>& out);
  // At most `limit` of them, in byte order of the path, behind `after` ("" for the first ones).
  int getServerEventPage(const ustring& path, const ustring& after, std::size_t limit,
                         std::vector<DBFileInfo>& out);

  // --- the recycle bin: a row for each file that it holds, and one for each directory moved there;
  // times are seconds since 1970 ---
  // Turn the rows of what was moved to `target` in the bin into rows of the bin.
  int dumpDirToRecycleBin(const ustring& path, const ustring& target);
  int dumpFileToRecycleBin(const ustring& path, const ustring& target);
  int addFileToRecycleBin(const ustring& path, std::uint64_t size, const ustring& hash,
                          const ustring& macHash);
  int rmRecycleByPath(const ustring& path);
  int resetRecycleBin();
  // Items of the top level that are not newer than `time`.
  int getRotateList(std::uint32_t time, std::set<ustring>& paths);
  int rmRotateRecords(std::uint32_t time);
  int getOldestRecyleTime(std::uint32_t& time);  // 0 for an empty bin

  // --- changes that filters held back ---
  // -1 for an event of the other side. For a server's change of a directory, the rows below it
  // are parked as well.
  int setLocalFilteredEvent(const FilteredEvent& event);
  int setServerFilteredEvent(const FilteredEvent& event);
  // A directory was removed whose removal is held back: all that is known below it counts as held
  // back, what was so already as removed.
  int expandLocalFilteredEvent(const ustring& path);
  int getLocalFilteredEvent(FilteredEvent::FilterType type, const ustring& path, int option,
                            std::vector<FilteredEvent>& out);
  int getLocalFilteredEvent(FilteredEvent::FilterType type, const Conditions& conditions,
                            std::vector<FilteredEvent>& out);
  int getServerFilteredEvent(FilteredEvent::FilterType type, const ustring& path, int option,
                             std::vector<FilteredEvent>& out);
  int getServerFilteredEvent(FilteredEvent::FilterType type, const Conditions& conditions,
                             std::vector<FilteredEvent>& out);
  int rmLocalFilteredEvent(FilteredEvent::FilterType type, const ustring& path, int option);
  int rmServerFilteredEvent(FilteredEvent::FilterType type, const ustring& path, int option);

  static FilteredEvent ToFilteredEvent(const Event& event, FilteredEvent::FilterType type);
  static Event ToEvent(const FilteredEvent& filtered, std::uint64_t sessId);
  static const char* GetTableName(bool isServer);
  // Whether a filter's result code asks for the event to be parked. The rule is the low byte of the
  // code's absolute value; the bits above say whose filter it was.
  static bool IsValidFilterType(int code);

 private:
  // The row of setEventInfo, as far as it stands before.
  struct StoredContent {
    std::uint64_t row_id = 0;  // 0 without a row
    int file_type = 0;
    ustring check_sum;
    bool is_exist = false;
  };

  int Configure(const ustring& path) REQUIRES(m_dbMutex);
  int GetConfig(const char* key, std::string& value) REQUIRES(m_dbMutex);
  int FindConfig(std::string_view key, std::string& value) REQUIRES(m_dbMutex);  // 1, 0 or -1
  int FindText(int line, const std::string& sql, ustring& out);

  int WriteRecord(const DBFileInfo& info) REQUIRES(m_dbMutex);
  int setSingleRecord(const DBFileInfo& info) REQUIRES(m_dbMutex);
  int Upsert(const DBFileInfo& info, const StoredContent& before) REQUIRES(m_dbMutex);
  int Unpark(const DBFileInfo& info) REQUIRES(m_dbMutex);
  int updateParentRecord(const ustring& path, std::uint64_t maxSyncID, std::uint32_t mtime,
                         std::uint32_t localMtime) REQUIRES(m_dbMutex);
  // How many rows were raised, or -1.
  int RaiseParent(const ustring& path, std::uint64_t maxSyncID) REQUIRES(m_dbMutex);
  int InsertParent(const ustring& path, std::uint64_t maxSyncID, std::uint32_t mtime,
                   std::uint32_t localMtime) REQUIRES(m_dbMutex);
  int ReadContent(const ustring& path, StoredContent& content) REQUIRES(m_dbMutex);
  int contains(const ustring& path, EventInfo& info) REQUIRES(m_dbMutex);
  int setSignature(const ustring& path, const ustring& temp) REQUIRES(m_dbMutex);
  int RemoveSignature(std::uint64_t row_id) REQUIRES(m_dbMutex);
  ustring SignaturePath(std::uint64_t row_id) const REQUIRES(m_dbMutex);

  std::size_t CountRows();
  int ListInto(int line, FileList& list, const ustring& path, const std::string& sql);
  int Run(int line, const std::string& script);

  int setFilteredEvent(const FilteredEvent& event);
  void ForgetServerFolders() REQUIRES(m_dbMutex) { m_serverFolders.clear(); }
  static std::string GetInsertFilteredEventSQL(const FilteredEvent& event);
  static std::string GetExpandFilteredEventSQL(bool isServer, FilteredEvent::FilterType type,
                                               const ustring& path);
  static Conditions GetConditions(const ustring& path, int option);
  int SelectServerView(int line, const Conditions& conditions, const std::string& order,
                       std::vector<DBFileInfo>& out);
  // 1, 0 or -1.
  int FindServerView(const ustring& path, DBFileInfo& info) REQUIRES(m_dbMutex);
  int HasParked() REQUIRES(m_dbMutex);
  int SelectFiltered(int line, bool isServer, FilteredEvent::FilterType type,
                     const Conditions& conditions, std::vector<FilteredEvent>& out);

  mutable Mutex m_dbMutex;
  ustring m_eventDBPath GUARDED_BY(m_dbMutex);
  ustring m_profilePath GUARDED_BY(m_dbMutex);
  ustring m_signPath GUARDED_BY(m_dbMutex);
  event_db::Connection m_db GUARDED_BY(m_dbMutex);
  std::uint64_t m_timesSyncIdSet GUARDED_BY(m_dbMutex) = 0;
  // What getServerFolder found, until a write that may touch a folder's row or what is parked.
  std::unordered_map<std::string, DBFileInfo> m_serverFolders GUARDED_BY(m_dbMutex);
};

}  // namespace tolven

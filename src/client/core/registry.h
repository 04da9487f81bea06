// The table of sessions, each a local folder paired with a folder on the server. All results are
// copies, which share the heavy members and outlive the removal of their session: a worker finishes
// with its copy while the control thread takes the session down.
//
// Every operation may be called from any thread. What leaves the table is destroyed after the lock
// has been given back, so that closing a database holds up nobody.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "client/core/permission-mode.h"
#include "lib/shared-pointer.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class BlackList2;
class FileEventDB;
class ForceHashCheckListCpp;
class ProfileSet;
class RootProof;
class WhiteListCpp;

class Registry {
 public:
  struct Entry {
    // No numbers, flags, texts or objects, but an empty profile set of the entry's own.
    Entry();
    void clear();

    std::uint64_t conn_id = 0;
    std::uint64_t sess_id = 0;  // the key
    std::uint64_t view_id = 0;  // on the server
    std::uint64_t node_id = 0;  // on the server, of the session's root
    // Of the oldest item in the recycle bin, in seconds since 1970; 0: none is known.
    std::uint32_t recycle_time = 0;
    bool recursive = false;
    ustring local_path;   // the watched folder, absolute
    ustring remote_path;  // its pair on the server
    ustring config_path;  // where the session keeps its own files
    ustring share_name;
    bool isMSDOS = false;  // the local volume is FAT
    bool pause = false;
    bool read_only = false;  // nothing is uploaded
    PermissionMode perm_mode = PERM_SYNC_EXEC_BIT_ONLY;
    shared_pointer<ProfileSet> server_black_lists;  // never null in the table
    shared_pointer<BlackList2> black_list;
    shared_pointer<WhiteListCpp> white_list;
    shared_pointer<FileEventDB> event_db;
    shared_pointer<ForceHashCheckListCpp> force_hash_check_list;
    shared_pointer<RootProof> root_proof;  // asked before an absence in the folder is believed
    // Tells a session from an earlier one of the same id: each Set() gives a new number, above 0.
    std::uint64_t generation = 0;
  };

  static Registry& getInstance();

  Registry() = default;
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // 1, or 0 and `out` as it was.
  int Find(std::uint64_t sess_id, Entry& out) const EXCLUDES(mutex);
  // The session with the next higher id, after the highest the lowest one, so that a caller comes
  // by all of them for ever. For an id that is not in the table the lowest one. 1, or 0 and `out`
  // as it was when the table is empty.
  int FindNext(std::uint64_t sess_id, Entry& out) const EXCLUDES(mutex);
  // Appends all sessions by ascending id.
  void GetAll(std::vector<Entry>& out) const EXCLUDES(mutex);
  std::size_t Size() const EXCLUDES(mutex);

  // Adds a session, or puts it in the place of the one with its id, of which only `recycle_time`
  // stays. `entry.generation` is not looked at. A running session is changed by the setters below.
  void Set(const Entry& entry) EXCLUDES(mutex);

  void Remove(std::uint64_t sess_id) EXCLUDES(mutex);
  void Clear(std::uint64_t sess_id) EXCLUDES(mutex) { Remove(sess_id); }
  void Clear() EXCLUDES(mutex);

  // Change one field, so that threads which change different ones do not undo each other's work.
  // They do nothing for a session that is not in the table.
  void SetPause(std::uint64_t sess_id, bool pause) EXCLUDES(mutex);
  void SetReadOnly(std::uint64_t sess_id, bool read_only) EXCLUDES(mutex);
  void SetRecursive(std::uint64_t sess_id, bool recursive) EXCLUDES(mutex);
  void SetPermMode(std::uint64_t sess_id, PermissionMode mode) EXCLUDES(mutex);
  // Null stands for no profiles. Nobody changes a set once it is here.
  void SetServerBlackLists(std::uint64_t sess_id, shared_pointer<ProfileSet> set) EXCLUDES(mutex);
  void SetBlackList(std::uint64_t sess_id, shared_pointer<BlackList2> list) EXCLUDES(mutex);
  void SetWhiteList(std::uint64_t sess_id, shared_pointer<WhiteListCpp> list) EXCLUDES(mutex);
  void SetForceHashCheckList(std::uint64_t sess_id, shared_pointer<ForceHashCheckListCpp> list)
      EXCLUDES(mutex);

  // An item of time `t` came into the recycle bin of the session: the smallest time is kept.
  void InitRecycleTime(const Entry& entry, std::uint32_t t) EXCLUDES(mutex);
  // The bin was looked through: `t` is what was found, 0 for an empty bin.
  void UpdateRecycleTime(const Entry& entry, std::uint32_t t) EXCLUDES(mutex);

 private:
  template <class T>
  void SetField(std::uint64_t sess_id, T Entry::*field, T value) EXCLUDES(mutex);

  mutable Mutex mutex;
  std::map<std::uint64_t, Entry> index GUARDED_BY(mutex);
  std::uint64_t last_generation GUARDED_BY(mutex) = 0;
};

}  // namespace tolven

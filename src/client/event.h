// One change to one path of one session: seen by the folder watcher, pulled from the server, or
// made up by the engine. A plain value that is copied wherever it is queued, merged or handed out;
// two pending events are the same one exactly when m_sess_id and m_path agree.
#pragma once

#include <cstdint>

#include "ustring/ustring.h"

namespace tolven {

class Event {
 public:
  enum Type {
    EV_EMPTY = 0,  // unset, never queued
    EV_CREATE = 1,
    EV_REMOVE = 2,
    EV_MODIFY = 3,
    EV_RENAME = 4,  // split into a remove and a create before it reaches the event manager
  };

  // Bits of m_mode.
  enum : uint32_t {
    F_DIR = 1,
    F_SERVER = 2,
    F_EXPAND = 4,                // an order to walk a directory, not a change
    F_RESCAN = 8,                // with F_EXPAND: compare the walk against the database
    F_MERGE = 16,                // with F_RESCAN: a rescan with merge
    F_EXCEP = 32,                // reserved
    F_LOCAL_SUBDIR_RESCAN = 64,  // afterwards, rescan the sub-tree on that side
    F_SERVER_SUBDIR_RESCAN = 128,
    F_LOCAL_SUBDIR_RESCAN_STAT = 256,  // the same with a stat of each entry
    F_SERVER_SUBDIR_RESCAN_STAT = 512,
    F_CONFLICT = 1024,  // both sides changed the path; the handlers keep both versions
    // A local event that took the place of a server's. When it then has nothing to send, that
    // server event was not applied, and the one who ends it has to count it as such.
    F_REPLACED_SERVER_EVENT = 8192,
  };

  // Ownership, access list and share privileges. Cleared numbers are 0, cleared strings empty.
  struct PrivilegeAttr {
    struct UnixMode {
      uint32_t uid = 0;
      uint32_t gid = 0;
      uint32_t mode = 0;
      void clear() { *this = UnixMode(); }
    };
    struct ZentACL {
      ustring zent_acl;  // the access list as text
      ustring zent_acl_hash;
      void clear() { *this = ZentACL(); }
    };
    struct SharePrivilege {
      int32_t share_priv_disabled = 0;
      ustring share_priv_deny_list;
      ustring share_priv_ro_list;
      ustring share_priv_rw_list;
      ustring share_priv_hash;
      void clear() { *this = SharePrivilege(); }
    };

    UnixMode unix_mode;
    ZentACL zent_acl;
    SharePrivilege share_priv;

    void clear();
  };

  bool isValid() const { return m_type != EV_EMPTY; }
  bool isServerEvent() const { return has(F_SERVER); }
  bool isLocalEvent() const { return !has(F_SERVER); }
  bool isDir() const { return has(F_DIR); }
  bool isFile() const { return !has(F_DIR); }
  bool isExpand() const { return has(F_EXPAND); }
  bool isRescan() const { return has(F_RESCAN); }
  bool isMerge() const { return has(F_MERGE); }
  bool isConflict() const { return has(F_CONFLICT); }
  bool hasReplacedServerEvent() const { return isLocalEvent() && has(F_REPLACED_SERVER_EVENT); }
  bool isLocalSubDirRescan() const { return has(F_LOCAL_SUBDIR_RESCAN); }
  bool isServerSubDirRescan() const { return has(F_SERVER_SUBDIR_RESCAN); }
  bool isLocalSubDirRescanWithStat() const { return has(F_LOCAL_SUBDIR_RESCAN_STAT); }
  bool isServerSubDirRescanWithStat() const { return has(F_SERVER_SUBDIR_RESCAN_STAT); }
  // Any of the four rescans above.
  bool isSubDirRescan() const;

  void setServerEvent() { m_mode |= F_SERVER; }
  void setLocalEvent() { m_mode &= ~uint32_t{F_SERVER}; }
  void setDir() { m_mode |= F_DIR; }
  void setFile() { m_mode &= ~uint32_t{F_DIR}; }
  void setExpand() { m_mode |= F_EXPAND; }
  void setRescan() { m_mode |= F_RESCAN; }
  void setMerge() { m_mode |= F_MERGE; }
  void setConflict() { m_mode |= F_CONFLICT; }
  void setLocalSubDirRescan() { m_mode |= F_LOCAL_SUBDIR_RESCAN; }
  void setServerSubDirRescan() { m_mode |= F_SERVER_SUBDIR_RESCAN; }
  void setLocalSubDirRescanWithStat() { m_mode |= F_LOCAL_SUBDIR_RESCAN_STAT; }
  void setServerSubDirRescanWithStat() { m_mode |= F_SERVER_SUBDIR_RESCAN_STAT; }

  void clear() { *this = Event(); }
  void swap(Event& other);

  // One line for the log, without a line end.
  ustring toString() const;
  // The type as log lines show it; EV_CREATE reads "EV_ADD".
  static const char* TypeText(Type type);

  Type m_type = EV_EMPTY;
  uint32_t m_mode = 0;
  uint64_t m_sync_id = 0;    // server's number of the change, 0 for a local event without one
  uint64_t m_max_id = 0;     // highest number the server knows for this path
  uint64_t m_data_size = 0;  // bytes
  uint32_t m_time = 0;       // modification time, seconds
  ustring m_data_hash;
  ustring m_path;  // relative to the session's root, "/" or "/a/b"
  ustring m_opt;   // the new path of a rename
  ustring m_mac_attr_hash;
  uint64_t m_mac_attr_size = 0;
  uint64_t m_sess_id = 0;
  uint32_t m_exec_bit = 0;
  PrivilegeAttr m_privilege;

 private:
  bool has(uint32_t flag) const { return (m_mode & flag) != 0; }
};

inline void swap(Event& a, Event& b) { a.swap(b); }

}  // namespace tolven

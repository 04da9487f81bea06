// A change that a filter held back, kept so that it can be replayed when the filter changes.
#pragma once

#include <cstdint>

#include "ustring/ustring.h"

namespace tolven {

struct FilteredEvent {
  enum FilterType {
    FILTERED_ALL = 0,  // in queries: whatever the type
    FILTERED_ACL = 1,  // access rights
    FILTERED_SELECTIVE_SYNC = 2,
  };

  void Clear() { *this = FilteredEvent(); }
  bool IsValid() const { return !path.empty(); }
  bool IsFile() const { return file_type == 0; }
  bool IsDir() const { return file_type != 0; }

  bool is_server = false;  // whose change it was
  bool is_exist = false;   // false for a removal
  FilterType filter_type = FILTERED_ACL;
  std::uint64_t sync_id = 0, max_sync_id = 0;
  ustring path;
  ustring name;                // last component of the path
  std::int32_t file_type = 0;  // 0 file, 1 directory
  std::uint64_t file_size = 0;
  ustring file_hash;
  std::uint32_t m_time = 0;
  ustring mac_hash;
  std::uint64_t inode = 0;
  std::uint32_t exec_bit = 0, unix_uid = 0, unix_gid = 0, unix_mode = 0;
  ustring acl_attribute, acl_hash;
  std::uint32_t share_priv_disabled = 0;
  ustring share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash;
};

// By path, as in each of the two tables.
inline bool operator<(const FilteredEvent& a, const FilteredEvent& b) { return a.path < b.path; }
inline bool operator==(const FilteredEvent& a, const FilteredEvent& b) { return a.path == b.path; }
inline bool operator>(const FilteredEvent& a, const FilteredEvent& b) { return b < a; }

}  // namespace tolven

// The access list of one object. Its text form has decimal tokens, each followed by one blank:
// version, arch_bit, the count of entries, then for each entry type, id, perm, inherit, is_allow
// and level. Text that is malformed counts as far as it can be read. Not locked.
#pragma once

#include <string>
#include <vector>

#include "acl/acl-constants.h"

namespace tolven::ACL_API {

class ACLRule {
 public:
  struct Entry {
    // Denials come first, then by what is written here.
    bool operator<(const Entry& other) const;
    std::string toString() const;

    ZENT_ACL_ID_TYPE type = ZENTSDK_ACL_UNKNOWN;
    int id = 0;  // of the user or group
    ZENT_ACL_PERM perm = 0;
    unsigned inherit = 0;
    bool is_allow = false;
    unsigned level = 0;  // how far above the object it was set; 0: on itself
  };

  void set(const std::string& text);
  // Without the entries that came down from above; empty when nothing was set.
  std::string get() const;
  void clear() { *this = ACLRule(); }

  // Whether what is above adds to this list.
  bool hasInheritedACL() const { return (arch_bit & 0x40) != 0; }
  // Whether the object's group counts as its owner.
  bool isGroupOwner() const { return (arch_bit & 0x80) != 0; }
  int getEntryNum() const { return static_cast<int>(entry.size()); }
  bool getEntry(int index, Entry& out) const;
  void addACE(const Entry& added);
  std::string toString() const;

  const std::vector<Entry>& entries() const { return entry; }

 private:
  int version = -1;  // -1: nothing was set
  unsigned arch_bit = 0;
  std::vector<Entry> entry;
};

}  // namespace tolven::ACL_API

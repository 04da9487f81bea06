// Whether a user may see, read or write an object, by the access lists of the object and of the
// folders above it. Denials always win, and who owns an object may always read and change its
// permissions. All objects are local to one check. Messages go to "acl_debug".
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "acl/acl-rule.h"

namespace tolven::ACL_API {

class ACL {
 public:
  enum PRIVILEGE_SET { PRIV_NA = 0, PRIV_RO = 1, PRIV_RW = 2 };

  // `unix_mode` has one hexadecimal digit for each class: owner, group, other.
  struct UnixPerm {
    std::uint32_t uid = 0, gid = 0, unix_mode = 0;
  };
  struct Privilege {
    std::string acl;  // see ACLRule; empty: the mode alone counts
    std::string path;
    UnixPerm unix_perm;
    int level = 0;  // 0: the object, 1: its folder, and so on
    bool is_dir = false;
  };
  struct UserInfo {
    std::uint32_t uid = 0;
    std::set<std::uint32_t> group_set;
  };

  // The chain from the object up; levels follow on one another from 0.
  void AddPrivilege(const Privilege& privilege);
  // Puts another one in the place of that level.
  void UpdateLevelInfo(int level, const Privilege& privilege);
  // Adds an entry to the list of the object with that path.
  void AddACE(const std::string& path, const ACLRule::Entry& entry);
  void SetRoot(const std::string& path) { root = path; }
  void clear() { *this = ACL(); }

  bool IsUnixMode(int level) const;
  // Both false for an empty chain.
  bool IsReadable(const UserInfo& user) const;
  bool IsWritable(const UserInfo& user) const;
  // Whether the user comes by the object at all: what is hidden hides all that is below.
  bool IsAccessible(const UserInfo& user, int level) const;
  std::string ToString() const;

 private:
  // What the entries of lists allow and deny so far.
  struct Verdict {
    ZENT_ACL_PERM allow = 0, deny = 0;

    void Add(const ACLRule::Entry& entry);
    bool Grants(ZENT_ACL_PERM wanted) const { return (wanted & ~(allow & ~deny)) == 0; }
    bool Decides(ZENT_ACL_PERM wanted) const { return (wanted & ~(allow | deny)) == 0; }
  };

  const Privilege* At(int level) const;
  bool CheckPermission(const UserInfo& user, ZENT_ACL_PERM wanted, int level) const;
  bool CheckInheritedPermission(const UserInfo& user, ZENT_ACL_PERM wanted, Verdict verdict,
                                int level_from, bool is_owner) const;
  void AddInherited(const UserInfo& user, const Privilege& ancestor, bool to_directory,
                    bool is_parent, bool is_owner, Verdict& verdict) const;

  std::string root;
  std::vector<Privilege> priv_list;  // by level
};

struct UnixPermissionHelper {
  // The three numbers, one behind the other.
  static std::string MakeHash(std::uint32_t uid, std::uint32_t gid, std::uint32_t mode);
  // These have no meaning on this platform: 0, with a line that says so.
  static std::uint32_t PermissionToUnixMode(ZENT_ACL_PERM perm);
  static ZENT_ACL_PERM UnixModeToPermission(std::uint32_t mode);
  static std::uint32_t UnixModeToExecBit(std::uint32_t mode);
};

}  // namespace tolven::ACL_API

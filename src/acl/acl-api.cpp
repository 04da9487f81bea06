#include "acl/acl-api.h"

#include <algorithm>
#include <cstdio>

#include "lib/log.h"

namespace tolven::ACL_API {

namespace {

constexpr char kCategory[] = "acl_debug";

// What has to be allowed for each purpose.
constexpr ZENT_ACL_PERM kReadFile = ZENTSDK_MODE_READ;
constexpr ZENT_ACL_PERM kReadDirectory = ZENTSDK_SHARE_RO;
constexpr ZENT_ACL_PERM kWrite = ZENTSDK_ACL_PERM_WRITE | ZENTSDK_ACL_PERM_APPEND |
                                 ZENTSDK_ACL_PERM_WRITE_ATTR | ZENTSDK_ACL_PERM_WRITE_EXT_ATTR;

ZENT_ACL_PERM mode_to_perm(std::uint32_t mode, unsigned shift) {
  const std::uint32_t digit = mode >> shift & 7;
  const bool read = (digit & 4) != 0, write = (digit & 2) != 0;
  ZENT_ACL_PERM perm = 0;
  if (read && write) {
    perm = 1534;
  } else if (write) {
    perm = ZENTSDK_MODE_WRITE;
  } else if (read) {
    perm = ZENTSDK_MODE_READ;
  }
  return (digit & 1) != 0 ? perm + ZENTSDK_ACL_PERM_EXEC : perm;
}

// Of the class that the user is in.
ZENT_ACL_PERM PermOfMode(const ACL::UnixPerm& perm, const ACL::UserInfo& user) {
  constexpr unsigned kOwner = 8, kGroup = 4, kOther = 0;
  if (perm.uid == user.uid) return mode_to_perm(perm.unix_mode, kOwner);
  return mode_to_perm(perm.unix_mode, user.group_set.contains(perm.gid) ? kGroup : kOther);
}

bool Matches(const ACLRule::Entry& entry, const ACL::UserInfo& user, bool is_owner) {
  switch (entry.type) {
    case ZENTSDK_ACL_OWNER:
      return is_owner;
    case ZENTSDK_ACL_USER:
      return static_cast<std::uint32_t>(entry.id) == user.uid;
    case ZENTSDK_ACL_GROUP:
      return user.group_set.contains(static_cast<std::uint32_t>(entry.id));
    case ZENTSDK_ACL_GROUP_EVERYONE:
      return true;
    default:
      return false;
  }
}

void LogInvalidLevel(int line, int level, std::size_t size) {
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] acl-api(%d): Invalid argument: level_from = %d, acl chain size = %d\n",
                 line, level, size);
}

std::uint32_t Unavailable(int line, const char* what) {
  Logger::LogMsg(Logger::L_CRIT, kCategory,
                 L"[CRIT] acl-api(%d): %s is not implemented on this platform.\n", line, what);
  return 0;
}

}  // namespace

void ACL::Verdict::Add(const ACLRule::Entry& entry) {
  (entry.is_allow ? allow : deny) |= entry.perm;
}

const ACL::Privilege* ACL::At(int level) const {
  if (level < 0 || static_cast<std::size_t>(level) >= priv_list.size()) return nullptr;
  return &priv_list[static_cast<std::size_t>(level)];
}

void ACL::AddPrivilege(const Privilege& privilege) {
  const auto by_level = [](const Privilege& a, const Privilege& b) { return a.level < b.level; };
  priv_list.insert(std::upper_bound(priv_list.begin(), priv_list.end(), privilege, by_level),
                   privilege);
}

void ACL::UpdateLevelInfo(int level, const Privilege& privilege) {
  if (privilege.level != level) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] acl-api(%d): level %d is not that of the privilege (%d)\n", __LINE__,
                   level, privilege.level);
    return;
  }
  const auto found = std::find_if(priv_list.begin(), priv_list.end(),
                                  [level](const Privilege& p) { return p.level == level; });
  if (found != priv_list.end()) {
    *found = privilege;
  } else {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] acl-api(%d): no privilege of level %d\n",
                   __LINE__, level);
  }
}

void ACL::AddACE(const std::string& path, const ACLRule::Entry& entry) {
  for (Privilege& privilege : priv_list) {
    if (privilege.path != path) continue;
    ACLRule rule;
    rule.set(privilege.acl);
    rule.addACE(entry);
    privilege.acl = rule.get();
  }
}

bool ACL::IsUnixMode(int level) const {
  const Privilege* const privilege = At(level);
  if (privilege != nullptr) return privilege->acl.empty();
  LogInvalidLevel(__LINE__, level, priv_list.size());
  return false;
}

bool ACL::IsReadable(const UserInfo& user) const {
  if (priv_list.empty()) return false;
  return CheckPermission(user, priv_list.front().is_dir ? kReadDirectory : kReadFile, 0);
}

bool ACL::IsWritable(const UserInfo& user) const {
  return !priv_list.empty() && CheckPermission(user, kWrite, 0);
}

bool ACL::IsAccessible(const UserInfo& user, int level) const {
  const Privilege* const object = At(level);
  if (object == nullptr) {
    LogInvalidLevel(__LINE__, level, priv_list.size());
    return false;
  }
  const auto passes = [&](ZENT_ACL_PERM read, int at) {
    return CheckPermission(user, read, at) || CheckPermission(user, kWrite, at);
  };
  if (!passes(object->is_dir ? kReadDirectory : kReadFile, level)) return false;
  for (int above = level + 1; At(above) != nullptr; ++above) {
    if (!passes(kReadDirectory, above)) return false;
  }
  return true;
}

bool ACL::CheckPermission(const UserInfo& user, ZENT_ACL_PERM wanted, int level) const {
  const Privilege* const privilege = At(level);
  if (privilege == nullptr) {
    LogInvalidLevel(__LINE__, level, priv_list.size());
    return false;
  }
  if (privilege->acl.empty()) {
    return (wanted & ~PermOfMode(privilege->unix_perm, user)) == 0;
  }
  ACLRule rule;
  rule.set(privilege->acl);
  const bool is_owner = rule.isGroupOwner() ? user.group_set.contains(privilege->unix_perm.gid)
                                            : privilege->unix_perm.uid == user.uid;
  Verdict verdict;
  for (const ACLRule::Entry& entry : rule.entries()) {
    if ((entry.inherit & ZENTSDK_ACL_INHERIT_ONLY) != 0) continue;
    if (Matches(entry, user, is_owner)) verdict.Add(entry);
  }
  if ((verdict.deny & wanted) != 0) return false;
  if (is_owner) verdict.allow |= ZENTSDK_MODE_OWNER;
  if (!rule.hasInheritedACL() || verdict.Decides(wanted)) return verdict.Grants(wanted);
  return CheckInheritedPermission(user, wanted, verdict, level, is_owner);
}

bool ACL::CheckInheritedPermission(const UserInfo& user, ZENT_ACL_PERM wanted, Verdict verdict,
                                   int level_from, bool is_owner) const {
  const Privilege* const object = At(level_from);
  if (object == nullptr) {
    LogInvalidLevel(__LINE__, level_from, priv_list.size());
    return true;
  }
  for (int level = level_from + 1; At(level) != nullptr && !verdict.Decides(wanted); ++level) {
    AddInherited(user, *At(level), object->is_dir, level == level_from + 1, is_owner, verdict);
  }
  return verdict.Grants(wanted);
}

void ACL::AddInherited(const UserInfo& user, const Privilege& ancestor, bool to_directory,
                       bool is_parent, bool is_owner, Verdict& verdict) const {
  if (ancestor.acl.empty()) {
    verdict.allow |= PermOfMode(ancestor.unix_perm, user);
    return;
  }
  ACLRule rule;
  rule.set(ancestor.acl);
  const unsigned kind = to_directory ? ZENTSDK_ACL_INHERIT_DIR : ZENTSDK_ACL_INHERIT_FILE;
  for (const ACLRule::Entry& entry : rule.entries()) {
    if ((entry.inherit & kind) == 0) continue;
    // A copy that the ancestor itself got from above has come down as far as it may.
    const bool is_right_above = is_parent && entry.level == 0;
    if ((entry.inherit & ZENTSDK_ACL_INHERIT_NO_PROPOGATE) != 0 && !is_right_above) continue;
    if (Matches(entry, user, is_owner)) verdict.Add(entry);
  }
}

std::string ACL::ToString() const {
  std::string text = "ACL " + root + ":";
  for (const Privilege& privilege : priv_list) {
    char mode[16];
    std::snprintf(mode, sizeof mode, "%x", privilege.unix_perm.unix_mode);
    text += " {Path: " + privilege.path + ", UID: " + std::to_string(privilege.unix_perm.uid) +
            ", GID: " + std::to_string(privilege.unix_perm.gid) + ", \"Unix Mode\":0x" + mode +
            ", Level: " + std::to_string(privilege.level) +
            ", Type: " + (privilege.is_dir ? "dir" : "file");
    ACLRule rule;
    rule.set(privilege.acl);
    text += ", " + rule.toString() + "}";
  }
  return text;
}

std::string UnixPermissionHelper::MakeHash(std::uint32_t uid, std::uint32_t gid,
                                           std::uint32_t mode) {
  return std::to_string(uid) + std::to_string(gid) + std::to_string(mode);
}

std::uint32_t UnixPermissionHelper::PermissionToUnixMode(ZENT_ACL_PERM) {
  return Unavailable(__LINE__, "PermissionToUnixMode");
}

ZENT_ACL_PERM UnixPermissionHelper::UnixModeToPermission(std::uint32_t) {
  return Unavailable(__LINE__, "UnixModeToPermission");
}

std::uint32_t UnixPermissionHelper::UnixModeToExecBit(std::uint32_t) {
  return Unavailable(__LINE__, "UnixModeToExecBit");
}

}  // namespace tolven::ACL_API

// Whether the user may see an object, by the lists of the object and of the folders above it.
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "acl/acl-api.h"
#include "client/core/callbacks/reload-local-acl-filtered-event-callback.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"

namespace tolven {

using ACL_API::ACL;

namespace {

constexpr std::uint32_t kUnknownFolderMode = 0x755;  // a hexadecimal digit for each class

// What is read back of parked local changes.
constexpr int kBelowPath = FileEventDB::FILTER_FLAG_INCLUDE_CHILD;
constexpr int kRemovalsBelowPath =
    FileEventDB::FILTER_FLAG_INCLUDE_CHILD | FileEventDB::FILTER_FLAG_REMOVED_ONLY;

// The folder of a path: "/" for the first level.
ustring ParentOf(const ustring& path) {
  const std::string_view text = path.view();
  const std::size_t slash = text.rfind('/');
  return slash == std::string_view::npos || slash == 0 ? ustring("/")
                                                       : ustring(text.substr(0, slash));
}

ACL::Privilege PrivilegeOfEvent(const Event& event) {
  ACL::Privilege privilege;
  privilege.acl = event.m_privilege.zent_acl.zent_acl.str();
  privilege.path = event.m_path.str();
  const Event::PrivilegeAttr::UnixMode& mode = event.m_privilege.unix_mode;
  privilege.unix_perm = {mode.uid, mode.gid, mode.mode};
  privilege.is_dir = event.isDir();
  return privilege;
}

ACL::Privilege PrivilegeOfRecord(const ustring& path, const DBFileInfo& record, int level) {
  ACL::Privilege privilege;
  privilege.acl = record.serverAclAttribute.str();
  privilege.path = path.str();
  privilege.unix_perm = {record.serverUnixUid, record.serverUnixGid, record.serverUnixMode};
  privilege.level = level;
  privilege.is_dir = record.IsDir();
  return privilege;
}

}  // namespace

int DownloadRemoteHandler::CheckPermission() {
  const EventContext& context = GetContext();
  GroupSet groups;
  if (GetGroupSet("group", groups) < 0) {
    HANDLER_ERROR("Failed to get group set");
    return ERR_SYS;
  }
  bool is_admin = false;
  if (GetisAdminGroupMember(is_admin) < 0) {
    HANDLER_ERROR("Failed to get \"is_admin\" from config table");
    return ERR_SYS;
  }
  if (is_admin) {
    HANDLER_DEBUG("user is local admin group member, pass permission check");
    return 0;
  }
  int privilege = ACL::PRIV_NA;
  if (HandleACLPrivilegeCheck(groups, privilege) < 0) {
    HANDLER_ERROR("Failed to check permission. path [%s]", context.GetPath());
    return ERR_SYS;
  }
  return privilege == ACL::PRIV_NA ? ParkForAccess() : ReloadACLFilteredEvents(privilege);
}

int DownloadRemoteHandler::ParkForAccess() {
  EventContext& context = GetContext();
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_ACL);
  if (context.GetEventDatabaseSafe().setServerFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("setFilteredEvent: failed to update server filtered database");
    return ERR_SYS;
  }
  HANDLER_INFO("Path [%s] has no permission to access", context.GetPath());
  return ERR_NO_ACCESS_PERM;
}

int DownloadRemoteHandler::ReloadACLFilteredEvents(int privilege) {
  const EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  HANDLER_DEBUG("Path [%s] has permission to access, download it", event.m_path);
  if (ReloadServerACLFilteredEvent() < 0) {
    HANDLER_ERROR("ACL change: Push re-download server event for path '%s' failed", event.m_path);
    return ERR_SYS;
  }
  const bool may_write = privilege == ACL::PRIV_RW;
  if (may_write || (event.isDir() && event.m_type == Event::EV_MODIFY)) {
    auto callback = std::make_unique<ReloadLocalACLFilteredEventCallback>();
    callback->SetReloadAttribute(may_write ? kBelowPath : kRemovalsBelowPath);
    callback->SetReloadPath(event.m_path);
    SetCallback(std::move(callback));
  }
  return 0;
}

// "count id id ...".
int DownloadRemoteHandler::GetGroupSet(const ustring& key, GroupSet& groups) {
  ustring value;
  if (GetContext().GetEventDatabaseSafe().getConfigStrByKey(key, value) < 0) return -1;
  if (value.empty()) return 0;
  std::istringstream text(value.str());
  std::uint32_t count = 0;
  if (!(text >> count)) return -1;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t id = 0;
    if (!(text >> id)) return -1;
    groups.insert(id);
  }
  return 0;
}

int DownloadRemoteHandler::GetisAdminGroupMember(bool& is_admin) {
  ustring value;
  if (GetContext().GetEventDatabaseSafe().getConfigStrByKey("is_admin", value) < 0) return -1;
  is_admin = std::strtol(value.c_str_utf8(), nullptr, 10) != 0;
  return 0;
}

int DownloadRemoteHandler::HandleACLPrivilegeCheck(const GroupSet& groups, int& privilege) {
  const EventContext& context = GetContext();
  FileEventDB& db = context.GetEventDatabaseSafe();
  HANDLER_DEBUG("current_event: '%s'", context.GetEvent().toString());
  ACL::UserInfo user{0, groups};
  if (db.getUid(user.uid) < 0) {
    HANDLER_ERROR("Failed to get uid");
    return -1;
  }
  DBFileInfo known;
  const int found = db.getServerEventByPath(context.GetPath(), known);
  if (found < 0) {
    HANDLER_ERROR("Failed to get base server entry. path [%s]", context.GetPath());
    return -1;
  }
  return found == 1 ? PrivilegeOfKnown(user, privilege) : PrivilegeOfNew(user, privilege);
}

int DownloadRemoteHandler::PrivilegeOfKnown(const ACL::UserInfo& user, int& privilege) {
  const EventContext& context = GetContext();
  ACL acl;
  if (PreparePropagateACL(context.GetPath(), 0, acl) < 0) {
    HANDLER_ERROR("Failed to query path [%s] acl hierachy", context.GetPath());
    return -1;
  }
  acl.UpdateLevelInfo(0, PrivilegeOfEvent(context.GetEvent()));
  privilege = ACL::PRIV_NA;
  if (acl.IsAccessible(user, 0)) {
    if (acl.IsWritable(user)) {
      privilege = ACL::PRIV_RW;
    } else if (acl.IsReadable(user)) {
      privilege = ACL::PRIV_RO;
    }
  }
  HANDLER_DEBUG("ACL: '%s'", acl.ToString());
  HANDLER_DEBUG("new perm: %d", privilege);
  return 0;
}

// What is new has no read-only outcome.
int DownloadRemoteHandler::PrivilegeOfNew(const ACL::UserInfo& user, int& privilege) {
  const EventContext& context = GetContext();
  const ustring parent = ParentOf(context.GetPath());
  ACL acl;
  if (parent != "/" && PreparePropagateACL(parent, 1, acl) < 0) {
    HANDLER_ERROR("Failed to query prefix [%s] acl hierachy", parent);
    return -1;
  }
  acl.AddPrivilege(PrivilegeOfEvent(context.GetEvent()));
  privilege = acl.IsAccessible(user, 0) ? ACL::PRIV_RW : ACL::PRIV_NA;
  HANDLER_DEBUG("ACL: '%s'", acl.ToString());
  HANDLER_DEBUG("new perm: %d", privilege);
  return 0;
}

int DownloadRemoteHandler::PreparePropagateACL(const ustring& path, int level, ACL& acl) {
  FileEventDB& db = GetContext().GetEventDatabaseSafe();
  ustring prefix = path.empty() ? ustring("/") : path;
  for (;; ++level) {
    DBFileInfo record;
    const int found =
        level == 0 ? db.getServerEventByPath(prefix, record) : db.getServerFolder(prefix, record);
    if (found < 0) {
      HANDLER_ERROR("Failed to get server info. path [%s]", prefix);
      return -1;
    }
    if (found == 0 && prefix == "/") {
      HANDLER_ERROR("No server record is found. path [%s]", prefix);
      return -1;
    }
    if (found == 0 || record.isExist == 0) {
      // A folder that was forgotten here meanwhile, or whose removal is parked, and which comes
      // back with what is below it.
      HANDLER_INFO("No server record is found. path [%s]", prefix);
      record = DBFileInfo();
      record.fileType = 1;
      record.serverUnixMode = kUnknownFolderMode;
    }
    acl.AddPrivilege(PrivilegeOfRecord(prefix, record, level));
    if (prefix == "/") return 0;
    prefix = ParentOf(prefix);
  }
}

int DownloadRemoteHandler::ReloadServerACLFilteredEvent() {
  const EventContext& context = GetContext();
  const std::uint64_t session = context.GetEntry().sess_id;
  const ustring& path = context.GetPath();
  HANDLER_DEBUG(
      "ReloadServerACLFilteredEvent: reload server filtered events from database for session "
      "'%llu'. path [%s]",
      session, path);
  std::vector<FilteredEvent> parked;
  if (context.GetEventDatabaseSafe().getServerFilteredEvent(FilteredEvent::FILTERED_ACL, path,
                                                            kBelowPath, parked) < 0) {
    HANDLER_ERROR("failed to dump server event for session '%llu'. path [%s]... ", session, path);
    return -1;
  }
  for (const FilteredEvent& filtered : parked) {
    HANDLER_DEBUG("path = '%s', sync_id = %llu", filtered.path, filtered.sync_id);
    EventManager::getInstance().PushServerEvent(FileEventDB::ToEvent(filtered, session));
  }
  return 0;
}

}  // namespace tolven

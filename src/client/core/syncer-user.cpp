// What the syncer keeps of the user: whether an administrator, the number, the groups. New groups
// change what may be seen and written, so everything known is looked at again.
#include <string>
#include <vector>

#include "client/core/event-generator.h"
#include "client/core/root-proof.h"
#include "client/core/syncer-log.h"
#include "client/core/syncer.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/file-op.h"

namespace tolven {

namespace {

constexpr std::size_t kPage = 1000;

// The count, then each id, with one blank between.
std::string GroupText(const PObject& group) {
  std::string text = std::to_string(group.asArray().size());
  for (const PObject& id : group.asArray()) text += " " + std::to_string(id.asUInt64());
  return text;
}

// A change of the server that brings nothing new but its privileges.
Event MakeServerEvent(const DBFileInfo& row, std::uint64_t sess_id) {
  Event event;
  event.m_type = row.isExist != 0 ? Event::EV_MODIFY : Event::EV_REMOVE;
  event.m_sess_id = sess_id;
  event.m_path = row.path;
  if (row.IsDir()) event.setDir();
  event.m_sync_id = row.syncID;
  event.m_max_id = row.maxSyncID;
  event.m_data_size = row.fileSize;
  event.m_data_hash = row.fileCheckSum;
  event.m_time = row.fileModTime;
  event.m_mac_attr_hash = row.macHash;
  event.m_exec_bit = row.serverExecBit;
  Event::PrivilegeAttr& privilege = event.m_privilege;
  privilege.unix_mode = {row.serverUnixUid, row.serverUnixGid, row.serverUnixMode};
  privilege.zent_acl = {row.serverAclAttribute, row.serverAclHash};
  privilege.share_priv = {static_cast<std::int32_t>(row.serverSharePrivDisabled),
                          row.serverSharePrivDenyList, row.serverSharePrivRoList,
                          row.serverSharePrivRwList, row.serverSharePrivHash};
  return event;
}

// While the whole folder is away, nothing in it counts as gone.
bool IsGone(const Registry::Entry& entry, const ustring& path) {
  FILE_INFO info;
  return FSStat(JoinPath(entry.local_path, path.view()), info, true) == 0 && !info.isExist &&
         (entry.root_proof == nullptr || entry.root_proof->LooksProved());
}

}  // namespace

int Syncer::ReloadGroupSet(const PObject& response) {
  StoreUser(response);
  FileEventDB& db = *context.entry.event_db;
  ustring pending;
  db.getConfigStrByKey("acl_rescan", pending);
  bool rescan = !pending.empty();
  if (response["group"].isArray()) {
    ustring local_group;
    if (db.getConfigStrByKey("group", local_group) != 0) return ErrorCodes::ERR_SYS;
    const ustring server_group(GroupText(response["group"]));
    SYNCER_DEBUG("local group = '%s', server_group = '%s'\n", local_group, server_group);
    if (local_group != server_group) {
      // First the reminder: a crash must not leave the new groups without the rescan.
      if (db.addConfigStr("acl_rescan", "1") != 0 ||
          db.updateConfigStrByKey("group", server_group) != 0) {
        return ErrorCodes::ERR_SYS;
      }
      SYNCER_INFO("Group change from '%s' to '%s'\n", local_group, server_group);
      rescan = true;
    }
  }
  return rescan ? ReloadForGroups() : 0;
}

void Syncer::StoreUser(const PObject& response) {
  FileEventDB& db = *context.entry.event_db;
  if (response["is_admin"].isInteger()) {
    const ustring is_admin(response["is_admin"].asUInt32() != 0 ? "1" : "0");
    SYNCER_DEBUG("User is admin '%d'\n", response["is_admin"].asUInt32());
    ustring stored;
    if ((db.getConfigStrByKey("is_admin", stored) != 0 || stored != is_admin) &&
        db.updateConfigStrByKey("is_admin", is_admin) != 0) {
      SYNCER_ERROR("Failed to update is_admin attribute\n");
    }
  }
  if (response["uid"].isInteger()) {
    const std::uint32_t uid = response["uid"].asUInt32();
    std::uint32_t stored = 0;
    if (db.getUid(stored) != 0 || stored != uid) db.updateUid(uid);
  }
}

int Syncer::ReloadForGroups() {
  acl_rescan_ = true;
  if (RescanACLEventDB() != 0) return ErrorCodes::ERR_SYS;
  ReloadLocalFilteredEvent("", FilteredEvent::FILTERED_ACL);
  return 0;
}

// In pages: nothing is queued while the database is held, and a million rows never sit in memory.
int Syncer::RescanACLEventDB() {
  SYNCER_INFO("RescanEventDB...\n");
  ustring after;
  for (;;) {
    std::vector<DBFileInfo> rows;
    if (context.entry.event_db->getServerEventPage("/", after, kPage, rows) != 0) return -1;
    for (const DBFileInfo& row : rows) {
      // What was removed here is not to come back for its rights.
      if (EventManager::getInstance().IsLocalRemovalPending(context.entry.sess_id, row.path) ||
          (row.isExist != 0 && IsGone(context.entry, row.path))) {
        continue;
      }
      EventManager::getInstance().PushServerEvent(MakeServerEvent(row, context.entry.sess_id));
    }
    if (rows.size() < kPage) return 0;
    after = rows.back().path;
  }
}

void Syncer::ReloadLocalFilteredEvent(const ustring& path, FilteredEvent::FilterType type) {
  SYNCER_INFO("reload local filtered events (type = %d) from database for path '%s'\n",
              static_cast<int>(type), path);
  std::vector<FilteredEvent> events;
  if (context.entry.event_db->getLocalFilteredEvent(
          type, path, FileEventDB::FILTER_FLAG_INCLUDE_CHILD, events) != 0) {
    SYNCER_WARNING("failed to dump acl local filered records for prefix '%s' \n", path);
    return;
  }
  for (const FilteredEvent& event : events) PushEvent(context.entry, event);
}

}  // namespace tolven

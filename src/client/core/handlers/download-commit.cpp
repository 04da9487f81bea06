// What the database remembers of a download. Always after the disk.
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/recent-commits.h"
#include "client/file-event-db.h"
#include "platform/clock.h"

namespace tolven {

namespace {

void TakeServerAttributes(const Event& event, DBFileInfo& record) {
  const Event::PrivilegeAttr& privilege = event.m_privilege;
  record.serverExecBit = event.m_exec_bit;
  record.serverUnixUid = privilege.unix_mode.uid;
  record.serverUnixGid = privilege.unix_mode.gid;
  record.serverUnixMode = privilege.unix_mode.mode;
  record.serverAclAttribute = privilege.zent_acl.zent_acl;
  record.serverAclHash = privilege.zent_acl.zent_acl_hash;
  record.serverSharePrivDisabled =
      static_cast<std::uint32_t>(privilege.share_priv.share_priv_disabled);
  record.serverSharePrivDenyList = privilege.share_priv.share_priv_deny_list;
  record.serverSharePrivRoList = privilege.share_priv.share_priv_ro_list;
  record.serverSharePrivRwList = privilege.share_priv.share_priv_rw_list;
  record.serverSharePrivHash = privilege.share_priv.share_priv_hash;
}

void TakeVersion(const Event& event, DBFileInfo& record) {
  record.isExist = 1;
  record.syncID = event.m_sync_id;
  record.maxSyncID = event.m_max_id;
  record.fileType = event.isDir() ? 1 : 0;
  record.path = event.m_path.empty() ? ustring("/") : event.m_path;
  record.fileSize = event.m_data_size;
  record.fileCheckSum = event.m_data_hash;
  record.macHash = event.m_mac_attr_hash;
}

void TakeServerAttributes(const PObject& response, DBFileInfo& record) {
  HandlerHelper::TakeServerAttributes(response, record);
  if (const PObject& priv = response["share_priv"]; priv.isMap()) {
    record.serverSharePrivHash = priv["hash"].asString();
  }
}

void TakeContent(const PObject& response, DBFileInfo& record) {
  if (record.IsDir()) {
    record.fileSize = 0;
    record.fileCheckSum.clear();
  } else if (const PObject& file = response["file"]; file.isMap()) {
    record.fileSize = file["size"].asUInt64();
    record.fileCheckSum = file["hash"].asString();
  }
  const PObject& mtime = response["mtime"];
  if (mtime.isMap() && (mtime["refer_local"].asBool() || !mtime["refer"].asBool())) {
    record.fileModTime = mtime["mtime"].asUInt32();
  }
}

}  // namespace

int DownloadRemoteHandler::CommitDatabase(const DBFileInfo& record) {
  if (GetContext().UpdateDatabaseInfo(record) == 0) return 0;
  HANDLER_ERROR("CommitDatabase: Failed to update local event database.");
  return -1;
}

int DownloadRemoteHandler::CommitDatabaseDownload(const PObject& response, const DBFileInfo& dbinfo,
                                                  const ustring& sign_file) {
  const EventContext& context = GetContext();
  DBFileInfo record = dbinfo;
  if (context.GetEventDatabaseSafe().fillServerColumns(context.GetPath(), record) < 0) return -1;
  record.isExist = 1;
  record.syncID = response["sync_id"].asUInt64();
  record.maxSyncID = response["max_id"].asUInt64();
  record.fileType = response["is_dir"].asBool() ? 1 : 0;
  record.path = context.GetPath();
  TakeContent(response, record);
  record.localFileModTime = record.fileModTime;
  if (response.hasMember("mac_attribute")) {
    record.macHash = response["mac_attribute"]["hash"].asString();
  }
  TakeServerAttributes(response, record);
  if (!sign_file.empty()) record.signaturePath = sign_file;
  HANDLER_DEBUG("Worker (%d): Commit Database: %s", GetWorkerId(), record.ToPObject().toString());
  // What was in a folder went with it.
  if (record.IsFile() && dbinfo.IsDir() && GetContext().RemoveLocalDatabaseInfo() < 0) {
    return -1;
  }
  if (record.IsDir()) return CommitDatabase(record);
  // An edit that a changed time has covered up is found by content.
  const auto now = static_cast<std::uint32_t>(platform::clock().WallSeconds());
  const std::uint32_t time = replaces_time_ ? now : record.localFileModTime;
  FileEventDB& db = context.GetEventDatabaseSafe();
  RecentCommits& commits = RecentCommits::getInstance();
  const std::uint64_t session = context.GetEntry().sess_id;
  if (commits.Committing(db, session, record.path, time) != 0 || CommitDatabase(record) != 0) {
    return -1;
  }
  commits.Committed(db, session, record.path, time);
  return 0;
}

int DownloadRemoteHandler::CommitDatabaseForFakeEvent(const Event& server_event,
                                                      const DBFileInfo& db_info) {
  DBFileInfo record = db_info;
  TakeVersion(server_event, record);
  TakeServerAttributes(server_event, record);
  return CommitDatabase(record);
}

int DownloadRemoteHandler::CommitRootFolder() {
  const Event& event = GetContext().GetEvent();
  DBFileInfo record;
  TakeVersion(event, record);
  TakeServerAttributes(event, record);
  record.fileModTime = event.m_time;
  record.execBit = record.serverExecBit;
  record.unixUid = record.serverUnixUid;
  record.unixGid = record.serverUnixGid;
  record.unixMode = record.serverUnixMode;
  record.aclAttribute = record.serverAclAttribute;
  record.aclHash = record.serverAclHash;
  record.sharePrivDisabled = record.serverSharePrivDisabled;
  record.sharePrivDenyList = record.serverSharePrivDenyList;
  record.sharePrivRoList = record.serverSharePrivRoList;
  record.sharePrivRwList = record.serverSharePrivRwList;
  record.sharePrivHash = record.serverSharePrivHash;
  if (GetContext().UpdateDatabaseInfo(record) == 0) return 0;
  HANDLER_ERROR("CommitDatabase: Failed to update local event database. Error code = %d", -1);
  return -1;
}

}  // namespace tolven

// What a download can take from the event and from this side, so that nothing is asked of the
// server that is known already.
#include <chrono>
#include <thread>

#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {

namespace {

constexpr int kSourceTries = 100;
constexpr std::chrono::milliseconds kSourcePause(20);

}  // namespace

void DownloadRemoteHandler::PrepareDownloadResponseFromEvent(const File& local_file,
                                                             const DBFileInfo& db_info,
                                                             PObject& response) {
  const Event& event = GetContext().GetEvent();
  response["path"] = event.m_path;
  response["is_dir"] = event.isDir();
  response["sync_id"] = event.m_sync_id;
  response["max_id"] = event.m_max_id;
  if (!event.isDir() && CanMergeFilePart(local_file)) {
    PObject& file = response["file"];
    file["refer_local"] = true;
    file["size"] = event.m_data_size;
    file["hash"] = event.m_data_hash;
  }
  PrepareMtimePart(local_file, db_info, response);
  PrepareAttributesFromEvent(response);
}

// Whether the local file is what the event tells already.
bool DownloadRemoteHandler::CanMergeFilePart(const File& local_file) {
  const Event& event = GetContext().GetEvent();
  if (!local_file.IsFile() || local_file.GetSize() != event.m_data_size) return false;
  ustring hash;
  return FileHelper::CalculateMd4FromFile(local_file.GetPath(), hash, GetAbortFlag()) == 0 &&
         hash == event.m_data_hash;
}

void DownloadRemoteHandler::PrepareMtimePart(const File& local_file, const DBFileInfo& db_info,
                                             PObject& response) const {
  const Event& event = GetContext().GetEvent();
  const std::uint32_t time = GetContext().GetEntry().isMSDOS ? event.m_time & ~1U : event.m_time;
  PObject& mtime = response["mtime"];
  if (local_file.Exists() && local_file.GetLastModifiedTime() == time) {
    mtime["refer_local"] = true;
    mtime["mtime"] = event.m_time;
  } else if (db_info.syncID != 0 && db_info.fileModTime == event.m_time) {
    mtime["refer"] = true;
  } else {
    mtime["refer"] = false;
    mtime["mtime"] = event.m_time;
  }
}

void DownloadRemoteHandler::PrepareAttributesFromEvent(PObject& response) const {
  const Event& event = GetContext().GetEvent();
  if (CanMergeExecBit()) {
    response["exec_bit"]["refer_local"] = true;
    response["exec_bit"]["exec_bit"] = event.m_exec_bit == 1;
  }
  if (CanMergeUnixPermission()) {
    const Event::PrivilegeAttr::UnixMode& mode = event.m_privilege.unix_mode;
    PObject& unix_perm = response["unix_perm"];
    unix_perm["refer_local"] = true;
    unix_perm["uid"] = mode.uid;
    unix_perm["gid"] = mode.gid;
    unix_perm["mode"] = mode.mode;
  }
  if (CanMergeZentACL()) {
    PObject& acl = response["zentrova_acl"];
    acl["refer_local"] = true;
    acl["acl"] = event.m_privilege.zent_acl.zent_acl;
    acl["hash"] = event.m_privilege.zent_acl.zent_acl_hash;
  }
  if (CanMergeSharePrivilege()) {
    const Event::PrivilegeAttr::SharePrivilege& priv = event.m_privilege.share_priv;
    PObject& share_priv = response["share_priv"];
    share_priv["refer_local"] = true;
    share_priv["disabled"] = priv.share_priv_disabled;
    share_priv["deny_list"] = priv.share_priv_deny_list;
    share_priv["ro_list"] = priv.share_priv_ro_list;
    share_priv["rw_list"] = priv.share_priv_rw_list;
    share_priv["hash"] = priv.share_priv_hash;
  }
}

int DownloadRemoteHandler::PrepareDownloadResponseFromLocal(PObject& response) {
  if (GetContext().GetEvent().isDir() || response.hasMember("file")) return 0;
  return PrepareFilePartFromLocal(response);
}

// Empty when the bin has no file of this content.
ustring DownloadRemoteHandler::FindInRecycleBin() {
  const EventContext& context = GetContext();
  ustring path;
  if (context.GetEventDatabaseSafe().getFilePathByHashFromRecycle(context.GetEvent().m_data_hash,
                                                                  path) != 1) {
    return ustring();
  }
  ustring source = JoinPath(context.GetRecycleBinDir(), path.view());
  if (!File(source, true).IsFile()) return ustring();
  HANDLER_DEBUG("Copy file from recycle bin '%s'.", source);
  return source;
}

// A file of this content, in the recycle bin or elsewhere in the folder; empty when there is none.
// `is_missing` tells that one is on record and not there.
ustring DownloadRemoteHandler::FindLocalSource(bool& is_missing) {
  const EventContext& context = GetContext();
  const ustring& hash = context.GetEvent().m_data_hash;
  is_missing = false;
  if (hash.empty()) return ustring();
  ustring source = FindInRecycleBin(), path;
  if (!source.empty()) return source;
  // A record that is not found here may have gone into the bin since it was looked for there.
  if (context.GetEventDatabaseSafe().getFilePathByHash(hash, path) != 1) return FindInRecycleBin();
  source = JoinPath(context.GetLocalWatch(), path.view());
  is_missing = !File(source, true).IsFile();
  if (is_missing) return ustring();
  HANDLER_DEBUG("Copy file from syncfolder '%s'.", source);
  return source;
}

// A removal moves an object into the bin and its records after it: what another worker is just
// moving can be had in a moment.
ustring DownloadRemoteHandler::WaitForLocalSource() {
  bool is_missing = false;
  ustring source = FindLocalSource(is_missing);
  for (int i = 0; i < kSourceTries && is_missing && GetAbortFlag()->load() == 0; ++i) {
    std::this_thread::sleep_for(kSourcePause);
    source = FindLocalSource(is_missing);
  }
  return source;
}

int DownloadRemoteHandler::PrepareFilePartFromLocal(PObject& response) {
  ustring source = WaitForLocalSource();
  if (source.empty()) return 0;
  const int code = CopyLocalSource(source, response);
  if (code >= 0 || GetAbortFlag()->load() != 0 || File(source, true).Exists()) return code;
  // It was moved just before it was opened.
  source = WaitForLocalSource();
  return source.empty() ? 0 : CopyLocalSource(source, response);
}

int DownloadRemoteHandler::CopyLocalSource(const ustring& source, PObject& response) {
  const EventContext& context = GetContext();
  const Event& event = context.GetEvent();
  TempFile copy(context.GetWorkingDirectory());
  if (copy.create() != 0) {
    HANDLER_ERROR("PreparFileFromLocal: Failed to create temp file.");
    return -1;
  }
  ustring hash;
  SimpleFileReader reader;
  reader.setAbortFlag(GetAbortFlag());
  reader.setFile(source);
  reader.setCopyFile(copy.getPath());
  reader.setHashString(hash);
  const int code = reader.readFile();
  if (code < 0) {
    HANDLER_ERROR("PreparFileFromLocal: Failed to prepare file [%d].", code);
    return code;
  }
  if (hash != event.m_data_hash || reader.getProcessedSize() != event.m_data_size) return 0;
  copy.convert_permanent();
  PObject& file = response["file"];
  file["refer"] = false;
  file["is_delta"] = false;
  file["size"] = event.m_data_size;
  file["hash"] = event.m_data_hash;
  PObject::binary_type data;
  data.length = event.m_data_size;
  data.path = copy.getPath();
  file["data"] = data;
  return 0;
}

int DownloadRemoteHandler::GetUnsatisfiedAttributes(const PObject& from_local,
                                                    PObject& require) const {
  int count = 0;
  if (!GetContext().GetEvent().isDir() && !from_local.hasMember("file")) {
    require["file"]["offset"] = 0;
    ++count;
  }
  if (!from_local.hasMember("mtime")) {
    require["mtime"]["offset"] = 0;
    ++count;
  }
  return count;
}

}  // namespace tolven

// What comes of an upload: the new version, or a refusal.
#include <string_view>

#include "client/core/conflict-rename.h"
#include "client/core/event-generator.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/handlers/upload-local-handler.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/recent-commits.h"
#include "client/core/rescan-requests.h"
#include "client/file-event-db.h"
#include "lib/proto-constants.h"
#include "platform/clock.h"

namespace tolven {

namespace {

const char* Source() { return "upload-local-handler"; }

const PObject* Sent(const PObject& request, const char* key) {
  const PObject& part = request[key];
  return part.isMap() && !part["refer"].asBool() ? &part : nullptr;
}

// What the request told of this side.
void TakeSentAttributes(const PObject& request, DBFileInfo& record) {
  if (const PObject* part = Sent(request, "mtime"))
    record.fileModTime = (*part)["mtime"].asUInt32();
  if (const PObject* part = Sent(request, "mac_attribute")) {
    record.macHash = (*part)["hash"].asString();
  }
  if (const PObject* part = Sent(request, "exec_bit")) {
    record.execBit = (*part)["exec_bit"].asBool() ? 1 : 0;
  }
  if (const PObject* part = Sent(request, "unix_perm")) {
    record.unixUid = (*part)["uid"].asUInt32();
    record.unixGid = (*part)["gid"].asUInt32();
    record.unixMode = (*part)["mode"].asUInt32();
    record.unixHash = (*part)["local_hash"].asString();
  }
  if (const PObject* part = Sent(request, "zentrova_acl")) {
    record.aclAttribute = (*part)["acl"].asString();
    record.aclHash = (*part)["local_hash"].asString();
  }
  if (const PObject* part = Sent(request, "share_priv")) {
    record.sharePrivDisabled = (*part)["disabled"].asUInt32();
    record.sharePrivDenyList = (*part)["deny_list"].asString();
    record.sharePrivRoList = (*part)["ro_list"].asString();
    record.sharePrivRwList = (*part)["rw_list"].asString();
    record.sharePrivHash = (*part)["local_hash"].asString();
  }
}

// What the answer tells of the server's side.
void TakeAnswered(const PObject& response, DBFileInfo& record) {
  record.isExist = 1;
  record.syncID = response["sync_id"].asUInt64();
  record.maxSyncID = response["max_id"].asUInt64();
  record.fileType = response["is_dir"].asBool() ? 1 : 0;
  HandlerHelper::TakeServerAttributes(response, record);
  // Under a key of its own, unlike the others.
  if (const PObject& priv = response["share_privilege"]; priv.isMap()) {
    record.serverSharePrivHash = priv["hash"].asString();
  }
}

void TakeContent(const PObject& request, const PObject& response, DBFileInfo& record) {
  if (record.IsDir()) {
    record.fileSize = 0;
    record.fileCheckSum.clear();
    return;
  }
  const PObject& file = request["file"];
  const bool is_new = Sent(request, "file") != nullptr || file["file_id"].asUInt64() != 0 ||
                      response["file"]["file_id"].asUInt64() != 0;
  if (!is_new) return;
  record.fileSize = file["size"].asUInt64();
  record.fileCheckSum = file["hash"].asString();
}

}  // namespace

int UploadLocalHandler::CommitDatabase(const PObject& request, const PObject& response,
                                       const DBFileInfo& db_info, const ustring& sign_file) {
  EventContext& context = GetContext();
  // No version is recorded that the server does not hold.
  if (response["sync_id"].asUInt64() == 0 ||
      response["is_dir"].asBool() != request["is_dir"].asBool()) {
    HANDLER_ERROR("the answer to the upload of '%s' tells no version", context.GetPath());
    return ERR_SERVER;
  }
  DBFileInfo record = db_info;
  if (context.GetEventDatabaseSafe().fillServerColumns(context.GetPath(), record) < 0) return -1;
  TakeAnswered(response, record);
  record.path = context.GetPath();
  TakeContent(request, response, record);
  TakeSentAttributes(request, record);
  if (!sign_file.empty()) record.signaturePath = sign_file;
  const bool is_unchanged = TakeLocalTime(record);
  if (!is_unchanged) record.signaturePath.clear();
  // What was in a folder went with it, here and on the server.
  if (record.IsFile() && db_info.IsDir() && context.RemoveLocalDatabaseInfo() < 0) {
    return -1;
  }
  HANDLER_DEBUG("Commit Database: %s", record.ToPObject().toString());
  const int code = WriteRecord(record, is_unchanged);
  if (code == 0) return 0;
  HANDLER_ERROR("CommitDatabase: Failed to update local event database. Error code = %d", code);
  return -1;
}

int UploadLocalHandler::WriteRecord(const DBFileInfo& record, bool is_unchanged) {
  EventContext& context = GetContext();
  if (record.IsDir()) return context.UpdateDatabaseInfo(record);
  FileEventDB& db = context.GetEventDatabaseSafe();
  RecentCommits& commits = RecentCommits::getInstance();
  const std::uint64_t session = context.GetEntry().sess_id;
  const auto now = static_cast<std::uint32_t>(platform::clock().WallSeconds());
  const std::uint32_t time = is_unchanged ? record.localFileModTime : now;
  if (commits.Committing(db, session, record.path, time) != 0) return -1;
  const int code = context.UpdateDatabaseInfo(record);
  if (code == 0) commits.Committed(db, session, record.path, time);
  return code;
}

// The file may have changed since it was read; then its record tells of what was read, so that the
// next event sends it again.
bool UploadLocalHandler::TakeLocalTime(DBFileInfo& record) const {
  const File now(GetContext().GetFullPath(), true);
  const bool is_unchanged = record.IsDir() || IsUntouched(reading_, now.GetInfo());
  record.localFileModTime = AdjustMtime(is_unchanged ? now.GetLastModifiedTime() : reading_.mtime);
  return is_unchanged;
}

int UploadLocalHandler::HandleUploadResponseError(std::uint32_t error_code) {
  EventContext& context = GetContext();
  const ustring& path = context.GetPath();
  switch (error_code) {
    case SPROTO_ERR_UPLOAD_NOBASE:
      HANDLER_NOTE("File is removed during transfer, try it again.");
      (void)context.RemoveLocalDatabaseInfo();
      return ERR_INT;
    case SPROTO_ERR_UPLOAD_BASE_CHANGED:
      HANDLER_NOTE("'%s' is changed on the server side, wait.", path);
      return 0;
    case SPROTO_ERR_CONFLICT_MAC_ATTR:
      HANDLER_NOTE("Wait until '%s' is synced with server.", path);
      return 0;
    case SPROTO_ERR_UPLOAD_NO_ACCESS:
    case SPROTO_ERR_UPLOAD_NO_PERMISSION:
    case SPROTO_ERR_UPLOAD_FILTERED:
      return RefuseForAccess(error_code);
    default:
      break;
  }
  if (ProtoErrorClass(error_code) == SPROTO_ERR_CONFLICT) {
    if (const int above = PushFolderAbove(); above != 0) return above < 0 ? ERR_SYS : ERR_INT;
    HANDLER_NOTE("Pathname '%s' conflict.", path);
    const int renamed = ConflictRename(context.GetFullPath(),
                                       context.GetConnectionInfo().computer_name, "Conflict");
    return renamed < 0 ? static_cast<int>(ERR_SYS) : static_cast<int>(ERR_INT);
  }
  if (ProtoErrorClass(error_code) == SPROTO_ERR_RESUME) return ERR_INT;
  const int result = HandlerHelper::ConvertResponseErrorToHandlerError(error_code);
  HANDLER_ERROR("Bad response: %s", ErrorText(result));
  RescanLater(error_code, result);
  return result;
}

// Where a folder on the way took the place of a file that the server still has, no name is taken:
// the folder has to go first: 1 when it does, 0 or -1.
int UploadLocalHandler::PushFolderAbove() {
  EventContext& context = GetContext();
  std::string_view path = context.GetPath().view();
  for (std::size_t slash = path.rfind('/'); slash != 0 && slash != std::string_view::npos;
       slash = path.rfind('/')) {
    path = path.substr(0, slash);
    DBFileInfo record;
    const int found = context.GetEventDatabaseSafe().getEventInfo(ustring(path), record);
    if (found < 0) return -1;
    if (found == 0 || record.isExist == 0) continue;
    if (record.IsDir()) return 0;
    Registry::Entry entry = context.GetEntry();
    (void)PushUploadEvent(entry, ustring(path), true);
    return 1;
  }
  return 0;
}

int UploadLocalHandler::RefuseForAccess(std::uint32_t error_code) {
  EventContext& context = GetContext();
  HANDLER_WARNING("UploadFile: path [%s] has no access permission", context.GetPath());
  const FilteredEvent filtered =
      FileEventDB::ToFilteredEvent(context.GetEvent(), FilteredEvent::FILTERED_ACL);
  if (context.GetEventDatabaseSafe().setLocalFilteredEvent(filtered) < 0) {
    HANDLER_ERROR("setLocalAclFilteredEvent failed for path '%s'", context.GetPath());
    return ERR_SYS;
  }
  // It is kept until the rights change; asking on would change nothing.
  if (error_code == SPROTO_ERR_UPLOAD_FILTERED) SetErrorAction(ACTION_DONE);
  return HandlerHelper::ConvertResponseErrorToHandlerError(error_code);
}

// A change that ended without an error of its own is looked for again.
void UploadLocalHandler::RescanLater(std::uint32_t error_code, int result) const {
  const std::uint32_t error_class = ProtoErrorClass(error_code);
  const bool is_lost =
      error_class == 0 || error_class == SPROTO_ERR_SYSTEM || error_class == SPROTO_ERR_INTERNAL;
  if (result == 0 && is_lost) RescanRequests::getInstance().Add(GetContext().GetEntry().sess_id);
}

}  // namespace tolven

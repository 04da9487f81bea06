// What an upload tells the server, and what of the content has to go.
#include "client/core/handlers/handler-log.h"
#include "client/core/handlers/upload-local-handler.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/recent-commits.h"
#include "client/file-event-db.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {

namespace {

const char* Source() { return "upload-local-handler"; }

constexpr std::uint32_t kBlockSize = 2048;
constexpr std::uint32_t kStrongSize = 8;

// The content that the server has: its size and hash, and no data.
void ReferToContent(std::uint64_t size, const ustring& hash, PObject& request) {
  PObject& file = request["file"];
  file["size"] = size;
  file["hash"] = hash;
  file["refer"] = true;
}

bool IsAbsentOrReferred(const PObject& request, const char* key) {
  return !request.hasMember(key) || request[key]["refer"].asBool();
}

}  // namespace

int UploadLocalHandler::PrepareUploadRequest(bool resumable, const File& local_file,
                                             const DBFileInfo& db_info, PObject& request,
                                             TempFile& sign_temp) {
  const EventContext& context = GetContext();
  HandlerHelper::InitObjectRequest(request, resumable ? "resume_upload" : "upload", context,
                                   db_info);
  request["is_dir"] = local_file.IsDirectory();
  if (!local_file.IsDirectory()) {
    const int code = PrepareFileBlock(local_file, request, sign_temp);
    if (code < 0) {
      HANDLER_ERROR("Failed to prepare file block for '%s'. %s.", context.GetPath(),
                    ErrorText(code));
      return code;
    }
  }
  const int code = PrepareMtime(local_file, db_info, request);
  if (code < 0) {
    HANDLER_ERROR("Failed to PrepareMtime for '%s'.", context.GetPath());
    return code;
  }
  for (const auto prepare : {PrepareMacAttrFile, PrepareExecBit, PrepareUnixPermission, PrepareAcl,
                             PrepareSharePrivilege}) {
    if (const int prepared = prepare(request); prepared < 0) return prepared;
  }
  return 0;
}

int UploadLocalHandler::PrepareMtime(const File& local_file, const DBFileInfo& db_info,
                                     PObject& request) const {
  const std::uint32_t time = AdjustMtime(local_file.GetLastModifiedTime());
  PObject& mtime = request["mtime"];
  if (db_info.syncID != 0 && time == db_info.fileModTime) {
    HANDLER_DEBUG("PrepareMtime: same mtime as the base version.");
    mtime["refer"] = true;
  } else {
    mtime["refer"] = false;
    mtime["mtime"] = time;
  }
  return 0;
}

// Whether a delta can be made: there is a signature of the version that the server has.
bool UploadLocalHandler::HasBasis(const DBFileInfo& db_info) {
  return db_info.syncID != 0 && db_info.IsFile() && db_info.fileSize != 0 &&
         IsFileExist(db_info.signaturePath, true);
}

int UploadLocalHandler::PrepareFileBlock(const File& local_file, PObject& request,
                                         TempFile& sign_temp) {
  const EventContext& context = GetContext();
  const File local(context.GetFullPath(), true);
  const DBFileInfo& db_info = context.GetDatabaseInfo();
  reading_ = local.GetInfo();
  if (db_info.syncID != 0 && !FileHelper::LocallyModified(context, local, db_info)) {
    HANDLER_DEBUG("PrepareFileBlock: File '%s' is not modified. (weak check)", context.GetPath());
    ReferToContent(local.GetSize(), db_info.fileCheckSum, request);
    return 0;
  }
  if (sign_temp.create() != 0) {
    HANDLER_ERROR("PrepareFileBlock: Failed to create signature.");
    return ERR_SYS;
  }
  return ReadContent(local_file, db_info, request, sign_temp);
}

// One pass gives the hash, the new signature and the delta.
int UploadLocalHandler::ReadContent(const File& local_file, const DBFileInfo& db_info,
                                    PObject& request, TempFile& sign_temp) {
  const EventContext& context = GetContext();
  const ustring& path = context.GetFullPath();
  ustring hash;
  SimpleFileReader reader;
  reader.setAbortFlag(GetAbortFlag());
  reader.setFile(path);
  reader.setHashString(hash);
  reader.setSignature(sign_temp.getPath(), kBlockSize, kStrongSize);
  TempFile delta_temp(context.GetWorkingDirectory());
  const bool is_delta = HasBasis(db_info);
  if (!is_delta) {
    HANDLER_DEBUG("PrepareFileBlock: Cannot retrieve base event info for file '%s'", path);
  } else if (delta_temp.create() != 0) {
    HANDLER_ERROR("PrepareFileBlock: Failed to create temporary delta file, try it again");
    return ERR_SYS;
  } else {
    HANDLER_DEBUG("PrepareFileBlock: prepare delta file at '%s'", delta_temp.getPath());
    reader.setDelta(delta_temp.getPath(), db_info.signaturePath);
  }
  if (reader.readFile() < 0) {
    HANDLER_ERROR("PrepareFileBlock: Failed to read file for '%s', try it again", path);
    return ERR_INT;
  }
  if (db_info.syncID != 0 && db_info.IsFile() && hash == db_info.fileCheckSum) {
    HANDLER_DEBUG("PrepareFileBlock: File content of '%s' is not changed, do refer", path);
    ReferToContent(db_info.fileSize, hash, request);
    return 0;
  }
  const File now(path, true);
  if (!(now.GetInfo() == local_file.GetInfo()) || !IsUntouched(reading_, now.GetInfo())) {
    HANDLER_NOTE(
        "PrepareFileBlock: File '%s' is modified while preparing upload (file system), try it "
        "again",
        path);
    return ERR_INT;
  }
  request["file"]["size"] = local_file.GetSize();
  request["file"]["hash"] = hash;
  return NameData(local_file, is_delta ? &delta_temp : nullptr, request);
}

int UploadLocalHandler::NameData(const File& local_file, TempFile* delta_temp, PObject& request) {
  PObject::binary_type data;
  if (delta_temp != nullptr) {
    FILE_INFO info;
    const int code = FSStat(delta_temp->getPath(), info, false);
    if (code < 0 || !info.isExist) {
      HANDLER_ERROR("PrepareFileBlock: FSStat(%s) returns %d", delta_temp->getPath(), code);
      return ERR_SYS;
    }
    delta_temp->convert_permanent();
    data.path = delta_temp->getPath();
    data.length = info.size;
  } else {
    data.path = GetContext().GetFullPath();
    data.length = local_file.GetSize();
  }
  PObject& file = request["file"];
  file["refer"] = false;
  file["is_delta"] = delta_temp != nullptr;
  file["data"] = data;
  return 0;
}

int UploadLocalHandler::PrepareMacAttrFile(PObject&) { return 0; }
int UploadLocalHandler::PrepareExecBit(PObject&) { return 0; }
int UploadLocalHandler::PrepareUnixPermission(PObject&) { return 0; }
int UploadLocalHandler::PrepareAcl(PObject&) { return 0; }
int UploadLocalHandler::PrepareSharePrivilege(PObject&) { return 0; }

// Whether the request would change nothing on the server.
bool UploadLocalHandler::IsFakeUploadRequest(const DBFileInfo& db_info, const PObject& request) {
  if (db_info.syncID == 0) return false;
  const bool is_dir = request["is_dir"].asBool();
  if (is_dir != db_info.IsDir()) {
    HANDLER_DEBUG("local file type does not match db record: '%s'", GetContext().GetPath());
    return false;
  }
  // A folder's time changes with everything in it and says nothing.
  if (!is_dir && (!IsAbsentOrReferred(request, "file") || !request["mtime"]["refer"].asBool())) {
    return false;
  }
  for (const char* key : {"mac_attribute", "zentrova_acl", "exec_bit", "unix_perm", "share_priv"}) {
    if (!IsAbsentOrReferred(request, key)) return false;
  }
  return true;
}

int UploadLocalHandler::CheckAndHandleOnlyMtimeChange(const File& local_file,
                                                      const DBFileInfo& db_info) {
  const EventContext& context = GetContext();
  const std::uint32_t time = AdjustMtime(local_file.GetLastModifiedTime());
  if (time == db_info.localFileModTime) return 0;
  HANDLER_DEBUG("UploadLocal: Dir attr of '%s' is not changed, adjust db local mtime.(%u:%u)",
                context.GetPath(), db_info.localFileModTime, time);
  FileEventDB& db = context.GetEventDatabaseSafe();
  if (local_file.IsDirectory()) return db.updateEventRecordLocalMtime(context.GetPath(), time);
  RecentCommits& commits = RecentCommits::getInstance();
  const std::uint64_t session = context.GetEntry().sess_id;
  if (commits.Committing(db, session, context.GetPath(), time) < 0 ||
      db.updateEventRecordLocalMtime(context.GetPath(), time) < 0) {
    return -1;
  }
  commits.Committed(db, session, context.GetPath(), time);
  return 0;
}

}  // namespace tolven

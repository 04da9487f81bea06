// The way of an upload: in one go, or in pieces that survive a broken connection.

#include <vector>

#include "client/core/handlers/handler-log.h"
#include "client/core/handlers/upload-local-handler.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/protocol-client.h"
#include "client/core/resume-trans-mgr.h"
#include "client/core/unanswered-uploads.h"
#include "client/file-event-db.h"
#include "lib/proto-common.h"

namespace tolven {

namespace {

const char* Source() { return "upload-local-handler"; }

// What is larger goes by the commands that can be resumed.
constexpr std::uint64_t kLargestSimpleUpload = 0x80000;

}  // namespace

int UploadLocalHandler::HandleUpload(const File& local_file, const DBFileInfo& db_info) {
  return IsEventResumable() ? ResumeUpload(local_file, db_info)
                            : StartNewUpload(local_file, db_info);
}

bool UploadLocalHandler::IsEventResumable() const {
  return ResumeTransMgr::GetInstance().HasToken(GetResumeToken());
}

ustring UploadLocalHandler::GetResumeToken() const {
  return ResumeTransMgr::GenToken(GetContext().GetEntry().sess_id, GetContext().GetPath(),
                                  "Upload");
}

int UploadLocalHandler::StartNewUpload(const File& local_file, const DBFileInfo& db_info) {
  const EventContext& context = GetContext();
  HANDLER_INFO("Start new upload for '%s'", context.GetPath());
  const int name = CheckAndHandleBaseNameConflict();
  if (name != kNameIsFine) return name;
  TempFile sign_temp(context.GetSignatureDirectory());
  TransferObjects objects(context.GetWorkingDirectory());
  const bool resumable = !local_file.IsDirectory() && local_file.GetSize() > kLargestSimpleUpload;
  const int prepared =
      PrepareUploadRequest(resumable, local_file, db_info, objects.request, sign_temp);
  if (prepared < 0) return prepared;
  if (IsFakeUploadRequest(db_info, objects.request)) {
    // What was parked of this path has nothing left to tell.
    return CheckAndHandleOnlyMtimeChange(local_file, db_info) < 0 || Unpark(db_info) < 0
               ? static_cast<int>(ERR_SYS)
               : 0;
  }
  const Registry::Entry& entry = context.GetEntry();
  if (entry.read_only && context.GetEvent().isLocalEvent()) {
    HANDLER_NOTE("File '%s' in registry entry (with session id %llu) is read-only, ignore event.",
                 context.GetPath(), entry.sess_id);
    return ERR_PERMISS_READ_ONLY;
  }
  // A broken transfer needs the signature; from here on it is removed by name.
  const ustring sign_file = sign_temp.getPath();
  sign_temp.convert_permanent();
  const int code = Upload(resumable, objects.request, objects.response, sign_file);
  return FinishUpload(code, objects, db_info, sign_file);
}

// The server's change that a rule kept back may be the one that is recorded.
int UploadLocalHandler::Unpark(const DBFileInfo& db_info) {
  FileEventDB& db = GetContext().GetEventDatabaseSafe();
  const ustring& path = GetContext().GetPath();
  if (db.rmLocalFilteredEvent(FilteredEvent::FILTERED_ALL, path, 0) < 0) return -1;
  std::vector<FilteredEvent> parked;
  constexpr auto kByRule = FilteredEvent::FILTERED_SELECTIVE_SYNC;
  if (db.getServerFilteredEvent(kByRule, path, 0, parked) < 0) return -1;
  const bool is_known = !parked.empty() && parked.front().is_exist &&
                        parked.front().IsDir() == db_info.IsDir() &&
                        parked.front().sync_id <= db_info.syncID;
  return is_known ? db.rmServerFilteredEvent(kByRule, path, 0) : 0;
}

int UploadLocalHandler::ResumeUpload(const File& local_file, const DBFileInfo& db_info) {
  const EventContext& context = GetContext();
  HANDLER_INFO("Continue resume upload for '%s'", context.GetPath());
  ResumeTransMgr::CachedJob job;
  if (ResumeTransMgr::GetInstance().Take(GetResumeToken(), job) < 0) return ERR_INT;
  if (!IsJobOfEvent(job, local_file, db_info)) {
    HANDLER_NOTE("Cached_request is differ from local file system for file '%s'.",
                 context.GetPath());
    job.Clear();
    return StartNewUpload(local_file, db_info);
  }
  reading_ = job.source;
  TransferObjects objects(context.GetWorkingDirectory());
  objects.request = job.cached_req;
  // It may have got a new one meanwhile.
  objects.request["session"] = context.GetConnectionInfo().session;
  const int code = ResumableUpload(objects.request, objects.response, job.upload_sign_file);
  return FinishUpload(code, objects, db_info, job.upload_sign_file);
}

// Whether a broken transfer was one of this very content onto this very basis.
bool UploadLocalHandler::IsJobOfEvent(const ResumeTransMgr::CachedJob& job, const File& local_file,
                                      const DBFileInfo& db_info) const {
  const PObject& request = job.cached_req;
  const std::uint32_t time = AdjustMtime(local_file.GetLastModifiedTime());
  const PObject& mtime = request["mtime"];
  return local_file.IsFile() && IsUntouched(job.source, local_file.GetInfo()) &&
         request["view_id"].asUInt64() == GetContext().GetViewId() &&
         request["path"].asString() == HandlerHelper::RemotePath(GetContext()) &&
         request["sync_id"].asUInt64() == db_info.syncID &&
         (mtime["refer"].asBool() ? time == db_info.fileModTime
                                  : time == mtime["mtime"].asUInt32()) &&
         request["file"]["size"].asUInt64() == local_file.GetSize();
}

int UploadLocalHandler::FinishUpload(int transferred, TransferObjects& objects,
                                     const DBFileInfo& db_info, const ustring& sign_file) {
  const PObject &request = objects.request, &response = objects.response;
  int result = transferred;
  NoteAnswer(transferred, objects);
  if (transferred < 0 && IsEventResumable()) {
    // What the cache has is for the next attempt, the signature, too.
    objects.Release();
    return result;
  }
  if (transferred >= 0) {
    if (response.hasMember("error")) {
      const std::uint32_t code = response["error"]["code"].asUInt32();
      // A delta that does not give what was announced was made against something else.
      if (code == SPROTO_ERR_UPLOAD && request["file"]["is_delta"].asBool()) {
        (void)FSRemove(db_info.signaturePath, false);
      }
      result = HandleUploadResponseError(code);
    } else {
      is_sent_ = true;
      result = CommitDatabase(request, response, db_info, sign_file);
      if (result < 0 && result != ERR_SERVER) {
        HANDLER_ERROR("Failed to update local event database.");
        result = ERR_SYS;
      }
    }
  }
  // The database took it into its store, or nobody needs it.
  if (!sign_file.empty()) (void)FSRemove(sign_file, false);
  return result;
}

// A refusal tells nothing of what was sent before: that may be just what it is refused for.
void UploadLocalHandler::NoteAnswer(int transferred, const TransferObjects& objects) const {
  const EventContext& context = GetContext();
  const std::uint64_t session = context.GetEntry().sess_id;
  const PObject &request = objects.request, &response = objects.response;
  const ustring hash = request["file"]["hash"].asString();
  if (transferred < 0 && !hash.empty()) {
    UnansweredUploads::getInstance().Add(session, context.GetPath(), hash);
  } else if (transferred >= 0 && !response.hasMember("error")) {
    UnansweredUploads::getInstance().Remove(session, context.GetPath());
  }
}

int UploadLocalHandler::Upload(bool resumable, PObject& request, PObject& response,
                               const ustring& sign_file) {
  return resumable ? ResumableUpload(request, response, sign_file)
                   : SimpleUpload(request, response);
}

int UploadLocalHandler::Exchange(std::uint8_t command, const PObject& request, PObject& response) {
  ProtocolClient client = GetContext().GetProtocolClient();
  client.SetAbortFlag(GetAbortFlag());
  return client.Request(command, request, response);
}

int UploadLocalHandler::SimpleUpload(const PObject& request, PObject& response) {
  return Exchange(SCMD_EVT_RECV_4, request, response);
}

int UploadLocalHandler::ResumableUpload(PObject& request, PObject& response,
                                        const ustring& sign_file) {
  int code = 0;
  if (request.hasMember("_resume_token")) {
    code = GetResumeUploadStatus(request, response);
  } else {
    code = GetResumeUploadToken(request, response);
    if (code > 0) code = DryRunResumeUpload(request, response);
    if (code <= 0) return code;
  }
  if (code > 0) code = ContinueResumeUpload(request, response);
  if (code >= 0) return 0;
  if (code == ERR_TIMEOUT || code == ERR_IO || IsPaused()) {
    SaveResumeInformation(request, response, sign_file);
  }
  return code;
}

int UploadLocalHandler::GetResumeUploadToken(PObject& request, PObject& response) {
  PObject ask, reply;
  HandlerHelper::InitTokenRequest(ask, "resume_get_token", GetContext());
  const int code = Exchange(SCMD_RESUME_TRANSFER, ask, reply);
  if (code < 0) return code;
  const PObject& answer = reply;
  if (answer.hasMember("error")) {
    response = answer;
    return 0;
  }
  request["_resume_token"] = answer["resume_token"].asString();
  HANDLER_DEBUG("Get upload resume token: '%s'.", answer["resume_token"].asString());
  return 1;
}

// Asks what would come of the upload before anything of the content goes.
int UploadLocalHandler::DryRunResumeUpload(PObject& request, PObject& response) {
  PObject dry = request, reply;
  InitRequest(dry, "upload");
  dry["dry_run"] = true;
  dry["file"].asMap().erase("data");
  if (request.hasMember("mac_attribute")) dry["mac_attribute"].asMap().erase("data");
  const int code = Exchange(SCMD_EVT_RECV_4, dry, reply);
  if (code < 0) return code;
  const PObject& answer = reply;
  if (answer.hasMember("error")) {
    HANDLER_WARNING(
        "DryRunResumeUpload: Fail to dry run upload, server response error. (reason: %s)",
        answer["error"]["reason"].asString());
    response = answer;
    return 0;
  }
  const std::uint64_t known = answer["file"]["file_id"].asUInt64();
  if (known == 0) return 1;
  const PObject& file = static_cast<const PObject&>(request)["file"];
  HANDLER_INFO("Server side has same file hash '%s' in file_id '%llu'.", file["hash"].asString(),
               known);
  // A delta that was made in vain goes with the request.
  const PObject::binary_type data = file["data"].asBinary();
  if (file["is_delta"].asBool() && !data.empty()) (void)FSRemove(data.path, false);
  PObject& block = request["file"];
  block.asMap().erase("data");
  block["refer"] = true;
  block["file_id"] = known;
  return 1;
}

int UploadLocalHandler::GetResumeUploadStatus(PObject& request, PObject& response) {
  PObject ask, reply;
  HandlerHelper::InitTokenRequest(ask, "resume_get_status", GetContext());
  ask["_resume_token"] = static_cast<const PObject&>(request)["_resume_token"].asString();
  const int code = Exchange(SCMD_RESUME_TRANSFER, ask, reply);
  if (code < 0) return code;
  const PObject& answer = reply;
  if (answer.hasMember("error")) {
    HANDLER_WARNING(
        "GetResumeUploadStatus: Fail to get resume upload status, server response error. (reason: "
        "%s)",
        answer["error"]["reason"].asString());
    response = answer;
    return 0;
  }
  PObject::binary_type data = static_cast<const PObject&>(request)["file"]["data"].asBinary();
  if (!answer["file"].hasMember("offset") || data.empty()) return 1;
  const std::uint64_t held = answer["file"]["offset"].asUInt64();
  const std::uint64_t end = data.offset + data.length;
  // A server that holds more than there is holds something else.
  if (held > end) return ERR_INT;
  HANDLER_INFO("GetResumeUploadStatus: adjust upload file offset to %llu", held);
  data.offset = held;
  data.length = end - held;
  request["file"]["data"] = data;
  return 1;
}

int UploadLocalHandler::ContinueResumeUpload(const PObject& request, PObject& response) {
  return Exchange(SCMD_RESUME_TRANSFER, request, response);
}

void UploadLocalHandler::SaveResumeInformation(const PObject& request, const PObject& response,
                                               const ustring& sign_file) {
  const ustring token = GetResumeToken();
  ResumeTransMgr::CachedJob job;
  ResumeTransMgr::InitialCachedJob(token, sign_file, GetContext().GetWorkingDirectory(), request,
                                   response, job);
  job.source = reading_;
  (void)ResumeTransMgr::GetInstance().Push(job);
  HANDLER_NOTE("Resumable upload error, save reuqest with local resume_token: %s.", token);
}

}  // namespace tolven

// Getting what is wanted of the server, in one go or where a broken transfer ended.
#include <memory>
#include <utility>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/handlers/download-answer.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/helpers/handler-helper.h"
#include "client/core/protocol-client.h"
#include "client/core/resume-trans-mgr.h"
#include "client/event-manager.h"
#include "lib/proto-common.h"

namespace tolven {

int DownloadRemoteHandler::HandleDownload(File& local_file, DBFileInfo& db_info) {
  const EventContext& context = GetContext();
  TransferObjects objects(context.GetWorkingDirectory());
  const int code = Transfer(local_file, db_info, objects);
  if (code == ERR_FILE_TOO_BIG) {
    HANDLER_WARNING("abort syncing of '%s', file too big", context.GetPath());
    // In a pause the broken transfer was kept, by the same files that go now.
    ResumeTransMgr::GetInstance().Erase(GetResumeToken());
    return code;
  }
  if (code < 0) {
    // What the cache has is for the next attempt.
    if (IsDownloadResumable()) objects.Release();
    return code;
  }
  const PObject &request = objects.request, &response = objects.response;
  if (response.hasMember("error")) {
    return HandleDownloadResponseError(response["error"]["code"].asUInt32());
  }
  if (!IsSoundDownload(response)) {
    HANDLER_ERROR("Worker (%d): the answer for '%s' is malformed.", GetWorkerId(),
                  context.GetPath());
    return ERR_IO;
  }
  if (response["sync_id"].asUInt64() == request["sync_id"].asUInt64()) {
    HANDLER_INFO("Worker (%d): DownloadRemote '%s' is already up to date.", GetWorkerId(),
                 context.GetPath());
  } else {
    int result = CheckContent(request, response, db_info);
    if (result >= 0) result = Install(local_file, db_info, objects.response);
    if (result < 0) return result;
  }
  SetUINotification(UI_NOTIFY_SERVER_MODIFY);
  return 0;
}

int DownloadRemoteHandler::Transfer(const File& local_file, const DBFileInfo& db_info,
                                    TransferObjects& objects) {
  return IsDownloadResumable()
             ? ResumeDownload(local_file, db_info, objects.request, objects.response)
             : StartNewDownload(local_file, db_info, objects.request, objects.response);
}

// The file first, then its record, and the signature last.
int DownloadRemoteHandler::Install(File& local_file, const DBFileInfo& db_info, PObject& response) {
  const EventContext& context = GetContext();
  TempFile sign_temp(context.GetSignatureDirectory());
  replaces_time_ = false;
  const int processed = ProcessDownload(local_file, db_info, response, sign_temp);
  if (processed < 0) return processed;
  const int committed = CommitDatabaseDownload(response, db_info, sign_temp.getPath());
  if (committed < 0) {
    HANDLER_ERROR("Worker (%d): Failed to commit changes to '%s' into local database. (code: %d)",
                  GetWorkerId(), context.GetPath(), committed);
    return ERR_SYS;
  }
  // The signature is in the store by now, or it could not get there and is of no use.
  return 0;
}

// The old content is never recorded as the new version: when the content was asked for, the answer
// has to bring it, or to name the content that is really here.
int DownloadRemoteHandler::CheckContent(const PObject& request, const PObject& response,
                                        const DBFileInfo& db_info) {
  const PObject& file = response["file"];
  if (GetContext().GetEvent().isDir() && !response["is_dir"].asBool()) {
    HANDLER_ERROR("Worker (%d): '%s' is a file meanwhile, wait.", GetWorkerId(),
                  GetContext().GetPath());
    return ERR_INT;
  }
  if (!request.hasMember("file") || response["is_dir"].asBool() ||
      (!file["data"].asBinary().empty() && !file["refer"].asBool() &&
       !file["refer_local"].asBool())) {
    return 0;
  }
  const ustring& path = GetContext().GetFullPath();
  const bool is_known = file["refer"].asBool() && !file["refer_local"].asBool() &&
                        db_info.syncID != 0 && db_info.IsFile() &&
                        file["hash"].asString() == db_info.fileCheckSum &&
                        file["size"].asUInt64() == db_info.fileSize;
  ustring hash;
  if (is_known && FileHelper::CalculateMd4FromFile(path, hash, GetAbortFlag()) == 0 &&
      hash == db_info.fileCheckSum) {
    return 0;
  }
  if (!is_known) {
    HANDLER_ERROR("Worker (%d): the answer for '%s' lacks the content.", GetWorkerId(), path);
    return ERR_IO;
  }
  // The content that stands is not the one that is here.
  (void)GetContext().RemoveLocalDatabaseInfo();
  return ERR_CONFLICT_DOWNLOAD;
}

bool DownloadRemoteHandler::IsDownloadResumable() const {
  return ResumeTransMgr::GetInstance().HasToken(GetResumeToken());
}

ustring DownloadRemoteHandler::GetResumeToken() const {
  return ResumeTransMgr::GenToken(GetContext().GetEntry().sess_id, GetContext().GetPath(),
                                  "Download");
}

int DownloadRemoteHandler::StartNewDownload(const File& local_file, const DBFileInfo& db_info,
                                            PObject& request, PObject& response) {
  const ustring& path = GetContext().GetPath();
  HANDLER_INFO("Worker (%d): Start new download for '%s'.", GetWorkerId(), path);
  TransferObjects local(GetContext().GetWorkingDirectory());
  PrepareDownloadResponseFromEvent(local_file, db_info, local.response);
  (void)PrepareDownloadResponseFromLocal(local.response);
  PObject require;
  const int missing = GetUnsatisfiedAttributes(local.response, require);
  if (missing == 0) {
    HANDLER_DEBUG("Worker (%d): Prepare download from loacl successfully.", GetWorkerId());
    response.swap(local.response);
    return 0;
  }
  HANDLER_DEBUG("Worker (%d): Ready to prepare download from remote. (%d unsatisfield information)",
                GetWorkerId(), missing);
  request.swap(require);
  const bool resumable = !GetContext().GetEvent().isDir();
  PrepareDownloadRequest(resumable, db_info, request);
  const int code = Download(resumable, request, response);
  if (code < 0) {
    HANDLER_ERROR("Worker (%d): failed to download '%s'. (code: %d, reason: %s)", GetWorkerId(),
                  path, code, ErrorText(code));
    return code;
  }
  response = PObjectHelper::MergeIfNotExist(response, local.response);
  local.Release();
  return 0;
}

int DownloadRemoteHandler::ResumeDownload(const File& local_file, const DBFileInfo& db_info,
                                          PObject& request, PObject& response) {
  const EventContext& context = GetContext();
  HANDLER_INFO("Worker (%d): Resume download for '%s'.", GetWorkerId(), context.GetPath());
  ResumeTransMgr::CachedJob job;
  if (ResumeTransMgr::GetInstance().Take(GetResumeToken(), job) < 0) return ERR_INT;
  if (!IsJobOfEvent(job, db_info)) {
    job.Clear();
    return StartNewDownload(local_file, db_info, request, response);
  }
  request = job.cached_req;
  const PObject& received = job.cached_resp;
  if (const PObject::binary_type& data = received["file"]["data"].asBinary(); !data.empty()) {
    request["file"]["offset"] = data.length;
    response["file"]["data"] = data;
    HANDLER_DEBUG("Worker (%d): Continue download file to %s, offset %llu", GetWorkerId(),
                  data.path, data.length);
  }
  const ustring partial = received["file"]["data"].asBinary().path;
  const int code = ResumableDownload(request, response);
  // An answer may have taken the place of what named the file.
  const PObject& answer = response;
  if (!partial.empty() && answer["file"]["data"].asBinary().path != partial) {
    (void)FSRemove(partial, false);
  }
  if (code < 0) {
    HANDLER_ERROR("Worker (%d): Failed to download '%s'. (code: %d, reason: %s)", GetWorkerId(),
                  context.GetPath(), code, ErrorText(code));
    return code;
  }
  PObject from_event;
  PrepareDownloadResponseFromEvent(File(ustring(), true), db_info, from_event);
  response = PObjectHelper::MergeIfNotExist(response, from_event);
  return 0;
}

// Whether a broken transfer was one of this very version onto this very basis, and what it has
// received is still there.
bool DownloadRemoteHandler::IsJobOfEvent(const ResumeTransMgr::CachedJob& job,
                                         const DBFileInfo& db_info) const {
  const EventContext& context = GetContext();
  const PObject &request = job.cached_req, &response = job.cached_resp;
  const PObject::binary_type& data = response["file"]["data"].asBinary();
  const std::uint64_t basis = IsWantedWhole() ? 0 : db_info.syncID;
  const bool is_complete = data.empty() || File(data.path, true).GetSize() == data.length;
  return is_complete && request["target_sync_id"].asUInt64() == context.GetEvent().m_sync_id &&
         request["sync_id"].asUInt64() == basis &&
         request["path"].asString() == HandlerHelper::RemotePath(context);
}

int DownloadRemoteHandler::Download(bool resumable, PObject& request, PObject& response) {
  return resumable ? ResumableDownload(request, response) : SimpleDownload(request, response);
}

int DownloadRemoteHandler::Exchange(std::uint8_t command, const PObject& request,
                                    PObject& response) {
  ProtocolClient client = GetContext().GetProtocolClient();
  client.SetAbortFlag(GetAbortFlag());
  return client.Request(command, request, response);
}

int DownloadRemoteHandler::SimpleDownload(const PObject& request, PObject& response) {
  return Exchange(SCMD_EVT_SEND_2, request, response);
}

int DownloadRemoteHandler::ResumableDownload(PObject& request, PObject& response) {
  if (!request.hasMember("_resume_token") && GetResumeDownloadToken(request, response) <= 0) {
    return 1;
  }
  const int code = ContinueResumeDownload(request, response);
  if (code >= 0) return 0;
  if (code == ERR_TIMEOUT || code == ERR_IO || IsPaused()) {
    SaveResumeInformation(request, response);
  }
  return code;
}

int DownloadRemoteHandler::GetResumeDownloadToken(PObject& request, PObject& response) {
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
  HANDLER_DEBUG("Get download resume token: '%s'.", answer["resume_token"].asString());
  return 1;
}

int DownloadRemoteHandler::ContinueResumeDownload(const PObject& request, PObject& response) {
  return Exchange(SCMD_RESUME_TRANSFER, request, response);
}

void DownloadRemoteHandler::SaveResumeInformation(const PObject& request, const PObject& response) {
  const ustring token = GetResumeToken();
  ResumeTransMgr::CachedJob job;
  ResumeTransMgr::InitialCachedJob(token, ustring(), GetContext().GetWorkingDirectory(), request,
                                   response, job);
  (void)ResumeTransMgr::GetInstance().Push(job);
  HANDLER_NOTE("Resumable download error, save request and response with local resume_token: %s.",
               token);
}

void DownloadRemoteHandler::PrepareDownloadRequest(bool resumable, const DBFileInfo& db_info,
                                                   PObject& request) {
  const EventContext& context = GetContext();
  HandlerHelper::InitObjectRequest(request, resumable ? "resume_download" : "download", context,
                                   IsWantedWhole() ? DBFileInfo() : db_info);
  request["target_sync_id"] = context.GetEvent().m_sync_id;
  request["force_current_version"] = false;
}

bool DownloadRemoteHandler::IsWantedWhole() const { return whole_file_key_ == GetResumeToken(); }

int DownloadRemoteHandler::HandleDownloadResponseError(std::uint32_t code) {
  const Event& event = GetContext().GetEvent();
  switch (code) {
    case SPROTO_ERR_DOWNLOAD_NOFILE: {
      HANDLER_WARNING("DownloadRemote: Object %s is removed, fake event, abort anyway.",
                      event.m_path);
      auto callback = std::make_unique<CreateEventCallback>();
      callback->SetServerRemoveEvent(event.m_path, event.isDir(), event.m_sync_id, event.m_max_id);
      SetErrorAction(ACTION_DONE, std::move(callback));
      return ERR_INT;
    }
    case SPROTO_ERR_DOWNLOAD_NO_ACCESS:
    case SPROTO_ERR_DOWNLOAD_FILTERED:
      HANDLER_WARNING("DownloadRemote: Object %s has no access permission, ignore event.",
                      event.m_path);
      SetErrorAction(ACTION_DONE);
      return ERR_INT;
    default:
      break;
  }
  if (ProtoErrorClass(code) == SPROTO_ERR_RESUME) return ERR_INT;
  const int result = HandlerHelper::ConvertResponseErrorToHandlerError(code);
  HANDLER_ERROR("DownloadRemote: Bad response: %s", ErrorText(result));
  if (result == 0) EventManager::getInstance().CountUnappliedServerEvent(event.m_sess_id);
  return result;
}

}  // namespace tolven

#include "server/protocol/command.h"

#include <string_view>

#include "lib/proto-constants.h"
#include "server/protocol/fill-file.h"
#include "server/protocol/path-rule.h"
#include "server/store/content-store.h"

namespace tolven::server {

namespace {

// What a command needs before its handler runs.
enum class Need : std::uint8_t { kNothing, kSession, kAnyView, kView, kPath };

struct Handler {
  std::uint8_t command_byte;
  Need need;
  std::string_view action;
  std::uint32_t (*run)(Command&);
};

constexpr Handler kHandlers[] = {
    {SCMD_REQUEST_CONNECT, Need::kAnyView, "connect", &Connect},
    {SCMD_REQUEST_SSL_2, Need::kNothing, "encrypt_channel", &EncryptChannel},
    {SCMD_EVT_PULL, Need::kPath, "pull_event", &PullEvent},
    {SCMD_GET_PROFILE, Need::kSession, "get_profile", &GetProfile},
    {SCMD_EVT_RECV_4, Need::kPath, "upload", &Upload},
    {SCMD_EVT_SEND_2, Need::kPath, "download", &Download},
    {SCMD_EVT_REMOVE, Need::kPath, "remove", &Remove},
    {SCMD_RESUME_TRANSFER, Need::kView, "resume_get_token", &ResumeGetToken},
    {SCMD_RESUME_TRANSFER, Need::kView, "resume_get_status", &ResumeGetStatus},
    {SCMD_RESUME_TRANSFER, Need::kPath, "resume_upload", &ResumeUpload},
    {SCMD_RESUME_TRANSFER, Need::kPath, "resume_download", &ResumeDownload},
};

std::uint32_t Prepare(Need need, Command& command) {
  Metadata& metadata = command.service.metadata;
  if (need == Need::kNothing) return SPROTO_ERR_OK;
  const int session =
      metadata.FindSession(command.request["session"].asString().str(), command.user);
  if (session < 0) return SPROTO_ERR_INTERNAL;
  if (session == 0) return SPROTO_ERR_SESSION_INVALID;
  const PObject& view = command.request["view_id"];
  if (need == Need::kSession || (need == Need::kAnyView && view.isNull())) return SPROTO_ERR_OK;
  const int found = metadata.FindView(view.asUInt64(), command.view);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  if (found == 0) return SPROTO_ERR_VIEW_INVALID;
  if (need != Need::kPath) return SPROTO_ERR_OK;
  const ustring path = command.request["path"].asString();
  if (!IsPathInView(path)) return SPROTO_ERR_VIEW_INVALID_PATH;
  command.path = path.str();
  return SPROTO_ERR_OK;
}

}  // namespace

bool IsObjectCommand(std::uint8_t command_byte) {
  for (const Handler& handler : kHandlers) {
    if (handler.command_byte == command_byte) return true;
  }
  return false;
}

std::uint32_t RunCommand(std::uint8_t command_byte, Command& command) {
  const std::string_view action = command.request["action"].asStringView();
  for (const Handler& handler : kHandlers) {
    if (handler.command_byte != command_byte || handler.action != action) continue;
    const std::uint32_t code = Prepare(handler.need, command);
    return code == SPROTO_ERR_OK ? handler.run(command) : code;
  }
  return SPROTO_ERR_ERR;
}

ustring Command::NewTemporary() {
  TempFile& file = temporary.emplace_back(service.transfers.IncomingFolder());
  return file.create() == 0 ? file.getPath() : ustring();
}

ustring Command::NewTemporary(const std::string& bytes) {
  const ustring made = NewTemporary();
  return !made.empty() && FillFile(made, bytes) ? made : ustring();
}

ustring Command::FileOf(const Content& content) {
  std::string bytes;
  const int found =
      content.size > kLargestSmallContent ? 0 : service.metadata.FindBytes(content.sha256, bytes);
  if (found == 0) return service.contents.PathOf(content.sha256);
  return found < 0 ? ustring() : NewTemporary(bytes);
}

const char* RefusalReason(std::uint32_t code) {
  switch (code) {
    case SPROTO_ERR_ERR:
      return "unknown action";
    case SPROTO_ERR_SESSION_INVALID:
      return "invalid session";
    case SPROTO_ERR_VIEW_INVALID:
      return "invalid view";
    case SPROTO_ERR_ACCESS_DENY:
      return "access denied";
    case SPROTO_ERR_VIEW_INVALID_PATH:
      return "invalid path in view";
    case SPROTO_ERR_READ_ONLY:
      return "view is read-only";
    case SPROTO_ERR_QUOTA:
      return "quota exceeded";
    case SPROTO_ERR_DISKFULL:
      return "disk full";
    case SPROTO_ERR_VERSION:
      return "incompatible version";
    case SPROTO_ERR_CONFLICT_PATH:
      return "path is taken";
    case SPROTO_ERR_DOWNLOAD_NOFILE:
    case SPROTO_ERR_REMOVE_NOFILE:
      return "no such file";
    case SPROTO_ERR_DOWNLOAD_NO_ACCESS:
    case SPROTO_ERR_UPLOAD_NO_ACCESS:
    case SPROTO_ERR_REMOVE_NO_ACCESS:
      return "no access";
    case SPROTO_ERR_UPLOAD_NO_PERMISSION:
    case SPROTO_ERR_REMOVE_NO_PERM:
      return "no permission";
    case SPROTO_ERR_UPLOAD:
      return "content does not match";
    case SPROTO_ERR_UPLOAD_NOBASE:
      return "base version is gone";
    case SPROTO_ERR_UPLOAD_BASE_CHANGED:
      return "base version changed";
    case SPROTO_ERR_UPLOAD_FILTERED:
      return "name is not accepted";
    case SPROTO_ERR_REMOVE_MODIFIED:
      return "object is modified";
    case SPROTO_ERR_RESUME:
      return "transfer cannot go on now";
    case SPROTO_ERR_RESUME_TOKEN:
      return "unknown resume token";
    case SPROTO_ERR_RESUME_OFFSET:
      return "transfer cannot go on there";
    default:
      return "internal error";
  }
}

}  // namespace tolven::server

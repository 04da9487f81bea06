#include "client/core/helpers/handler-helper.h"

#include "client/core/event-context.h"
#include "client/core/root-proof.h"
#include "client/event-path.h"
#include "lib/error-table.h"
#include "lib/proto-common.h"
#include "lib/proto-constants.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace tolven {

namespace {

// Whether the session is still the one that the event is of: the first worker is not waited for
// when another takes its place, and may come with what it fetched long ago.
bool IsSessionThere(const Registry::Entry& entry) {
  Registry::Entry now;
  return entry.generation == 0 || (Registry::getInstance().Find(entry.sess_id, now) == 1 &&
                                   now.generation == entry.generation);
}

int OfClass(std::uint32_t code) {
  switch (ProtoErrorClass(code)) {
    case SPROTO_ERR_USER:
    case SPROTO_ERR_SESSION:
      return ErrorCodes::ERR_AUTH;
    case SPROTO_ERR_VIEW:
      return ErrorCodes::ERR_VIEW;
    case SPROTO_ERR_VERSION:
      return ErrorCodes::ERR_VERSION;
    case SPROTO_ERR_DOWNLOAD:
    case SPROTO_ERR_UPLOAD:
    case SPROTO_ERR_REMOVE:
      return ErrorCodes::ERR_INT;
    default:
      return 0;
  }
}

}  // namespace

int HandlerHelper::ConvertResponseErrorToHandlerError(std::uint32_t code) {
  switch (code) {
    case SPROTO_ERR_ACCESS_DENY:
      return ErrorCodes::ERR_PERMISS;
    case SPROTO_ERR_QUOTA:
      return ErrorCodes::ERR_QUOTA;
    case SPROTO_ERR_DISKFULL:
      return ErrorCodes::ERR_DISKFULL;
    case SPROTO_ERR_VIEW_INVALID_PATH:
      return ErrorCodes::ERR_VIEW_PATH;
    case SPROTO_ERR_READ_ONLY:
      return ErrorCodes::ERR_PERMISS_READ_ONLY;
    case SPROTO_ERR_UPLOAD_NO_PERMISSION:
      return ErrorCodes::ERR_NO_UPLOAD_PERM;
    case SPROTO_ERR_NOT_MOUNTED:
      return ErrorCodes::ERR_NOT_MOUNTED;
    case SPROTO_ERR_UPLOAD_NO_ACCESS:
      return ErrorCodes::ERR_NO_ACCESS_PERM;
    default:
      return OfClass(code);
  }
}

void HandlerHelper::InitObjectRequest(PObject& request, const std::string& action,
                                      const EventContext& context, const DBFileInfo& db_info) {
  InitRequest(request, action);
  request["session"] = context.GetConnectionInfo().session;
  request["view_id"] = context.GetViewId();
  request["node_id"] = context.GetNodeId();
  request["sync_id"] = db_info.syncID;
  request["max_id"] = db_info.maxSyncID;
  request["path"] = RemotePath(context);
}

void HandlerHelper::InitTokenRequest(PObject& request, const std::string& action,
                                     const EventContext& context) {
  InitRequest(request, action);
  request["session"] = context.GetConnectionInfo().session;
  request["view_id"] = context.GetEntry().view_id;
}

void HandlerHelper::TakeServerAttributes(const PObject& response, DBFileInfo& record) {
  if (const PObject& exec_bit = response["exec_bit"]; exec_bit.isMap()) {
    record.serverExecBit = exec_bit["exec_bit"].asBool() ? 1 : 0;
  }
  if (const PObject& mode = response["unix_perm"]; mode.isMap()) {
    record.serverUnixUid = mode["uid"].asUInt32();
    record.serverUnixGid = mode["gid"].asUInt32();
    record.serverUnixMode = mode["mode"].asUInt32();
  }
  if (const PObject& acl = response["zentrova_acl"]; acl.isMap()) {
    record.serverAclAttribute = acl["acl"].asString();
    record.serverAclHash = acl["hash"].asString();
  }
  if (const PObject& priv = response["share_priv"]; priv.isMap()) {
    record.serverSharePrivDisabled = priv["disabled"].asUInt32();
    record.serverSharePrivDenyList = priv["deny_list"].asString();
    record.serverSharePrivRoList = priv["ro_list"].asString();
    record.serverSharePrivRwList = priv["rw_list"].asString();
  }
}

ustring HandlerHelper::RemotePath(const EventContext& context) {
  const ustring& watch = context.GetRemoteWatch();
  if (watch.empty() || watch == "/") return context.GetPath();
  return JoinPath(watch, context.GetPath().view());
}

bool HandlerHelper::IsRootProved(const EventContext& context) {
  if (!IsSessionThere(context.GetEntry())) return false;
  const shared_pointer<RootProof>& proof = context.GetEntry().root_proof;
  return proof == nullptr || proof->IsProved();
}

bool HandlerHelper::HasOtherSpelling(const EventContext& context, ustring& spelled) {
  if (!platform::NamesIgnoreCase()) return false;
  spelled.clear();
  PathWalker walker(context.GetPath().view());
  for (std::string_view name = walker.Next(); !name.empty(); name = walker.Next()) {
    ustring on_disk;
    const ustring place = JoinPath(context.GetLocalWatch(), (spelled + "/" + ustring(name)).view());
    if (!platform::files().NameOnDisk(place, on_disk).ok()) return false;
    spelled += "/";
    spelled += on_disk;
    if (on_disk.view() != name) return true;
  }
  return false;
}

}  // namespace tolven

// How the syncer speaks with a server: its own requests, and its own way of opening a channel.
#include <algorithm>
#include <vector>

#include "client/core/protocol-client.h"
#include "client/core/refusal-codes.h"
#include "client/core/session-layout.h"
#include "client/core/syncer-log.h"
#include "client/core/syncer.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/file-op.h"
#include "lib/proto-common.h"

namespace tolven {

namespace {

// What a server that does not tell its version is taken for.
constexpr std::uint32_t kUntoldBuild = 2402;

constexpr std::uint32_t kSendSeconds = 60;
constexpr std::uint32_t kAnswerSeconds = 90;

}  // namespace

int Syncer::PullEventFromServer(PObject& answer) {
  const PObject& response = answer;
  const Registry::Entry& entry = context.entry;
  if (entry.event_db->getSyncId(context.sync_id, &times_sync_id_set_) != 0) {
    // From the first one, what was removed here and is not told yet would come back.
    SYNCER_ERROR("Syncer: failed to get base sync id\n");
    return ErrorCodes::ERR_SYS;
  }
  // Whoever starts a session anew changes what is asked for first.
  RefreshEntry();
  PObject request;
  InitRequest(request, "pull_event");
  request["sync_id"] = context.sync_id;
  request["session"] = GetConnectionInfo().session;
  request["path"] = entry.remote_path;
  request["view_id"] = entry.view_id;
  request["node_id"] = entry.node_id;
  request["recursive"] = entry.recursive;
  request["offset"]["file"] = 0;
  request["offset"]["mtime"] = 0;
  SYNCER_DEBUG("Syncer: pull event by session %llu (%llu:%s) since %llu\n", entry.sess_id,
               entry.view_id, entry.remote_path, context.sync_id);
  if (const int code = ProtoPullEvent(request, answer); code < 0) return code;
  if (response.hasMember("error")) {
    SYNCER_ERROR("PullEvent: response: %s.\n", response.toString());
    const int code = SyncerResp2ErrorCode(response["error"]["code"].asUInt32());
    return code != 0 ? code : ErrorCodes::ERR_SERVER;
  }
  const PObject& next = response["next_sync_id"];
  if (!next.isInteger()) {
    SYNCER_ERROR("PullEvent: response: %s.\n", response.toString());
    return ErrorCodes::ERR_SERVER;
  }
  if (next.asUInt64() < context.sync_id) {
    SYNCER_ERROR("session %llu: the server went back from %llu to %llu\n", entry.sess_id,
                 context.sync_id, next.asUInt64());
    return ErrorCodes::ERR_VIEW;
  }
  return 0;
}

int Syncer::ProtoPullEvent(const PObject& request, PObject& response) {
  return Exchange("ProtoPullEvent", "fail to pull events", SCMD_EVT_PULL, request, response);
}

int Syncer::ProtoGetProfile(const PObject& request, PObject& response) {
  return Exchange("ProtoGetProfile", "fail to get profile", SCMD_GET_PROFILE, request, response);
}

int Syncer::Exchange(const char* caller, const char* failure, std::uint8_t command,
                     const PObject& request, PObject& answer) {
  Connection::ChannelStat stat = context.connection.pop(&abort_flag);
  if (stat.channel() == nullptr && abort_flag != 0) return ErrorCodes::ERR_INT;
  const PObject& response = answer;
  int code = 0;
  if (stat.isExpired()) {
    std::uint32_t alive = 0;
    code = RequestChannel(stat.getChannel(), alive);
    if (code < 0) {
      SYNCER_ERROR("%s: fail to establish communication channel\n", caller);
    } else {
      stat.setConnected();
      stat.setAliveInterval(alive);
      context.connection.update(stat);
    }
  }
  if (code >= 0) {
    code = RunProtocol(stat.getChannel(), command, request, answer);
    if (code < 0) SYNCER_ERROR("%s: %s. %d.\n", caller, failure, code);
  }
  if (code < 0) {
    stat.setExpired();
  } else {
    stat.setAliveInterval(response["alive"].asUInt32());
  }
  context.connection.push(stat);
  return code;
}

int Syncer::RunProtocol(Channel& channel, std::uint8_t command, const PObject& request,
                        PObject& response) {
  const ustring& action = request["_action"].asString();
  SYNCER_DEBUG("Syncer >>>: %s\n", request.toString());
  stream.SetDefaultRecvLocation(JoinPath(context.entry.local_path, WORKING_DIR.view()));
  channel.SetFlag(&abort_flag);
  channel.SetTimeout(kSendSeconds);
  int code = ProtoWriteHeader(channel, 0, command);
  if (code >= 0) code = stream.Send(channel, request);
  if (code < 0) {
    SYNCER_ERROR("Syncer: RunProtocol(%s): failed to send request (%d)\n", action, code);
  } else {
    channel.SetTimeout(kAnswerSeconds);
    code = Receive(channel, request, response);
    if (code < 0) {
      SYNCER_ERROR("Syncer: RunProtocol(%s): failed to recv response (%d)\n", action, code);
    }
  }
  channel.SetTimeout(kSendSeconds);
  channel.SetFlag(nullptr);
  if (code < 0) return abort_flag != 0 ? ErrorCodes::ERR_INT : StreamErrorToErrorCode(code);
  SYNCER_DEBUG("Syncer <<<: %s\n", response.toString());
  return 0;
}

int Syncer::Receive(Channel& channel, const PObject& request, PObject& response) {
  const KeepAlive keep_alive(response);
  for (;;) {
    // A peer that sends them without a pause never lets the channel look at the flag.
    if (abort_flag != 0) return PStream::ERR_IO;
    const int code = stream.Recv(channel, response);
    const bool is_end = code < 0 || !keep_alive.Take(response);
    DropStrayFiles(request, response);
    if (is_end) return code;
  }
}

// A peer may send contents that nobody asked for, or under names that nobody looks at.
void Syncer::DropStrayFiles(const PObject& request, const PObject& response) const {
  std::vector<ustring> wanted;
  if (request["_action"].asStringView() == "get_profile") {
    for (const PObject& profile : response["profile_list"].asArray()) {
      wanted.push_back(profile["file"].asBinary().path);
    }
  }
  for (const ustring& path : stream.GetNewFiles()) {
    if (std::find(wanted.begin(), wanted.end(), path) == wanted.end()) FSRemove(path, false);
  }
}

int Syncer::RequestChannel(Channel& channel, std::uint32_t& alive) {
  const ConnectionInfo& info = GetConnectionInfo();
  channel.Close();
  channel.SetFlag(&abort_flag);
  SYNCER_DEBUG("Syncer: Connect to server (%s:%d).\n", info.server_ip, info.server_port);
  if (const int code = channel.Open(info.server_ip.c_str_utf8(), info.server_port); code < 0) {
    SYNCER_ERROR("Syncer: failed to connect to server.\n");
    channel.SetFlag(nullptr);
    return abort_flag != 0 ? ErrorCodes::ERR_INT : code;
  }
  PObject request, answer;
  InitRequest(request, "connect");
  request["session"] = info.session;
  request["view_id"] = context.entry.view_id;
  if (const int code = RunProtocol(channel, SCMD_REQUEST_CONNECT, request, answer); code < 0) {
    return code;
  }
  const PObject& response = answer;
  if (response.hasMember("error")) {
    SYNCER_ERROR("Syncer: request channel: %s\n", response["error"].toString());
    return HandshakeErrorCode(response["error"]["code"].asUInt32());
  }
  alive = response["alive"].asUInt32();
  if (alive == 0) {
    SYNCER_INFO("Syncer: connection refused by server.\n");
    return ErrorCodes::ERR_IO;
  }
  if (const int code = CheckBuild(response); code < 0) return code;
  return info.use_ssl ? RequestSSL(channel) : 0;
}

// What the protocol can do depends on the build, so the user has to log in again when it changed.
int Syncer::CheckBuild(const PObject& response) const {
  std::uint32_t build = kUntoldBuild;
  if (response.hasMember("server")) {
    build = response["server"]["package_version"]["build"].asUInt32();
    SYNCER_INFO("Connect with Tolven Hub server build %lu\n", build);
  } else {
    SYNCER_INFO("Connect with Tolven Hub server build 2402\n");
  }
  const long known = GetConnectionInfo().version_info.build_number;
  if (known == static_cast<long>(build)) return 0;
  SYNCER_WARNING("Syncer: detect server build number changed from %d to %d\n", known, build);
  return ErrorCodes::ERR_BUILD_NUM_CHANGED;
}

// Nothing goes on in clear after a refusal: the channel is closed by who gets the failure.
int Syncer::RequestSSL(Channel& channel) {
  const ConnectionInfo& info = GetConnectionInfo();
  SYNCER_INFO("Syncer: request ssl channel\n");
  PObject request, answer;
  InitRequest(request, "encrypt_channel");
  request["proto_ver"]["major"] = 3;
  request["proto_ver"]["minor"] = 1;
  request["proto_ver"]["build"] = 3317;
  request["ssl_option"] = 1;
  if (const int code = RunProtocol(channel, SCMD_REQUEST_SSL_2, request, answer); code < 0) {
    return code;
  }
  const PObject& response = answer;
  if (response.hasMember("error")) {
    SYNCER_ERROR("Syncer: request SSL: %s\n", response["error"].toString());
    return HandshakeErrorCode(response["error"]["code"].asUInt32());
  }
  SYNCER_DEBUG("Syncer: convert to SSL channel\n");
  channel.SetFlag(&abort_flag);
  channel.SetAllowUntrust(info.ssl_allow_untrust);
  channel.SetSSLHostname(info.server_name);
  const int code = channel.ConvertToSSLChannel(false);
  channel.SetFlag(nullptr);
  if (code < 0) {
    SYNCER_ERROR("Syncer: Convert to SSL channel failed (%d)\n", code);
    return abort_flag != 0 ? ErrorCodes::ERR_INT : code;
  }
  SYNCER_INFO("Syncer: channel is now encrypted using SSL\n");
  return 0;
}

}  // namespace tolven

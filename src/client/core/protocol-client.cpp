#include "client/core/protocol-client.h"

#include "client/core/refusal-codes.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/proto-common.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "proto_client";
constexpr std::uint32_t kSendSeconds = 60;
constexpr std::uint32_t kAnswerSeconds = 90;

int Fail(int line, const xchar* text, int code) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line, code);
  return code;
}

}  // namespace

int StreamErrorToErrorCode(int code) {
  switch (code) {
    case PStream::ERR_SYS:
    case PStream::ERR_STREAM:
    case PStream::ERR_INPUT:
      return ErrorCodes::ERR_SYS;
    case PStream::ERR_IO:
    case PStream::ERR_TIMEOUT:
      return ErrorCodes::ERR_IO;
    case PStream::ERR_DISKFULL:
      return ErrorCodes::ERR_LOCAL_DISKFULL;
    case PStream::ERR_FBIG:
      return ErrorCodes::ERR_FILE_TOO_BIG;
    default:
      return 0;
  }
}

ProtocolClient::ProtocolClient(PStream* shared_stream, const Connection& copied)
    : stream(shared_stream), connection(copied) {}

void ProtocolClient::SetAbortFlag(std::atomic<int>* flag) {
  send_abort_flag = flag;
  recv_abort_flag = flag;
}

bool ProtocolClient::IsAborted() const {
  const auto is_set = [](const std::atomic<int>* flag) { return flag != nullptr && *flag != 0; };
  return is_set(send_abort_flag) || is_set(recv_abort_flag);
}

int ProtocolClient::ConvertStreamErrorToErrorCode(int code) const {
  return IsAborted() ? ERR_INT : StreamErrorToErrorCode(code);
}

int ProtocolClient::Request(std::uint8_t cmd, const PObject& request, PObject& response) {
  Connection::ChannelStat stat = connection.pop(send_abort_flag);
  if (stat.channel() == nullptr && IsAborted()) return ERR_INT;
  const int code = Exchange(stat, cmd, request, response);
  connection.push(stat);
  return code;
}

int ProtocolClient::Exchange(Connection::ChannelStat& stat, std::uint8_t cmd,
                             const PObject& request, PObject& response) {
  Channel& channel = stat.getChannel();
  channel.SetFlag(send_abort_flag);
  if (stat.isExpired()) {
    const int code = ReopenChannel(channel);
    if (code < 0) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] protocol-client(%d): Fail to establish communication channel.\n",
                     __LINE__);
      stat.setExpired();
      channel.SetFlag(nullptr);
      return IsAborted() ? ERR_INT : code;
    }
    stat.setConnected();
    connection.update(stat);
  }
  const int code = Send(channel, cmd, request, response);
  if (code < 0) {
    stat.setExpired();
    return Fail(__LINE__, L"[ERROR] protocol-client(%d): Fail to send protocol. (code: %d)\n",
                code);
  }
  const PObject& answer = response;
  stat.setAliveInterval(answer["alive"].asUInt32());
  return 0;
}

int ProtocolClient::ReopenChannel(Channel& ch) {
  const ConnectionInfo& info = connection.getConnectionInfo();
  ch.Close();
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] protocol-client(%d): Reopen channel to server (%s:%d).\n", __LINE__,
                 info.server_ip, info.server_port);
  const int code = ch.Open(info.server_ip.c_str_utf8(), info.server_port);
  if (code < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] protocol-client(%d): Failed to connect to server.\n", __LINE__);
    return code;
  }
  return Connect(ch);
}

int ProtocolClient::Connect(Channel& ch) {
  const ConnectionInfo& info = connection.getConnectionInfo();
  PObject request, answer;
  InitRequest(request, "connect");
  request["session"] = info.session;
  if (info.use_ssl) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] protocol-client(%d): Request ssl channel.\n", __LINE__);
    request["do_ssl"] = true;
  }
  if (const int code = Send(ch, SCMD_REQUEST_CONNECT, request, answer); code < 0) return code;
  const PObject& response = answer;
  if (response.hasMember("error")) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] protocol-client(%d): Fail to request channel. (reason: %s)\n",
                   __LINE__, response["error"].toString());
    return HandshakeErrorCode(response["error"]["code"].asUInt32());
  }
  const long build = static_cast<long>(response["server"]["package_version"]["build"].asUInt32());
  if (build != info.version_info.build_number) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] protocol-client(%d): Worker: detect server build number changed "
                   L"from %d to %d\n",
                   __LINE__, info.version_info.build_number, build);
    return ERR_BUILD_NUM_CHANGED;
  }
  if (response["alive"].asUInt32() == 0) {
    Logger::LogMsg(Logger::L_INFO, kCategory,
                   L"[INFO] protocol-client(%d): Connection refused by server.\n", __LINE__);
    return ERR_IO;
  }
  return info.use_ssl ? ConvertToSsl(ch) : 0;
}

int ProtocolClient::ConvertToSsl(Channel& ch) {
  const ConnectionInfo& info = connection.getConnectionInfo();
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] protocol-client(%d): Convert to SSL channel.\n", __LINE__);
  ch.SetFlag(send_abort_flag);
  ch.SetAllowUntrust(info.ssl_allow_untrust);
  ch.SetSSLHostname(info.server_name);
  const int code = ch.ConvertToSSLChannel(false);
  if (code < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] protocol-client(%d): Convert to SSL channel failed. (code: %d)\n",
                   __LINE__, code);
    return ERR_IO;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] protocol-client(%d): Channel is now encrypted using SSL.\n", __LINE__);
  return 0;
}

int ProtocolClient::Send(Channel& ch, std::uint8_t cmd, const PObject& request, PObject& response) {
  const bool traces = Logger::IsEnabled(Logger::L_DEBUG, kCategory);
  if (traces) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] protocol-client(%d): Send Request: %s\n",
                   __LINE__, request.toString());
  }
  if (!default_receive_location.empty()) stream->SetDefaultRecvLocation(default_receive_location);
  ch.SetFlag(send_abort_flag);
  const int code = SendAndReceive(ch, cmd, request, response);
  ch.SetTimeout(kSendSeconds);
  ch.SetFlag(nullptr);
  if (traces) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] protocol-client(%d): Receive response: %s\n", __LINE__,
                   response.toString());
  }
  return code;
}

int ProtocolClient::SendAndReceive(Channel& ch, std::uint8_t cmd, const PObject& request,
                                   PObject& response) {
  const KeepAlive keep_alive(response);
  int code = ProtoWriteHeader(ch, 0, cmd);
  if (code < 0) {
    Fail(__LINE__, L"[ERROR] protocol-client(%d): Failed to send protocol header. (code: %d)\n",
         code);
    return IsAborted() ? ERR_INT : ERR_IO;
  }
  code = stream->Send(ch, request);
  if (code < 0) {
    return ConvertStreamErrorToErrorCode(
        Fail(__LINE__, L"[ERROR] protocol-client(%d): Failed to send protocol body. (code: %d)\n",
             code));
  }
  ch.SetTimeout(kAnswerSeconds);
  ch.SetFlag(recv_abort_flag);
  for (;;) {
    code = stream->Recv(ch, response);
    const bool is_keep_alive = code >= 0 && keep_alive.Take(response);
    DropStrayFiles(request, response);
    if (code < 0) {
      return ConvertStreamErrorToErrorCode(
          Fail(__LINE__, L"[ERROR] protocol-client(%d): Failed to receive response. (code: %d)\n",
               code));
    }
    if (!is_keep_alive) return 0;
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] protocol-client(%d): Get channel keepalive message.\n", __LINE__);
    // A peer that sends them without a pause never lets the channel wait and look at the flag.
    if (IsAborted()) return ERR_INT;
  }
}

// A peer may send contents that nobody asked for, or under names that nobody looks at.
void ProtocolClient::DropStrayFiles(const PObject& request, const PObject& response) const {
  const ustring action = request["_action"].asString();
  const bool is_download = action == "download" || action == "resume_download";
  const ustring& content = response["file"]["data"].asBinary().path;
  const ustring& attribute = response["mac_attribute"]["data"].asBinary().path;
  for (const ustring& path : stream->GetNewFiles()) {
    if (!is_download || (path != content && path != attribute)) (void)FSRemove(path, false);
  }
}

}  // namespace tolven

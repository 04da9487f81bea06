#include "lib/proto-client.h"

#include <memory>

#include "lib/channel-factory.h"
#include "lib/error-table.h"
#include "lib/log.h"
#include "lib/proto-section.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "proto_client_debug";

int StreamFailed(int line, int code) {
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] proto-client(%d): RunProtocol: stream: Error code %d\n", line, code);
  return ErrorCodes::ERR_IO;
}

int Missing(int line, const xchar* text) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line);
  return -1;
}

bool TellsWho(const PObject& request) {
  return request.hasMember("session") ||
         (request.hasMember("username") && request.hasMember("password"));
}

}  // namespace

int RunProtocol(Channel& ch, PStream& stream, std::uint8_t cmd, const PObject& request,
                PObject& response) {
  const bool traces = Logger::IsEnabled(Logger::L_DEBUG, kCategory);
  const KeepAlive keep_alive(response);
  int code = ProtoWriteHeader(ch, 0, cmd);
  if (code < 0) return StreamFailed(__LINE__, code);
  if (traces) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] proto-client(%d): <<< %s\n", __LINE__,
                   request.toString());
  }
  code = stream.Send(ch, request);
  if (code < 0) return StreamFailed(__LINE__, code);
  for (;;) {
    code = stream.Recv(ch, response);
    if (code < 0) return StreamFailed(__LINE__, code);
    if (!keep_alive.Take(response)) break;
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] proto-client(%d): keep alive\n", __LINE__);
  }
  if (traces) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] proto-client(%d): >>> %s\n", __LINE__,
                   response.toString());
  }
  return 0;
}

int ProtoTestConnection(Channel& ch, std::uint8_t& version, ustring& serial, ustring& servID) {
  int code = ProtoWriteHeader(ch, 0, SCMD_TEST_CONN);
  if (code >= 0) code = ch.FlushWrite(0);
  std::uint8_t response = 0;
  if (code >= 0) code = ProtoReadResponse(ch, SCMD_TEST_CONN, response);
  if (code < 0) return code;
  if (response != SPROTO_RES_OK) return ProtoResp2ErrorCode(response);
  code = ProtoReadSection(ch, SPROTO_ID_PROTO_VERSION, version);
  if (code >= 0) code = ProtoReadSection(ch, SPROTO_ID_SERIAL_NUMBER, serial);
  if (code >= 0) code = ProtoReadSection(ch, SPROTO_ID_SERVER_ID, servID);
  return code < 0 ? code : 0;
}

int ProtoTestConnectionProxyTunnel(const char* ip, int port, const ProxyInfo* proxy,
                                   const TunnelInfo* tunnel, bool use_ssl, std::uint8_t& version,
                                   ustring& serial, ustring& servID) {
  const std::unique_ptr<Channel> channel = CreateChannelByConnectionType(proxy, tunnel);
  int code = ProtoConnect(*channel, ip, port);
  if (code >= 0 && use_ssl) code = ProtoWriteSSLServiceRequest2(*channel, SSLServiceReq());
  if (code >= 0 && use_ssl) code = channel->ConvertToSSLChannel(false);
  if (code >= 0) code = ProtoTestConnection(*channel, version, serial, servID);
  ProtoDisconnect(*channel);
  return code;
}

int ProtoWriteCheckUser(Channel& ch, const ustring& username, const ustring& password) {
  int code = ProtoWriteHeader(ch, 0, SCMD_USER_CHECK);
  if (code >= 0) code = ProtoWriteSection(ch, SPROTO_ID_USER, username);
  if (code >= 0) code = ProtoWriteEncSection(ch, SPROTO_ID_PASSWD, password);
  return code < 0 ? code : ch.FlushWrite(0);
}

int ProtoShareLink(Channel& ch, PStream& stream, const PObject& request, PObject& response) {
  if (!TellsWho(request)) {
    return Missing(__LINE__, L"[ERROR] proto-client(%d): ProtoShareLink: miss auth information.\n");
  }
  if (!request.hasMember("view_id")) {
    return Missing(__LINE__, L"[ERROR] proto-client(%d): ProtoShareLink: miss view_id\n");
  }
  return RunProtocol(ch, stream, SCMD_SHARE_LINK, request, response);
}

int ProtoDownload(Channel& ch, PStream& stream, const PObject& request, PObject& response) {
  if (!TellsWho(request)) {
    return Missing(__LINE__, L"[ERROR] proto-client(%d): ProtoDownload: miss auth information.\n");
  }
  if (!request.hasMember("view_id")) {
    return Missing(__LINE__, L"[ERROR] proto-client(%d): ProtoDownload: miss view_id.\n");
  }
  if (!request.hasMember("target_sync_id")) {
    return Missing(__LINE__, L"[ERROR] proto-client(%d): ProtoDonwload: missing target_sync_id.\n");
  }
  return RunProtocol(ch, stream, SCMD_EVT_SEND_2, request, response);
}

}  // namespace tolven

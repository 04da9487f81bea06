#include "lib/proto-common.h"

#include <array>
#include <atomic>
#include <charconv>
#include <string>
#include <string_view>

#include "lib/error-table.h"
#include "lib/proto-log.h"
#include "lib/proto-section.h"

namespace tolven {

namespace {

constexpr int kMalformed = ErrorCodes::ERR_PROTO;
constexpr std::uint32_t kHeaderSeconds = 10;

std::atomic<std::uint8_t> PROTO_VERSION{kProtocolVersion};

// The result of several steps, of which the first failure counts.
template <class... Steps>
int InTurn(Steps... steps) {
  int code = 0;
  (void)((code = steps(), code >= 0) && ...);
  return code < 0 ? code : 0;
}

template <class Version>
int WriteVersion(Channel& ch, int sec, const Version& version) {
  return ProtoWriteSection(
      ch, sec,
      ustring(std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
              std::to_string(version.build)));
}

// The number that `text` begins with, and the character behind it; '\0' asks for none.
bool TakeNumber(std::string_view& text, char behind, std::uint32_t& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  if (behind == '\0') return true;
  if (text.empty() || text.front() != behind) return false;
  text.remove_prefix(1);
  return true;
}

template <class Version>
int ReadVersion(Channel& ch, int sec, Version& version) {
  ustring section;
  if (const int code = ProtoReadSection(ch, sec, section); code < 0) return code;
  std::string_view text = section.view();
  Version read;
  if (!TakeNumber(text, '.', read.major) || !TakeNumber(text, '.', read.minor) ||
      !TakeNumber(text, '\0', read.build)) {
    return PROTO_COMMON_FAIL("ReadVersion", kMalformed);
  }
  version = read;
  return 0;
}

// What a refused request for TLS comes to.
int RefusalOfTls(std::uint32_t code) {
  switch (code) {
    case SPROTO_RES_ERR:
      return ErrorCodes::ERR_SERVER;
    case SPROTO_RES_UPGRADE:
      return ErrorCodes::ERR_VERSION;
    default:
      return ErrorCodes::ERR_SYS;
  }
}

// Makes `tree` equal to `prepared`, which is as flat as callers write trees. Payloads stay where
// they are: callers may point at them.
void Restore(const PObject& prepared, PObject& tree) {
  const bool same_type = prepared.type() == tree.type();
  if (same_type && prepared.isMap()) {
    std::erase_if(tree.asMap(),
                  [&](const auto& member) { return !prepared.hasMember(member.first); });
    for (const auto& [key, value] : prepared.asMap()) Restore(value, tree[key]);
  } else if (same_type && prepared.isBinary()) {
    tree.asBinary() = prepared.asBinary();
  } else {
    tree = prepared;
  }
}

int StreamFailed(int line, int code) {
  Logger::LogMsg(Logger::L_ERR, "proto_common_debug",
                 L"[ERROR] proto-common(%d): RunProtocol: stream: Error code %d\n", line, code);
  return ErrorCodes::ERR_IO;
}

}  // namespace

void ProtoInit(std::uint8_t version) { PROTO_VERSION = version; }

PV_TEST_CODE ProtoCheck(int proto_version) {
  if (proto_version == 70) return PV_MATCH_SUPPORT;
  if (proto_version < 70) return PV_UNSUPPORT_OLD_SERVER;
  return proto_version < 80 ? PV_UNMATCH_SUPPORT : PV_UNSUPPORT_OLD_CLIENT;
}

// The last two names are those of older commands, as readers of the logs know them.
const char* ProtoCmd2String(int cmd) {
  static constexpr std::array<const char*, 25> kNames = {
      "Unknown command",     "SCMD_REQUEST",    "SCMD_KEEP_ALIVE",      "SCMD_AUTH",
      "SCMD_NOTIFY",         "SCMD_LOGOUT",     "SCMD_EVT_PULL",        "SCMD_EVT_RECV",
      "SCMD_NEW_EVT_INFO",   "SCMD_EVT_SEND",   "SCMD_USER_CTRL",       "SCMD_TEST_CONN",
      "SCMD_RESPONSE",       "SCMD_USER_CHECK", "SCMD_REQUEST_CONNECT", "SCMD_EVT_REMOVE",
      "SCMD_GET_FILTER",     "SCMD_LIST_VIEW",  "SCMD_AUTH_2",          "SCMD_EVT_RECV_2",
      "SCMD_REQUEST_SSL",    "SCMD_EVT_RECV_3", "SCMD_REQUEST_SSL_2",   "SCMD_PKG_VER_QUERY",
      "SCMD_GET_FOLDER_LIST"};
  const auto index = static_cast<std::size_t>(cmd);
  return cmd < 0 || index >= kNames.size() ? kNames[0] : kNames[index];
}

const char* ProtoGetErroString(int err) {
  static constexpr std::array<const char*, 5> kTexts = {
      "Protocol finished successfully", "Protocol aborted due to interrupt",
      "Protocol aborted due to IO error", "Protocol aborted due to authentication failure",
      "Protocol aborted due to invalid argument"};
  const auto index = static_cast<std::size_t>(err);
  return err < 0 || index >= kTexts.size() ? "Unknown protocol error" : kTexts[index];
}

int ProtoResp2ErrorCode(std::uint32_t rsp) {
  switch (rsp) {
    case SPROTO_RES_OK:
      return ErrorCodes::ERR_OK;
    case SPROTO_RES_ERR:
    case SPROTO_RES_INVALID:
      return ErrorCodes::ERR_SERVER;
    case SPROTO_RES_USRERR:
      return ErrorCodes::ERR_USER;
    case SPROTO_RES_PASSERR:
      return ErrorCodes::ERR_PASSWORD;
    case SPROTO_RES_IDERR:
      return ErrorCodes::ERR_PROTO;
    case SPROTO_RES_CONFLICT:
      return ErrorCodes::ERR_CONFLICT;
    case SPROTO_RES_UPGRADE:
    case SPROTO_RES_FILTER_VERSION:
      return ErrorCodes::ERR_VERSION;
    case SPROTO_RES_NOENT:
      return ErrorCodes::ERR_NOENT;
    case SPROTO_RES_QUOTA:
      return ErrorCodes::ERR_QUOTA;
    case SPROTO_RES_DISKFULL:
      return ErrorCodes::ERR_DISKFULL;
    case SPROTO_RES_CLIENTERR:
    case SPROTO_RES_SESSIONERR:
    case SPROTO_RES_USERDISABLED:
    case SPROTO_RES_VRKDISABLED:
    case SPROTO_RES_INVALID_VIEW:
    case SPROTO_RES_SHARE_DISABLED:
    case SPROTO_RES_SHARE_VRK_DISABLED:
    case SPROTO_RES_SHARE_ACCESS_DENIED:
      return ErrorCodes::ERR_AUTH;
    default:
      return ErrorCodes::ERR_SYS;
  }
}

int ProtoConnect(Channel& ch, const char* ip, int port) { return ch.Open(ip, port); }

void ProtoDisconnect(Channel& ch) { ch.Close(); }

int ProtoWriteHeader(Channel& ch, std::uint16_t pkt_len, std::uint8_t cmd) {
  const int code = InTurn(
      [&] { return ch.WriteInt32(kProtocolMagic); }, [&] { return ch.WriteByte(PROTO_VERSION); },
      [&] { return ch.WriteByte(cmd); }, [&] { return ch.WriteInt16(pkt_len); });
  return code < 0 ? PROTO_COMMON_FAIL("WriteHeader", code) : 0;
}

int ProtoReadHeader(Channel& ch, std::uint16_t& pkt_len, std::uint8_t& cmd, std::uint8_t& version) {
  std::uint32_t magic = 0;
  int code = ch.ReadInt32(magic);
  if (code < 0) return PROTO_COMMON_FAIL("ReadHeader", code);
  ch.SetTimeout(kHeaderSeconds);
  code = InTurn([&] { return ch.ReadByte(version); }, [&] { return ch.ReadByte(cmd); },
                [&] { return ch.ReadInt16(pkt_len); });
  if (code < 0) return PROTO_COMMON_FAIL("ReadHeader", code);
  return magic == kProtocolMagic ? 0 : PROTO_COMMON_FAIL("ReadHeader", kMalformed);
}

int ProtoWriteObjectId(Channel& ch, const ObjectID& id) {
  return InTurn([&] { return ProtoWriteSection(ch, SPROTO_ID_SID, id.sync_id); },
                [&] { return ProtoWriteSection(ch, SPROTO_ID_PATH, id.path); });
}
int ProtoReadObjectId(Channel& ch, ObjectID& id) {
  return InTurn([&] { return ProtoReadSection(ch, SPROTO_ID_SID, id.sync_id); },
                [&] { return ProtoReadSection(ch, SPROTO_ID_PATH, id.path); });
}

int ProtoWriteObjectMetadata(Channel& ch, const ObjectMetadata& metadata) {
  return InTurn([&] { return ProtoWriteSection(ch, SPROTO_ID_FILESIZE, metadata.size); },
                [&] { return ProtoWriteSection(ch, SPROTO_ID_FILETIME, metadata.mtime); },
                [&] { return ProtoWriteSection(ch, SPROTO_ID_FILEHASH, metadata.hash); });
}
int ProtoReadObjectMetadata(Channel& ch, ObjectMetadata& metadata) {
  return InTurn([&] { return ProtoReadSection(ch, SPROTO_ID_FILESIZE, metadata.size); },
                [&] { return ProtoReadSection(ch, SPROTO_ID_FILETIME, metadata.mtime); },
                [&] { return ProtoReadSection(ch, SPROTO_ID_FILEHASH, metadata.hash); });
}

int ProtoWriteCommonAttributeBlock(Channel& ch, const CommonAttributeBlock& block) {
  return ProtoWriteSection(ch, SPROTO_ID_FILETIME, block.mtime);
}
int ProtoReadCommonAttributeBlock(Channel& ch, CommonAttributeBlock& block) {
  return InTurn([&] { return ProtoReadSection(ch, SPROTO_ID_FILETIME, block.mtime); });
}

int ProtoWriteView(Channel& ch, const View& view) {
  return InTurn([&] { return ProtoWriteSection(ch, SPROTO_ID_VIEW_ID, view.view_id); },
                [&] { return ProtoWriteSection(ch, SPROTO_ID_VIEW_NAME, view.name); });
}
int ProtoReadView(Channel& ch, View& view) {
  return InTurn([&] { return ProtoReadSection(ch, SPROTO_ID_VIEW_ID, view.view_id); },
                [&] { return ProtoReadSection(ch, SPROTO_ID_VIEW_NAME, view.name); });
}

int ProtoWriteProtocolVersion(Channel& ch, const ProtocolVersion& version) {
  return WriteVersion(ch, SPROTO_ID_PROTO_VERSION_2, version);
}
int ProtoReadProtocolVersion(Channel& ch, ProtocolVersion& version) {
  return ReadVersion(ch, SPROTO_ID_PROTO_VERSION_2, version);
}
int ProtoWriteFilterVersion(Channel& ch, const FilterVersion& version) {
  return WriteVersion(ch, SPROTO_ID_FILTER_VERSION, version);
}
int ProtoReadFilterVersion(Channel& ch, FilterVersion& version) {
  return ReadVersion(ch, SPROTO_ID_FILTER_VERSION, version);
}

int ProtoWriteKeepAliveControl(Channel& ch, std::uint32_t seconds) {
  return InTurn(
      [&] { return ProtoWriteHeader(ch, 0, SCMD_KEEP_ALIVE); },
      [&] { return ProtoWriteSection(ch, SPROTO_ID_KEEP_ALIVE_OPTION, std::uint32_t{0}); },
      [&] { return ProtoWriteSection(ch, SPROTO_ID_KEEP_ALIVE_CONTROL, std::uint32_t{1}); },
      [&] { return ProtoWriteSection(ch, SPROTO_ID_ALIVE, seconds); },
      [&] { return ch.FlushWrite(0); });
}

int ProtoWriteBasicRequest(Channel& ch, std::uint8_t type, std::uint16_t pkt_len,
                           const ustring& session) {
  return InTurn([&] { return ProtoWriteHeader(ch, pkt_len, type); },
                [&] { return ProtoWriteSection(ch, SPROTO_ID_SESSION, session); },
                [&] { return ch.FlushWrite(0); });
}

int ProtoReadResponse(Channel& ch, std::uint8_t exp_cmd, std::uint8_t& rsp) {
  std::uint16_t pkt_len = 0;
  std::uint8_t cmd = 0, version = 0;
  if (const int code = ProtoReadHeader(ch, pkt_len, cmd, version); code < 0) return code;
  if (cmd != exp_cmd) return PROTO_COMMON_FAIL("ReadResponse: bad response", kMalformed);
  const int code = ProtoReadSection(ch, SPROTO_ID_RES, rsp);
  return code < 0 ? code : 0;
}

int ProtoWriteSSLServiceRequest2(Channel& ch, const SSLServiceReq& req) {
  PObject request, response;
  InitRequest(request, "encrypt_channel");
  request["proto_ver"]["major"] = req.proto_ver.major;
  request["proto_ver"]["minor"] = req.proto_ver.minor;
  request["proto_ver"]["build"] = req.proto_ver.build;
  request["ssl_option"] = req.ssl_option;
  if (const int code = ProtoWriteHeader(ch, 0, SCMD_REQUEST_SSL_2); code < 0) return code;
  PStream stream;
  const KeepAlive keep_alive(response);
  int code = stream.Send(ch, request);
  if (code < 0) return StreamFailed(__LINE__, code);
  do {
    code = stream.Recv(ch, response);
    if (code < 0) return StreamFailed(__LINE__, code);
  } while (keep_alive.Take(response));
  const PObject& answer = response;
  return answer.hasMember("error") ? RefusalOfTls(answer["error"]["code"].asUInt32()) : 0;
}

int ProtoWriteSSLServiceRequest2OLD(Channel& ch, const SSLServiceReq& req,
                                    SSLServiceResponse& response) {
  int code = InTurn(
      [&] { return ch.FlushWrite(0); }, [&] { return ProtoWriteHeader(ch, 0, SCMD_REQUEST_SSL_2); },
      [&] { return ProtoWriteProtocolVersion(ch, req.proto_ver); },
      [&] { return ProtoWriteSection(ch, SPROTO_ID_SSL_OPTION, req.ssl_option); },
      [&] { return ch.FlushWrite(0); },
      [&] { return ProtoReadResponse(ch, SCMD_REQUEST_SSL_2, response.response_code); });
  if (code < 0) return code;
  if (response.response_code == SPROTO_RES_UPGRADE) {
    Logger::LogMsg(Logger::L_INFO, "proto_common_debug",
                   L"[INFO] proto-common(%d): Recv upgrade response\n", __LINE__);
  } else {
    code = ProtoReadSection(ch, SPROTO_ID_SSL_RESPONSE_OPTION, response.misc_response);
    if (code < 0) return code;
  }
  return response.response_code == SPROTO_RES_OK ? 0 : RefusalOfTls(response.response_code);
}

int ProtoWriteSSLServiceRequest(Channel& ch) {
  return InTurn([&] { return ch.FlushWrite(0); },
                [&] { return ProtoWriteHeader(ch, 0, SCMD_REQUEST_SSL); },
                [&] { return ch.FlushWrite(0); });
}

void InitRequest(PObject& request, const std::string& action) {
  request["_action"] = action.c_str();
  PObject& agent = request["_agent"];
  agent["platform"] = "Windows";
  agent["version"]["major"] = 3;
  agent["version"]["minor"] = 1;
  agent["version"]["build"] = 3317;
}

bool KeepAlive::Take(PObject& response) const {
  const PObject& object = response;
  if (object["type"].asStringView() != "keep_alive") return false;
  Restore(prepared_, response);
  if (response.isMap()) {
    response.asMap().erase("type");
    response.asMap().erase("alive");
  }
  return true;
}

}  // namespace tolven

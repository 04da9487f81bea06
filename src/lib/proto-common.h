// What client and server of the protocol share beyond the numbers: the header, texts for commands
// and refusals, small records in section form, the request for TLS, and files in section form.
//
// A channel is used by one thread; the only state is PROTO_VERSION, set before any thread runs.
// Results are 0, the channel's negative code, or a code of ErrorCodes. Failures are logged as
// "proto_common_debug".
#pragma once

#include <cstdint>

#include "lib/channel.h"
#include "lib/proto-constants.h"
#include "protocol/object.h"
#include "protocol/stream.h"
#include "ustring/ustring.h"

namespace tolven {

enum PV_TEST_CODE {
  PV_MATCH_SUPPORT = 0,
  PV_UNMATCH_SUPPORT = 1,
  PV_UNSUPPORT_OLD_SERVER = 2,
  PV_UNSUPPORT_OLD_CLIENT = 3,
};

// Older kinds of exchange, as bits.
enum SYNC_PROTO_TYPE_tag : unsigned {
  SPROTO_NONE = 0,
  SPROTO_AUTH = 1,
  SPROTO_NOTIFY = 2,
  SPROTO_CLIENT_LOGOUT = 4,
  SPROTO_EVENT_PULL = 8,
  SPROTO_EVENT_RECV = 16,
  SPROTO_EVENT_SEND = 32,
  SPROTO_USER_CTRL = 64,
  SPROTO_TEST_CONN = 128,
};

// The version that headers carry, 70 unless told otherwise.
void ProtoInit(std::uint8_t version);
// What a peer's version means for this one.
PV_TEST_CODE ProtoCheck(int proto_version);
const char* ProtoCmd2String(int cmd);
const char* ProtoGetErroString(int err);  // of an older status value, 0 to 4
// The error code for an answer in section form.
int ProtoResp2ErrorCode(std::uint32_t rsp);

int ProtoConnect(Channel& ch, const char* ip, int port);
void ProtoDisconnect(Channel& ch);
int ProtoWriteHeader(Channel& ch, std::uint16_t pkt_len, std::uint8_t cmd);
// Leaves the channel with a time-out of 10 seconds. All eight bytes are read before a wrong magic
// is told by -5.
int ProtoReadHeader(Channel& ch, std::uint16_t& pkt_len, std::uint8_t& cmd, std::uint8_t& version);

struct ObjectMetadata {
  std::uint32_t mtime = 0;
  std::uint64_t size = 0;
  ustring hash;
};
struct ObjectID {
  std::uint64_t sync_id = 0;
  ustring path;
};
struct CommonAttributeBlock {
  std::uint32_t mtime = 0;
};
struct View {
  std::uint64_t view_id = 0;
  bool is_denied = false, is_ro = false, is_encryption = false, is_mounted = false;
  ustring name;
};
struct ProtocolVersion {
  std::uint32_t major = 3, minor = 1, build = 3317;
};
struct FilterVersion {
  std::uint32_t major = 0, minor = 0, build = 0;
};
struct SSLServiceReq {
  ProtocolVersion proto_ver;
  std::uint32_t ssl_option = 1;
};
struct SSLServiceResponse {
  std::uint8_t response_code = 0;
  std::uint32_t misc_response = 0;
};

int ProtoWriteObjectId(Channel& ch, const ObjectID& id);
int ProtoReadObjectId(Channel& ch, ObjectID& id);
int ProtoWriteObjectMetadata(Channel& ch, const ObjectMetadata& metadata);
int ProtoReadObjectMetadata(Channel& ch, ObjectMetadata& metadata);
int ProtoWriteCommonAttributeBlock(Channel& ch, const CommonAttributeBlock& block);
int ProtoReadCommonAttributeBlock(Channel& ch, CommonAttributeBlock& block);
int ProtoWriteView(Channel& ch, const View& view);  // number and name alone
int ProtoReadView(Channel& ch, View& view);
int ProtoWriteProtocolVersion(Channel& ch, const ProtocolVersion& version);
int ProtoReadProtocolVersion(Channel& ch, ProtocolVersion& version);
int ProtoWriteFilterVersion(Channel& ch, const FilterVersion& version);
int ProtoReadFilterVersion(Channel& ch, FilterVersion& version);

int ProtoWriteKeepAliveControl(Channel& ch, std::uint32_t seconds);
int ProtoWriteBasicRequest(Channel& ch, std::uint8_t type, std::uint16_t pkt_len,
                           const ustring& session);
// The response code of an answer in section form to `exp_cmd`.
int ProtoReadResponse(Channel& ch, std::uint8_t exp_cmd, std::uint8_t& rsp);

// Ask for TLS, which begins behind a result of 0: in object form, in section form for older peers,
// and with a bare header for the oldest, which sends no answer.
int ProtoWriteSSLServiceRequest2(Channel& ch, const SSLServiceReq& req);
int ProtoWriteSSLServiceRequest2OLD(Channel& ch, const SSLServiceReq& req,
                                    SSLServiceResponse& response);
int ProtoWriteSSLServiceRequest(Channel& ch);

// A file in blocks of at most 8,192 bytes, whole or from an offset on. The reading forms store at
// `path`; an offset must be what the file holds already.
int ProtoWriteFile(Channel& ch, bool is_delta, platform::NativeFile file);
int ProtoWriteFile2(Channel& ch, bool is_delta, platform::NativeFile file, std::uint64_t offset);
int ProtoWriteFile(Channel& ch, bool is_delta, const ustring& path);
int ProtoWriteFile2(Channel& ch, bool is_delta, const ustring& path, std::uint64_t offset);
int ProtoReadFile(Channel& ch, bool& is_delta, const ustring& path);
int ProtoReadFile2(Channel& ch, bool& is_delta, const ustring& path, std::uint64_t offset);

// Starts a request in object form: what is wanted, and who wants it.
void InitRequest(PObject& request, const std::string& action);

// Tells the objects that only say that the peer still works on the answer. One object for each
// answer, made before anything is read into `response`.
class KeepAlive {
 public:
  explicit KeepAlive(const PObject& response) : prepared_(response) {}
  // Whether a keep-alive was read into `response`. If so, nothing is left of it, since the next
  // object is read into the same tree; what the caller had put there stays.
  bool Take(PObject& response) const;

 private:
  const PObject prepared_;
};

}  // namespace tolven

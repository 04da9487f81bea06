// Exchanges that the client starts outside its connections: one object pair on a channel of the
// caller's, and the older ones in section form. Log lines go to "proto_client_debug".
#pragma once

#include <cstdint>

#include "lib/channel.h"
#include "lib/proto-common.h"
#include "lib/proxy-info.h"
#include "protocol/object.h"
#include "protocol/stream.h"
#include "ustring/ustring.h"

namespace tolven {

// Sends a request and reads its answer, past all objects that only say that the peer still works.
// 0, or -2 for every failure.
int RunProtocol(Channel& ch, PStream& stream, std::uint8_t cmd, const PObject& request,
                PObject& response);

// What a server tells of itself before anybody has logged in.
int ProtoTestConnection(Channel& ch, std::uint8_t& version, ustring& serial, ustring& servID);
// The same on a channel of its own, which leads there through what is given and in use.
int ProtoTestConnectionProxyTunnel(const char* ip, int port, const ProxyInfo* proxy,
                                   const TunnelInfo* tunnel, bool use_ssl, std::uint8_t& version,
                                   ustring& serial, ustring& servID);
// Asks whether a user may log in; the answer is read by ProtoReadResponse.
int ProtoWriteCheckUser(Channel& ch, const ustring& username, const ustring& password);

// -1, with nothing sent, when the request lacks what it has to say.
int ProtoShareLink(Channel& ch, PStream& stream, const PObject& request, PObject& response);
int ProtoDownload(Channel& ch, PStream& stream, const PObject& request, PObject& response);

}  // namespace tolven

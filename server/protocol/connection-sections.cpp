// The older commands, in section form.
#include <algorithm>

#include "lib/proto-constants.h"
#include "lib/utility.h"
#include "server/protocol/connection.h"
#include "server/protocol/section-io.h"

namespace tolven::server {

namespace {

constexpr const char* kSerialNumber = "tolven-server";
constexpr std::uint32_t kLongestAlive = 3600;  // seconds a client may ask for

std::uint8_t CheckUser(Metadata& metadata, const ustring& name, const ustring& password) {
  User named, owner;
  const int found = metadata.FindUser(name.str(), named);
  if (found < 0) return SPROTO_RES_ERR;
  if (found == 0) return SPROTO_RES_USRERR;
  const int session = metadata.FindSession(password.str(), owner);
  if (session < 0) return SPROTO_RES_ERR;
  return session > 0 && owner.id == named.id ? SPROTO_RES_OK : SPROTO_RES_PASSERR;
}

}  // namespace

// Header, result, protocol version, serial number, server id.
Connection::Next Connection::ServeTestConnection() {
  const bool sent = channel_.WriteHeader(SCMD_TEST_CONN) == 0 &&
                    WriteSection(channel_, SPROTO_ID_RES, std::uint8_t{SPROTO_RES_OK}) == 0 &&
                    WriteSection(channel_, SPROTO_ID_PROTO_VERSION, kProtocolVersion) == 0 &&
                    WriteSection(channel_, SPROTO_ID_SERIAL_NUMBER, kSerialNumber) == 0 &&
                    WriteSection(channel_, SPROTO_ID_SERVER_ID, service_.server_id) == 0 &&
                    channel_.FlushWrite(0) == 0;
  return sent ? Next::kGoOn : Next::kEnd;
}

// The password of a user is one of the user's session tokens.
Connection::Next Connection::ServeUserCheck() {
  ustring name, encoded, password;
  if (ReadSection(channel_, SPROTO_ID_USER, name) < 0 ||
      ReadSection(channel_, SPROTO_ID_PASSWD, encoded) < 0) {
    return Next::kEnd;
  }
  SyncPassDec(encoded, password);
  return WriteResult(SCMD_USER_CHECK, CheckUser(service_.metadata, name, password));
}

// An option, a control word and the seconds that the client wants; nothing is answered.
Connection::Next Connection::ServeKeepAliveControl() {
  std::uint32_t option = 0, control = 0, seconds = 0;
  if (ReadSection(channel_, SPROTO_ID_KEEP_ALIVE_OPTION, option) < 0 ||
      ReadSection(channel_, SPROTO_ID_KEEP_ALIVE_CONTROL, control) < 0 ||
      ReadSection(channel_, SPROTO_ID_ALIVE, seconds) < 0) {
    return Next::kEnd;
  }
  if (control != 0) {
    idle_seconds_ = std::clamp<std::uint32_t>(seconds, 1, kLongestAlive) + kSlackSeconds;
  }
  return Next::kGoOn;
}

// The oldest request for TLS: a header alone.
Connection::Next Connection::ServeOldSsl() {
  const Next next = WriteResult(SCMD_REQUEST_SSL, SPROTO_RES_OK);
  return next == Next::kGoOn ? Next::kStartTls : next;
}

// Version as "major.minor.build" and an option; result and another option are answered.
Connection::Next Connection::ServeSectionSsl() {
  ustring version;
  std::uint32_t option = 0;
  if (ReadSection(channel_, SPROTO_ID_PROTO_VERSION_2, version) < 0 ||
      ReadSection(channel_, SPROTO_ID_SSL_OPTION, option) < 0) {
    return Next::kEnd;
  }
  const bool sent = channel_.WriteHeader(SCMD_REQUEST_SSL_2) == 0 &&
                    WriteSection(channel_, SPROTO_ID_RES, std::uint8_t{SPROTO_RES_OK}) == 0 &&
                    WriteSection(channel_, SPROTO_ID_SSL_RESPONSE_OPTION, std::uint32_t{0}) == 0 &&
                    channel_.FlushWrite(0) == 0;
  return sent ? Next::kStartTls : Next::kEnd;
}

Connection::Next Connection::WriteResult(std::uint8_t command, std::uint8_t result) {
  const bool sent = channel_.WriteHeader(command) == 0 &&
                    WriteSection(channel_, SPROTO_ID_RES, result) == 0 &&
                    channel_.FlushWrite(0) == 0;
  return sent ? Next::kGoOn : Next::kEnd;
}

}  // namespace tolven::server

// "connect" and "encrypt_channel".
#include "lib/proto-constants.h"
#include "server/protocol/command.h"

namespace tolven::server {

namespace {

constexpr std::uint32_t kMajor = 3, kMinor = 1;

}  // namespace

std::uint32_t Connect(Command& command) {
  PObject& version = command.answer["server"]["package_version"];
  version["major"] = kMajor;
  version["minor"] = kMinor;
  version["build"] = command.service.options.build;
  command.start_tls = command.request["do_ssl"].asBool();
  return SPROTO_ERR_OK;
}

// May come before "connect", so that not even the session travels in clear.
std::uint32_t EncryptChannel(Command& command) {
  command.start_tls = true;
  return SPROTO_ERR_OK;
}

}  // namespace tolven::server

#include "lib/tunnel-channel.h"

#include "lib/error-table.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "channel_debug";
constexpr std::size_t kBufferSize = 0x14000;

}  // namespace

TunnelChannel::TunnelChannel(const TunnelInfo& tunnel)
    : Channel(kBufferSize), tunnel_address(tunnel.tunnel_ip), tunnel_port(tunnel.tunnel_port) {}

void TunnelChannel::Close() { Channel::Close(); }

int TunnelChannel::Open(const char* host, int port) {
  if (host == nullptr || port < 0) return 0;
  if (const int code = Channel::Open(tunnel_address.c_str(), tunnel_port); code < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] tunnel_channel(%d): Connect failed\n",
                   __LINE__);
    return code;
  }
  int status = 0;
  const int code = AskRelay(host, port, status);
  if (code < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] tunnel_channel(%d): Open:: Handover to ssl fail.", __LINE__);
  } else if (status != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] tunnel_channel(%d): ZENTTunnelClientHandshake: failed, code: %d\n",
                   __LINE__, status);
  } else {
    return 0;
  }
  DropConnection();
  return ErrorCodes::ERR_IO;
}

}  // namespace tolven

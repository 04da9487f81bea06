#include "server/protocol/server-channel.h"

#include <utility>

#include "lib/proto-constants.h"

namespace tolven::server {

namespace {

constexpr std::uint32_t kHeaderSeconds = 10;

}  // namespace

int ServerChannel::ReadHeader(std::uint32_t idle_seconds, RequestHeader& header) {
  SetTimeout(idle_seconds);
  std::uint8_t first = 0;
  int result = PeekByte(first);
  if (result < 0) return result;
  SetTimeout(kHeaderSeconds);
  std::uint32_t magic = 0;
  result = ReadInt32(magic);
  if (result == 0) result = ReadByte(header.version);
  if (result == 0) result = ReadByte(header.command);
  if (result == 0) result = ReadInt16(header.length);
  if (result < 0) return result;
  return magic == kProtocolMagic ? 0 : kWrongMagic;
}

int ServerChannel::WriteHeader(std::uint8_t command) {
  int result = WriteInt32(kProtocolMagic);
  if (result == 0) result = WriteByte(kProtocolVersion);
  if (result == 0) result = WriteByte(command);
  return result < 0 ? result : WriteInt16(0);
}

int ServerChannel::PeekByte(std::uint8_t& value) {
  if (!unread_) {
    char byte = 0;
    std::size_t got = 0;
    const int result = Channel::Read(&byte, 1, got);
    if (result < 0) return result;
    unread_ = byte;
  }
  value = static_cast<std::uint8_t>(*unread_);
  return 0;
}

int ServerChannel::Read(char* data, std::size_t size) {
  std::size_t got = 0;
  return Read(data, size, got);
}

int ServerChannel::Read(char* data, std::size_t size, std::size_t& got) {
  if (!unread_ || size == 0) return Channel::Read(data, size, got);
  *data = *std::exchange(unread_, std::nullopt);
  const int result = Channel::Read(data + 1, size - 1, got);
  if (result == 0) got = size;
  return result;
}

}  // namespace tolven::server

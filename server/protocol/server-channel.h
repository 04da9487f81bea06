// A channel as the server reads it: the header of a request, and the first byte of a body that two
// forms share and that tells which one it is.
#pragma once

#include <cstdint>
#include <optional>

#include "lib/channel.h"

namespace tolven::server {

// What stands before every request, 8 bytes: magic, version, command, length of the body. The
// object form always tells the length 0, its body delimits itself.
struct RequestHeader {
  std::uint8_t version = 0;
  std::uint8_t command = 0;
  std::uint16_t length = 0;
};

class ServerChannel : public Channel {
 public:
  static constexpr int kWrongMagic = -5;

  using Channel::Channel;

  // Waits `idle_seconds` for a request to begin and 10 seconds, the time-out from then on, for the
  // rest of its header. 0, -2 for a channel that failed or was closed, kWrongMagic.
  int ReadHeader(std::uint32_t idle_seconds, RequestHeader& header);
  // Without a body; the caller flushes.
  int WriteHeader(std::uint8_t command);

  // Looks at the next byte and leaves it unread.
  int PeekByte(std::uint8_t& value);
  int Read(char* data, std::size_t size) override;
  int Read(char* data, std::size_t size, std::size_t& got) override;

 private:
  std::optional<char> unread_;
};

}  // namespace tolven::server

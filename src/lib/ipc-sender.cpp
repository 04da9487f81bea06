#include "lib/ipc-sender.h"

#include <cstddef>
#include <cstdint>

#include "protocol/stream.h"

namespace tolven {
namespace {

constexpr std::size_t kBufferSize = 0x14000;
constexpr std::uint32_t kSendSeconds = 60;
constexpr std::uint32_t kReplySeconds = 120;
constexpr std::uint32_t kFinishSeconds = 5;

}  // namespace

IPCSender::IPCSender() : c_(kBufferSize) { c_.SetTimeout(kSendSeconds); }

int IPCSender::send(const PObject& msg, bool expect_reply, PObject& reply) {
  PStream stream;
  if (stream.Send(c_, msg) < 0) return -1;
  return expect_reply ? recv(reply) : 0;
}

int IPCSender::send(const PObject& msg) {
  PObject unused;
  return send(msg, false, unused);
}

int IPCSender::recv(PObject& msg) {
  PStream stream;
  c_.SetTimeout(kReplySeconds);
  const int result = stream.Recv(c_, msg);
  c_.SetTimeout(kSendSeconds);
  return result < 0 ? -1 : 0;
}

void IPCSender::finish() {
  char unexpected = 0;
  c_.SetTimeout(kFinishSeconds);
  (void)c_.Read(&unexpected, 1);
  c_.SetTimeout(kSendSeconds);
}

int IPCSender::connect(int port) {
  // The channel takes a negative port for "nothing to do".
  return c_.Open("127.0.0.1", port) < 0 || c_.IsClosed() ? -1 : 0;
}

int IPCSender::connect(const std::string&) { return -1; }

int IPCSender::assign(Channel::CH_SOCK_T fd) { return c_.Open(fd, true) < 0 ? -1 : 0; }

}  // namespace tolven

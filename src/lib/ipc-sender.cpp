#include "lib/ipc-sender.h"

#include "protocol/stream.h"

namespace tolven {

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
  return stream.Recv(c_, msg) < 0 ? -1 : 0;
}

int IPCSender::connect(int port) {
  // The channel takes a negative port for "nothing to do".
  return c_.Open("127.0.0.1", port) < 0 || c_.IsClosed() ? -1 : 0;
}

int IPCSender::connect(const std::string&) { return -1; }

int IPCSender::assign(Channel::CH_SOCK_T fd) { return c_.Open(fd, true) < 0 ? -1 : 0; }

}  // namespace tolven

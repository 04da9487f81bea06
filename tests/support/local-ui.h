// The UI's end of the local messages, for tests.
#pragma once

#include <gtest/gtest.h>

#include "lib/channel.h"
#include "lib/ipc-listener.h"
#include "lib/ipc-sender.h"
#include "protocol/stream.h"

namespace tolven::test {

class LocalUi {
 public:
  // Listens on a free port above `first`.
  explicit LocalUi(int first = 20'000) : port_(listener_.prepare(first)) {
    listener_.setTimeout(std::chrono::seconds(60));
    EXPECT_GT(port_, 0);
  }

  int port() const { return port_; }

  // The next message; null when none comes.
  PObject Receive() {
    PObject message;
    if (!TryReceive(message)) ADD_FAILURE() << "no message";
    return message;
  }
  // The same for senders that may be killed on the way or have nothing to tell.
  bool TryReceive(PObject& message) {
    Channel channel;
    PStream stream;
    message.clear();
    if (listener_.isReady() && channel.Open(listener_.accept(), true) == 0 &&
        stream.Recv(channel, message) >= 0) {
      return true;
    }
    message.clear();
    return false;
  }

  // One request to a daemon and its reply; null when none comes.
  static PObject Ask(int daemon_port, const PObject& request) {
    IPCSender sender;
    PObject reply;
    if (sender.connect(daemon_port) < 0 || sender.send(request, true, reply) < 0) reply.clear();
    return reply;
  }

 private:
  IPCListener listener_;
  int port_;
};

}  // namespace tolven::test

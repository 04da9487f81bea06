// One connection to a local listener that carries one value tree, and perhaps one back. Closed when
// it goes out of scope. Used by one thread.
//
// Every call ends. Connecting and sending fail after 60 seconds in which no byte moved, receiving
// after 120: the daemon may need tens of seconds before it answers, while workers let go of a
// session. The end of the peer's process closes the connection, and is noticed at once.
#pragma once

#include <atomic>
#include <string>

#include "lib/channel.h"
#include "protocol/object.h"

namespace tolven {

// Results are 0 or -1.
class IPCSender {
 public:
  IPCSender();
  virtual ~IPCSender() = default;
  IPCSender(const IPCSender&) = delete;
  IPCSender& operator=(const IPCSender&) = delete;

  // With `expect_reply` waits for the answer, too.
  virtual int send(const PObject& msg, bool expect_reply, PObject& reply);
  virtual int send(const PObject& msg);
  virtual int recv(PObject& msg);

  // After a message without an answer: waits until the peer has read it and closed its end, at most
  // 5 seconds. A peer finds out who sends only while our end is open.
  void finish();

  int connect(int port);                 // on 127.0.0.1
  int connect(const std::string& path);  // always -1: domain sockets are not offered
  int assign(Channel::CH_SOCK_T fd);     // adopts a connected socket
  void close() { c_.Close(); }

  // `*flag`, which stays the caller's, ends the current and all later I/O once it is not 0.
  void setFlag(std::atomic<int>* flag) { c_.SetFlag(flag); }

 private:
  Channel c_;
};

}  // namespace tolven

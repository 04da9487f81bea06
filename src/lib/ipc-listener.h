// The listening end of the local messages between the daemon and the programs of its user: TCP on
// 127.0.0.1, one value tree for each connection. Used by one thread; failures are logged under
// "channel_ui_debug".
#pragma once

#include <chrono>
#include <string>

#include "platform/sockets.h"
#include "ustring/ustring.h"

namespace tolven {

class IPCListener {
 public:
  using socket_type = platform::NativeSocket;

  IPCListener() = default;
  ~IPCListener() { close(); }
  IPCListener(const IPCListener&) = delete;
  IPCListener& operator=(const IPCListener&) = delete;

  // How long isReady() waits; 3 seconds unless set.
  void setTimeout(std::chrono::milliseconds time) { timeout_ = time; }

  // Listens on the first free port at or above `start_port`: that port, or -1. What was open is
  // closed first.
  int prepare(int start_port);
  // Always -1: domain sockets are not offered.
  int prepare(const std::string& path);

  // Waits for a connection; false when none came in time or nothing is open.
  bool isReady() const;
  // The accepted socket, which is the caller's, or -1.
  socket_type accept();
  void close();

  // A socket that listens on exactly `port`, or all ones.
  static socket_type OpenSocket(int port);
  static int CloseSocket(socket_type socket);
  static int OpenDomainSocket(const std::string& path);
  static void CloseDomainSocket(socket_type) {}

 private:
  static int do_bind(socket_type socket, int start_port);

  std::chrono::milliseconds timeout_{3000};
  socket_type fd_ = platform::kInvalidSocket;
};

}  // namespace tolven

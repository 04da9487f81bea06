// The daemon's control socket: one request and one reply for each connection, strictly one at a
// time. Only processes of the same user, or of an administrator, are heard. A client has 10 seconds
// to bring its request, and as long to take the reply; whoever stalls is cut off.
//
// Used by one thread. Failures of a connection are logged under "client_debug" and end nothing.
#pragma once

#include "lib/ipc-listener.h"
#include "protocol/object.h"

namespace tolven {

class TolvenhubApp;

class ControlServer {
 public:
  explicit ControlServer(TolvenhubApp& app) : app_(app) {}
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // Listens where the settings tell. On a port, which is the first free one from the UI's port on,
  // tells it to the UI. 0, or -1 when either failed.
  int Open();
  // Serves until "stop" has been carried out, which gets no reply.
  void Serve();
  void Close() { listener_.close(); }

 private:
  int OpenPath(const ustring& path);
  int OpenPort(int ui_port);
  // False after "stop".
  bool ServeOne(IPCListener::socket_type socket);

  TolvenhubApp& app_;
  IPCListener listener_;
};

}  // namespace tolven

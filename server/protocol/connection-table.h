// The connections that are being served, each on a thread of its own.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <thread>

#include "platform/sockets.h"
#include "server/protocol/connection.h"

namespace tolven::server {

struct Service;

// Used by the thread that accepts connections.
class ConnectionTable {
 public:
  explicit ConnectionTable(Service& service) : service_(service) {}
  ~ConnectionTable();
  ConnectionTable(const ConnectionTable&) = delete;
  ConnectionTable& operator=(const ConnectionTable&) = delete;

  // Serves a connection; beyond the most that may be open it is closed.
  void Add(platform::NativeSocket socket);
  // Forgets those that have ended, and ends those that never logged in.
  void Sweep();

 private:
  struct Entry {
    std::unique_ptr<Connection> connection;
    std::thread thread;
  };

  Service& service_;
  std::list<Entry> entries_;
};

}  // namespace tolven::server

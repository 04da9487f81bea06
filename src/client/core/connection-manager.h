// The table of connections. May be used by any thread; reload() holds the table until running
// exchanges of its connection have ended, so others wait meanwhile.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "client/core/connection.h"
#include "platform/mutex.h"

namespace tolven {

class ConnectionManager {
 public:
  static ConnectionManager& getInstance();

  ConnectionManager() = default;
  ConnectionManager(const ConnectionManager&) = delete;
  ConnectionManager& operator=(const ConnectionManager&) = delete;

  // 0, or -1 when the id is there; the old connection stays.
  int add(const ConnectionInfo& info, const ProxyInfo* proxy, const TunnelInfo* tunnel)
      EXCLUDES(lock);
  // Closes the channels and changes what is known; proxy and tunnel stay when null. 0, or -1 when
  // the id is unknown. The caller holds no channel of the connection.
  int reload(const ConnectionInfo& info, const ProxyInfo* proxy, const TunnelInfo* tunnel)
      EXCLUDES(lock);
  // The connection dies with the last copy.
  void remove(std::uint64_t conn_id) EXCLUDES(lock);
  void clear() EXCLUDES(lock);
  // 0 and a copy that shares the channels, or -1 and `out` as it was.
  int get(std::uint64_t conn_id, Connection& out) EXCLUDES(lock);
  // Appends all. The number of them.
  int get(std::vector<Connection>& out) EXCLUDES(lock);

 private:
  Mutex lock;
  std::map<std::uint64_t, shared_pointer<Connection>> index GUARDED_BY(lock);
};

}  // namespace tolven

#include "client/core/connection-manager.h"

#include <memory>

#include "client/core/channel-pool.h"

namespace tolven {

ConnectionManager& ConnectionManager::getInstance() {
  static ConnectionManager instance;
  return instance;
}

int ConnectionManager::add(const ConnectionInfo& info, const ProxyInfo* proxy,
                           const TunnelInfo* tunnel) {
  const MutexLock hold(lock);
  if (index.contains(info.conn_id)) return -1;
  index[info.conn_id] = std::make_shared<Connection>(info, proxy, tunnel);
  return 0;
}

int ConnectionManager::reload(const ConnectionInfo& info, const ProxyInfo* proxy,
                              const TunnelInfo* tunnel) {
  const MutexLock hold(lock);
  const auto found = index.find(info.conn_id);
  if (found == index.end()) return -1;
  Connection& connection = *found->second;
  if (proxy != nullptr) connection.proxy_info = *proxy;
  if (tunnel != nullptr) connection.tunnel_info = *tunnel;
  connection.pool->reset(Connection::kCapacity, proxy, tunnel,
                         [&connection, &info] { connection.conn_info = info; });
  connection.generation_ = connection.pool->generation();
  return 0;
}

void ConnectionManager::remove(std::uint64_t conn_id) {
  std::map<std::uint64_t, shared_pointer<Connection>>::node_type removed;
  const MutexLock hold(lock);
  removed = index.extract(conn_id);
}

void ConnectionManager::clear() {
  std::map<std::uint64_t, shared_pointer<Connection>> removed;
  const MutexLock hold(lock);
  removed.swap(index);
}

int ConnectionManager::get(std::uint64_t conn_id, Connection& out) {
  Connection copy;
  {
    const MutexLock hold(lock);
    const auto found = index.find(conn_id);
    if (found == index.end()) return -1;
    copy = *found->second;
  }
  out = std::move(copy);
  return 0;
}

int ConnectionManager::get(std::vector<Connection>& out) {
  const MutexLock hold(lock);
  for (const auto& [conn_id, connection] : index) out.push_back(*connection);
  return static_cast<int>(index.size());
}

}  // namespace tolven

// A server account as the engine uses it: how to reach it, and a pool of channels that the syncer
// and the workers share. Copies share the pool, so that a thread holds one by value while the
// control thread changes or removes the connection.
//
// A Connection belongs to one thread, the pool to all. Messages go to "connection_debug".
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "client/core/connection-info.h"
#include "lib/channel.h"
#include "lib/error-table.h"
#include "lib/proxy-info.h"
#include "lib/shared-pointer.h"

namespace tolven {

class ChannelPool;

class Connection : public ErrorCodes {
 public:
  static constexpr std::size_t kCapacity = 4;  // exchanges in flight; one more waits

  // A channel that was taken from the pool, and until when it can be trusted to be open.
  class ChannelStat {
   public:
    static constexpr std::uint32_t kExpired = 0xFFFFFFFF;  // closed, or never opened

    ChannelStat() = default;
    ChannelStat(Channel* channel, std::uint32_t expire) : channel_(channel), expire_(expire) {}

    // The first to lapse comes first, what has to be opened last.
    bool operator<(const ChannelStat& other) const { return expire_ > other.expire_; }

    // One that refuses everything when there is none.
    Channel& getChannel() const;
    Channel* channel() const { return channel_; }
    std::uint32_t expire() const { return expire_; }

    void setExpired();  // closes it
    // Open, with no promise of the server yet.
    void setConnected() { expire_ = 0; }
    // The server keeps it open for so long; 0: not at all, and it is closed.
    void setAliveInterval(std::uint32_t seconds);
    bool isExpired() const;  // it is closed, or may be
    bool isExpired2() const { return expire_ == kExpired; }

   private:
    friend class Connection;
    friend class ChannelPool;

    Channel* channel_ = nullptr;
    std::uint32_t expire_ = kExpired;  // seconds since 1970
    std::uint64_t generation_ = 0;     // of the connection that took it
  };

  Connection() = default;
  // Without a proxy or tunnel when null.
  Connection(const ConnectionInfo& info, const ProxyInfo* proxy, const TunnelInfo* tunnel);

  // Waits for a free channel. A stat without one when there is no pool, or when `*abort_flag`
  // became non-zero meanwhile; null: there is no flag.
  ChannelStat pop(const std::atomic<int>* abort_flag = nullptr);
  // Gives a channel back, which others may use from then on. One that was taken before the
  // connection was reloaded comes back closed.
  void push(ChannelStat stat);
  // Makes known what became of a channel that is still in use.
  void update(const ChannelStat& stat);

  // Whether some channel is open for sure, or, for the second, was not found closed.
  bool isConnected() const;
  bool isConnected2() const;
  void clear();

  ConnectionInfo& getConnectionInfo() { return conn_info; }
  const ConnectionInfo& getConnectionInfo() const { return conn_info; }
  ProxyInfo& getProxyInfo() { return proxy_info; }
  TunnelInfo& getTunnelInfo() { return tunnel_info; }

 private:
  friend class ConnectionManager;

  shared_pointer<ChannelPool> pool;
  std::uint64_t generation_ = 0;  // of the pool when these infos were made
  ConnectionInfo conn_info;
  ProxyInfo proxy_info;
  TunnelInfo tunnel_info;
};

}  // namespace tolven

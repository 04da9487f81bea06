#include "client/core/connection.h"

#include "client/core/bad-channel.h"
#include "client/core/channel-pool.h"
#include "lib/log.h"
#include "platform/clock.h"

namespace tolven {

namespace {

std::uint32_t Now() { return static_cast<std::uint32_t>(platform::clock().WallSeconds()); }

}  // namespace

Channel& Connection::ChannelStat::getChannel() const {
  return channel_ != nullptr ? *channel_ : BadChannel::Instance();
}

void Connection::ChannelStat::setExpired() {
  expire_ = kExpired;
  if (channel_ != nullptr) channel_->Close();
}

void Connection::ChannelStat::setAliveInterval(std::uint32_t seconds) {
  if (seconds == 0) {
    setExpired();
  } else {
    expire_ = Now() + seconds;
  }
}

bool Connection::ChannelStat::isExpired() const { return expire_ == kExpired || expire_ < Now(); }

Connection::Connection(const ConnectionInfo& info, const ProxyInfo* proxy, const TunnelInfo* tunnel)
    : pool(std::make_shared<ChannelPool>(kCapacity, proxy, tunnel)),
      generation_(pool->generation()),
      conn_info(info) {
  if (proxy != nullptr) proxy_info = *proxy;
  if (tunnel != nullptr) tunnel_info = *tunnel;
}

Connection::ChannelStat Connection::pop(const std::atomic<int>* abort_flag) {
  if (pool == nullptr) return {};
  ChannelStat stat = pool->pop(abort_flag);
  stat.generation_ = generation_;
  return stat;
}

void Connection::push(ChannelStat stat) {
  if (pool != nullptr && stat.channel_ != nullptr) pool->push(stat);
}

void Connection::update(const ChannelStat& stat) {
  if (pool != nullptr && stat.channel_ != nullptr) pool->update(stat);
}

bool Connection::isConnected() const { return pool != nullptr && pool->isConnected(); }

bool Connection::isConnected2() const {
  if (pool != nullptr) return pool->isConnected2();
  Logger::LogMsg(Logger::L_ERR, "connection_debug",
                 L"[ERROR] connection(%d): no connection pool!\n", __LINE__);
  return false;
}

void Connection::clear() {
  pool.reset();
  generation_ = 0;
  conn_info.clear();
  proxy_info.clear();
  tunnel_info.clear();
}

}  // namespace tolven

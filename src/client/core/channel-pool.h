// The channels of one connection, shared by all copies of it. As many exchanges are in flight as
// there are channels; a further one waits for a channel to come back. Open channels are handed out
// before closed ones, the one that would lapse soonest first.
//
// May be used by any thread. A channel that is out belongs to who has it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <queue>
#include <vector>

#include "client/core/connection.h"
#include "lib/proxy-info.h"
#include "platform/mutex.h"

namespace tolven {

class ChannelPool {
 public:
  using ChannelStat = Connection::ChannelStat;

  ChannelPool(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel);
  // Closes all channels; nobody has one any more.
  ~ChannelPool();
  ChannelPool(const ChannelPool&) = delete;
  ChannelPool& operator=(const ChannelPool&) = delete;

  // A stat without a channel when `*abort_flag` became non-zero before there was one.
  ChannelStat pop(const std::atomic<int>* abort_flag) EXCLUDES(lock);
  // A channel that the pool does not know is ignored.
  void push(ChannelStat stat) EXCLUDES(lock);
  void update(const ChannelStat& stat) EXCLUDES(lock);

  // Waits until all channels are back, and puts closed ones of another kind in their place.
  // `exchange` is called before anybody can take one. Nobody may hold a channel and wait for this.
  void reset(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel,
             const std::function<void()>& exchange) EXCLUDES(lock);

  bool isConnected() EXCLUDES(lock);
  bool isConnected2() EXCLUDES(lock);
  // How often the pool was filled.
  std::uint64_t generation() EXCLUDES(lock);

 private:
  void Fill(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel) REQUIRES(lock);
  std::list<ChannelStat>::iterator FindInUse(const Channel* channel) REQUIRES(lock);

  Mutex lock;
  CondVar return_signal, freeze_signal;
  bool freeze_mode GUARDED_BY(lock) = false;
  std::size_t total_size GUARDED_BY(lock) = 0;
  std::uint64_t generation_ GUARDED_BY(lock) = 0;
  std::priority_queue<ChannelStat> ready_q GUARDED_BY(lock);
  std::list<ChannelStat> in_use_q GUARDED_BY(lock);
  std::vector<std::unique_ptr<Channel>> channels_ GUARDED_BY(lock);
};

}  // namespace tolven

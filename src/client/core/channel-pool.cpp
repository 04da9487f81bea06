#include "client/core/channel-pool.h"

#include <algorithm>
#include <chrono>

#include "lib/channel-factory.h"
#include "lib/log.h"

namespace tolven {

namespace {

// How often somebody who waits looks at the abort flag.
constexpr std::chrono::milliseconds kLook{100};

void LogReset(std::size_t capacity) {
  Logger::LogMsg(Logger::L_INFO, "connection_debug",
                 L"[INFO] connection(%d): reset channel pool with capacity %lu\n", __LINE__,
                 capacity);
}

bool IsAborted(const std::atomic<int>* abort_flag) {
  return abort_flag != nullptr && *abort_flag != 0;
}

}  // namespace

ChannelPool::ChannelPool(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel) {
  const MutexLock hold(lock);
  Fill(capacity, proxy, tunnel);
}

ChannelPool::~ChannelPool() { LogReset(0); }

ChannelPool::ChannelStat ChannelPool::pop(const std::atomic<int>* abort_flag) {
  const MutexLock hold(lock);
  while (freeze_mode || ready_q.empty()) {
    if (IsAborted(abort_flag)) return {};
    (freeze_mode ? freeze_signal : return_signal).WaitFor(lock, kLook);
  }
  const ChannelStat stat = ready_q.top();
  ready_q.pop();
  in_use_q.push_back(stat);
  return stat;
}

void ChannelPool::push(ChannelStat stat) {
  {
    const MutexLock hold(lock);
    if (FindInUse(stat.channel_) == in_use_q.end()) return;
    if (stat.generation_ == generation_) {
      in_use_q.erase(FindInUse(stat.channel_));
      ready_q.push(stat);
      return_signal.NotifyAll();
      return;
    }
  }
  // Opened with what is no longer true. Closing may take a while, so it is not done under the lock.
  stat.setExpired();
  const MutexLock hold(lock);
  in_use_q.erase(FindInUse(stat.channel_));
  ready_q.push(stat);
  return_signal.NotifyAll();
}

void ChannelPool::update(const ChannelStat& stat) {
  const MutexLock hold(lock);
  const auto found = FindInUse(stat.channel_);
  if (found != in_use_q.end()) found->expire_ = stat.expire_;
}

void ChannelPool::reset(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel,
                        const std::function<void()>& exchange) {
  const MutexLock hold(lock);
  LogReset(capacity);
  freeze_mode = true;
  while (ready_q.size() != total_size) return_signal.Wait(lock);
  ready_q = {};
  for (const auto& channel : channels_) channel->Close();
  Fill(capacity, proxy, tunnel);
  exchange();
  freeze_mode = false;
  freeze_signal.NotifyAll();
  return_signal.NotifyAll();
}

void ChannelPool::Fill(std::size_t capacity, const ProxyInfo* proxy, const TunnelInfo* tunnel) {
  channels_.clear();
  total_size = capacity;
  ++generation_;
  for (std::size_t i = 0; i < capacity; ++i) {
    channels_.push_back(CreateChannelByConnectionType(proxy, tunnel));
    ready_q.emplace(channels_.back().get(), ChannelStat::kExpired);
  }
}

std::list<ChannelPool::ChannelStat>::iterator ChannelPool::FindInUse(const Channel* channel) {
  return std::find_if(in_use_q.begin(), in_use_q.end(),
                      [channel](const ChannelStat& stat) { return stat.channel_ == channel; });
}

bool ChannelPool::isConnected() {
  const MutexLock hold(lock);
  if (!ready_q.empty() && !ready_q.top().isExpired()) return true;
  return std::any_of(in_use_q.begin(), in_use_q.end(),
                     [](const ChannelStat& stat) { return !stat.isExpired(); });
}

bool ChannelPool::isConnected2() {
  const MutexLock hold(lock);
  if (!ready_q.empty() && !ready_q.top().isExpired2()) return true;
  return std::any_of(in_use_q.begin(), in_use_q.end(),
                     [](const ChannelStat& stat) { return !stat.isExpired2(); });
}

std::uint64_t ChannelPool::generation() {
  const MutexLock hold(lock);
  return generation_;
}

}  // namespace tolven

// Work that may outlast a client's patience of 90 seconds: hashing, deltas, copies of large files.
// It runs on a thread of its own while the connection's thread tells the client now and then that
// the answer is still to come.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "lib/channel.h"
#include "protocol/stream.h"

namespace tolven::server {

class LongWork {
 public:
  // All three are the connection's. `end` becomes not 0 when the connection is to end; the work is
  // told by the same means when the client is gone.
  LongWork(Channel& channel, PStream& stream, std::atomic<int>& end)
      : channel_(channel), stream_(stream), end_(end) {}

  void SetInterval(std::chrono::milliseconds interval) { interval_ = interval; }
  void SetAlive(std::uint32_t seconds) { alive_ = seconds; }

  // Runs `work` for something of `size` bytes, here when that cannot take long. The flag of
  // AbortFlag() tells it to stop early. False when the connection is over.
  bool Run(std::uint64_t size, const std::function<void()>& work);
  std::atomic<int>* AbortFlag() { return &end_; }

 private:
  bool SendKeepAlive();

  Channel& channel_;
  PStream& stream_;
  std::atomic<int>& end_;
  std::chrono::milliseconds interval_{20000};
  std::uint32_t alive_ = 300;
};

}  // namespace tolven::server

#include "server/protocol/long-work.h"

#include <thread>

#include "platform/clock.h"
#include "platform/mutex.h"

namespace tolven::server {

namespace {

constexpr std::uint64_t kShortWork = 256 * 1024;      // bytes that are done with in milliseconds
constexpr std::chrono::milliseconds kLookAgain{100};  // for the end of the connection

class Completion {
 public:
  void Set() {
    MutexLock lock(mutex_);
    done_ = true;
    changed_.NotifyAll();
  }
  bool WaitFor(std::chrono::milliseconds time) {
    MutexLock lock(mutex_);
    if (!done_) changed_.WaitFor(mutex_, time);
    return done_;
  }

 private:
  Mutex mutex_;
  CondVar changed_;
  bool done_ GUARDED_BY(mutex_) = false;
};

}  // namespace

bool LongWork::Run(std::uint64_t size, const std::function<void()>& work) {
  if (size <= kShortWork) {
    work();
    return end_ == 0;
  }
  Completion completion;
  std::thread worker([&] {
    work();
    completion.Set();
  });
  std::int64_t told = platform::clock().MonotonicMilliseconds();
  while (!completion.WaitFor(std::min(kLookAgain, interval_))) {
    const std::int64_t now = platform::clock().MonotonicMilliseconds();
    if (end_ != 0 || now - told < interval_.count()) continue;
    if (!SendKeepAlive()) end_ = 1;
    told = now;
  }
  worker.join();
  return end_ == 0;
}

bool LongWork::SendKeepAlive() {
  PObject object;
  object["type"] = "keep_alive";
  object["alive"] = alive_;
  return stream_.Send(channel_, object) == PStream::ERR_OK;
}

}  // namespace tolven::server

// Makes calls of the platform fail in the program that this is linked into. The environment
// variable TOLVEN_SEAM_FAULTS names a file, which is looked at every few milliseconds: "SEED
// PER_MILLION" tells which calls fail and how many of them; while it is not there, none does. How
// many have failed so far stands in the same place under ".count".
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "platform/forwarding-dir-watch.h"
#include "platform/forwarding-files.h"
#include "platform/forwarding-sockets.h"
#include "platform/mutex.h"
#include "platform/process.h"

namespace tolven::test {

namespace {

using platform::CallHook;
using platform::ErrorKind;
using platform::Status;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kMillion = 1'000'000;
constexpr std::chrono::milliseconds kLook(10);

// Any number in, one that looks drawn by lot out.
std::uint64_t Scatter(std::uint64_t number) {
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31);
}

class SeamFaults {
 public:
  explicit SeamFaults(std::string path) : path_(std::move(path)) {
    platform::SetFiles(&files_);
    platform::SetSockets(&sockets_);
    platform::SetDirWatch(&dir_watch_);
  }

 private:
  // That something is not there is never told falsely: no disk does so.
  CallHook FilesHook() {
    return Hook({ErrorKind::kOther, ErrorKind::kNoSpace, ErrorKind::kTooMany, ErrorKind::kBusy,
                 ErrorKind::kAccessDenied});
  }
  CallHook SocketsHook() {
    return Hook(
        {ErrorKind::kOther, ErrorKind::kRefused, ErrorKind::kTimedOut, ErrorKind::kTooMany});
  }
  CallHook DirWatchHook() { return Hook({ErrorKind::kOther, ErrorKind::kTooMany}); }
  CallHook Hook(std::vector<ErrorKind> kinds) {
    return [this, kinds = std::move(kinds)](const char*) { return Next(kinds); };
  }

  Status Next(const std::vector<ErrorKind>& kinds) {
    MutexLock lock(mutex_);
    Look();
    if (rate_ == 0) return {};
    const std::uint64_t lot = Scatter(seed_ * kMillion + ++calls_);
    if (lot % kMillion >= rate_) return {};
    ++failed_;
    Status status;
    status.kind = kinds[lot / kMillion % kinds.size()];
    return status;
  }
  void Look() REQUIRES(mutex_) {
    const Clock::time_point now = Clock::now();
    if (now < next_look_) return;
    next_look_ = now + kLook;
    std::uint64_t seed = 0, rate = 0;
    std::ifstream(path_) >> seed >> rate;
    if (seed != seed_) calls_ = 0;
    seed_ = seed;
    rate_ = rate;
    if (failed_ == told_) return;
    std::ofstream(path_ + ".count") << failed_;
    told_ = failed_;
  }

  const std::string path_;
  platform::ForwardingFiles files_{platform::files(), FilesHook()};
  platform::ForwardingSockets sockets_{platform::sockets(), SocketsHook()};
  platform::ForwardingDirWatchService dir_watch_{platform::dir_watch(), DirWatchHook()};
  Mutex mutex_;
  Clock::time_point next_look_ GUARDED_BY(mutex_);
  std::uint64_t seed_ GUARDED_BY(mutex_) = 0, rate_ GUARDED_BY(mutex_) = 0;
  std::uint64_t calls_ GUARDED_BY(mutex_) = 0;
  std::uint64_t failed_ GUARDED_BY(mutex_) = 0, told_ GUARDED_BY(mutex_) = 0;
};

SeamFaults* Install() {
  const ustring path = platform::process().Environment("TOLVEN_SEAM_FAULTS");
  return path.empty() ? nullptr : new SeamFaults(path.str());
}

// Before main(), and for as long as the process lives.
const SeamFaults* const installed = Install();

}  // namespace

}  // namespace tolven::test

#include <poll.h>

#include <algorithm>
#include <chrono>

#include "platform/dir-watch.h"
#include "platform/errno-linux.h"
#include "platform/mutex.h"
#include "platform/service-slot.h"
#include "platform/tree-watcher-linux.h"

namespace tolven::platform {

namespace {

using SteadyClock = TreeWatcher::Clock;
using Deadline = std::optional<SteadyClock::time_point>;

class LinuxDirWatch : public DirWatch {
 public:
  LinuxDirWatch(const ustring& root, const ustring& skip_name) : watcher_(root, skip_name) {}

  Status Start() {
    MutexLock lock(mutex_);
    return watcher_.Start();
  }
  WatchResult Read(std::vector<WatchRecord>& records, Status& status) override {
    MutexLock lock(mutex_);
    return watcher_.Read(records, status);
  }
  // The descriptor to wait on, -1 when there is nothing to wait for any more, and when to read in
  // any case.
  int Waitable(Deadline& due) {
    MutexLock lock(mutex_);
    if (watcher_.ended()) return -1;
    due = watcher_.Due();
    return watcher_.fd();
  }

 private:
  Mutex mutex_;
  TreeWatcher watcher_ GUARDED_BY(mutex_);
};

// Milliseconds until `deadline`, rounded up; -1 for never.
int TimeLeft(const Deadline& deadline, SteadyClock::time_point now) {
  if (!deadline) return -1;
  if (*deadline <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - now).count();
  return static_cast<int>(std::min<decltype(left)>(left, 1'000'000'000));
}

class LinuxDirWatchService : public DirWatchService {
 public:
  Status Open(const ustring& root, const ustring& skip_name,
              std::shared_ptr<DirWatch>& watch) override {
    watch.reset();
    auto opened = std::make_shared<LinuxDirWatch>(root, skip_name);
    const Status status = opened->Start();
    if (status.ok()) watch = std::move(opened);
    return status;
  }

  int Wait(const std::vector<std::shared_ptr<DirWatch>>& watches, int timeout_ms,
           Status& status) override {
    status = {};
    const Deadline end =
        timeout_ms < 0 ? Deadline() : SteadyClock::now() + std::chrono::milliseconds(timeout_ms);
    std::vector<pollfd> polled(watches.size());
    for (;;) {
      Deadline wake = end;
      int due_first = -1;
      for (std::size_t i = 0; i < watches.size(); ++i) {
        Deadline due;
        auto* const watch = dynamic_cast<LinuxDirWatch*>(watches[i].get());
        polled[i] = {watch != nullptr ? watch->Waitable(due) : -1, POLLIN, 0};
        if (due && (!wake || *due < *wake)) {
          wake = due;
          due_first = static_cast<int>(i);
        }
      }
      const int left = TimeLeft(wake, SteadyClock::now());
      const int count = ::poll(polled.data(), polled.size(), left);
      if (count < 0 && errno != EINTR) {
        status = LastError();
        return -2;
      }
      if (count > 0) return FirstReady(polled);
      if (count == 0) return due_first;
    }
  }

  ustring LimitHint() override {
    return "fs.inotify.max_user_watches; raise it with: sysctl fs.inotify.max_user_watches=1048576";
  }

 private:
  static int FirstReady(const std::vector<pollfd>& polled) {
    const auto ready = [](const pollfd& each) { return each.revents != 0; };
    return static_cast<int>(std::find_if(polled.begin(), polled.end(), ready) - polled.begin());
  }
};

using Slot = ServiceSlot<DirWatchService, LinuxDirWatchService>;

}  // namespace

DirWatchService& dir_watch() { return Slot::Get(); }
DirWatchService* SetDirWatch(DirWatchService* service) { return Slot::Set(service); }

}  // namespace tolven::platform

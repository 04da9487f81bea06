#include "platform/volume-monitor-linux.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/errno-linux.h"
#include "platform/mount-table-linux.h"
#include "platform/system-file-linux.h"

namespace tolven::platform {

namespace {

class LinuxVolumeMonitor : public VolumeMonitor {
 public:
  LinuxVolumeMonitor()
      : stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), create_error_(stop_ < 0 ? errno : 0) {}
  ~LinuxVolumeMonitor() override {
    if (stop_ >= 0) ::close(stop_);
  }

  Status Prepare(const ustring&, Step&) override { return {}; }
  Status Release() override { return {}; }

  Status Run(const ustring&, Listener& listener) override {
    if (stop_ < 0) return StatusFromErrno(create_error_);
    const int table = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (table < 0) return LastError();
    const Status status = Watch(table, listener);
    ::close(table);
    return status;
  }

  void Stop() override {
    // Stays readable, so that a Run that comes later ends as well.
    if (stop_ >= 0) (void)::eventfd_write(stop_, 1);
  }

 private:
  // A changed table is an urgent condition of the open file, until it is polled again.
  Status Watch(int table, Listener& listener) const {
    std::string text;
    Status status = ReadWhole(table, text);
    std::vector<Mount> before = ParseMounts(text);
    while (status.ok()) {
      pollfd polled[2] = {{table, POLLPRI, 0}, {stop_, POLLIN, 0}};
      if (Retry([&] { return ::poll(polled, 2, -1); }) < 0) return LastError();
      if (polled[1].revents != 0) return {};
      status = ReadWhole(table, text);
      if (!status.ok()) return status;
      std::vector<Mount> after = ParseMounts(text);
      for (const std::string& point : GonePoints(before, after)) listener.OnGone(point);
      before = std::move(after);
    }
    return status;
  }

  const int stop_;
  const int create_error_;
};

}  // namespace

std::unique_ptr<VolumeMonitor> NewVolumeMonitor() { return std::make_unique<LinuxVolumeMonitor>(); }

}  // namespace tolven::platform

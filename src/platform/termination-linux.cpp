#include "platform/termination-linux.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <system_error>
#include <thread>

#include "platform/errno-linux.h"

namespace tolven::platform {

namespace {

// Next to nothing is allowed in a signal handler, so it only wakes a thread through a pipe. Other
// threads need not block any signal for that.
std::atomic<int> g_wake_fd{-1};

void WakeThread(int) {
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = ::write(g_wake_fd.load(), "", 1);
  errno = saved;
}

void WaitAndRun(int fd, const std::function<void()>& handler) {
  char byte = 0;
  if (Retry([&] { return ::read(fd, &byte, 1); }) == 1) handler();
}

}  // namespace

Status RunOnTermination(std::function<void()> handler) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return LastError();
  (void)::fcntl(ends[1], F_SETFL, O_NONBLOCK);
  int none = -1;
  Status status;
  if (!g_wake_fd.compare_exchange_strong(none, ends[1])) {
    status = StatusFromErrno(EEXIST);
  } else {
    try {
      std::thread([fd = ends[0], run = std::move(handler)] { WaitAndRun(fd, run); }).detach();
    } catch (const std::system_error& error) {
      g_wake_fd.store(-1);
      status = StatusFromErrno(error.code().value());
    }
  }
  if (!status.ok()) {
    ::close(ends[0]);
    ::close(ends[1]);
    return status;
  }
  struct sigaction action {};
  action.sa_handler = WakeThread;
  action.sa_flags = SA_RESTART;
  ::sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (::sigaction(signal, &action, nullptr) != 0) status = LastError();
  }
  return status;
}

}  // namespace tolven::platform

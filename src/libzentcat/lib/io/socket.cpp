#include "libzentcat/lib/io/socket.h"

#include <algorithm>
#include <vector>

#include "platform/clock.h"

namespace tolven::TolvenApplication {

namespace {

// How long an abort may go unnoticed while connecting.
constexpr std::int64_t kConnectSliceMs = 100;

platform::SocketWait ToWait(IOBase::Mode mode) {
  switch (mode) {
    case IOBase::MODE_READ:
      return platform::SocketWait::kRead;
    case IOBase::MODE_WRITE:
      return platform::SocketWait::kWrite;
    case IOBase::MODE_READ_WRITE:
      break;
  }
  return platform::SocketWait::kReadWrite;
}

bool IsSet(const std::atomic<int>* flag) { return flag != nullptr && flag->load() != 0; }

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

}  // namespace

int Socket::result(const platform::Status& status) {
  if (status.ok()) return 0;
  _error = status;
  return -1;
}

std::int64_t Socket::read(void* data, std::size_t size) {
  std::size_t got = 0;
  const platform::Status status = platform::sockets().Receive(_fd, data, size, got);
  if (status.ok()) return static_cast<std::int64_t>(got);
  if (status.is(platform::ErrorKind::kWouldBlock)) return kWouldBlock;
  return result(status);
}

std::int64_t Socket::write(const void* data, std::size_t size) {
  std::size_t sent = 0;
  const platform::Status status = platform::sockets().Send(_fd, data, size, sent);
  if (status.ok()) return static_cast<std::int64_t>(sent);
  if (status.is(platform::ErrorKind::kWouldBlock)) return kWouldBlock;
  return result(status);
}

int Socket::close() {
  if (_fd == platform::kInvalidSocket) return 0;
  const int outcome = result(platform::sockets().Close(_fd));
  _fd = platform::kInvalidSocket;
  return outcome;
}

int Socket::selectFor(Mode mode, int milliseconds) {
  const platform::Status status = platform::sockets().Wait(_fd, ToWait(mode), milliseconds);
  if (status.ok()) return 1;
  if (status.is(platform::ErrorKind::kTimedOut)) return 0;
  return result(status);
}

std::unique_ptr<IOBase> Socket::clone() const { return std::make_unique<Socket>(_fd); }

bool Socket::isValid() const { return platform::sockets().IsValid(_fd); }

int Socket::shutdown() { return result(platform::sockets().ShutDown(_fd)); }

int Socket::setBlocking(bool blocking) {
  return result(platform::sockets().SetBlocking(_fd, blocking));
}

int Socket::setLinger(int seconds) { return result(platform::sockets().SetLinger(_fd, seconds)); }

int Socket::setNoDelay() { return result(platform::sockets().SetNoDelay(_fd)); }

int Socket::connectIPv4(const std::string& host, int port, int seconds,
                        const std::atomic<int>* abort_flag) {
  return connect(4, host, port, seconds, abort_flag);
}

int Socket::connectIPv6(const std::string& host, int port, int seconds,
                        const std::atomic<int>* abort_flag) {
  return connect(6, host, port, seconds, abort_flag);
}

int Socket::connect(int family, const std::string& host, int port, int seconds,
                    const std::atomic<int>* abort_flag) {
  std::vector<platform::SocketAddress> addresses;
  if (result(platform::sockets().Resolve(host, port, false, addresses)) < 0) return -1;
  for (const platform::SocketAddress& address : addresses) {
    if (address.family != family) continue;
    if (IsSet(abort_flag)) return -1;
    if (connectTo(address, seconds, abort_flag) == 0) return 0;
    close();  // a socket whose connect failed is of no further use
  }
  return -1;
}

int Socket::connectTo(const platform::SocketAddress& address, int seconds,
                      const std::atomic<int>* abort_flag) {
  if (result(platform::sockets().Create(address.family, _fd)) < 0) return -1;
  if (setBlocking(seconds == 0) < 0) return -1;
  const platform::Status status = platform::sockets().Connect(_fd, address);
  if (status.ok()) return 0;
  if (status.is(platform::ErrorKind::kInProgress) || status.is(platform::ErrorKind::kWouldBlock)) {
    return waitConnect(seconds, abort_flag);
  }
  return result(status);
}

int Socket::waitConnect(int seconds, const std::atomic<int>* abort_flag) {
  const std::int64_t end = Now() + std::int64_t{seconds} * 1000;
  for (std::int64_t left = std::int64_t{seconds} * 1000; left > 0; left = end - Now()) {
    if (IsSet(abort_flag)) return -1;
    const int slice = static_cast<int>(std::min(left, kConnectSliceMs));
    const int ready = selectFor(MODE_WRITE, slice);
    if (ready < 0) return -1;
    // A refused connection is writable, too: only its pending error tells.
    if (ready > 0) return result(platform::sockets().PendingError(_fd));
  }
  return result({platform::ErrorKind::kTimedOut, 0});
}

}  // namespace tolven::TolvenApplication

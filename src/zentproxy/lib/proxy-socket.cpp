#include "zentproxy/lib/proxy-socket.h"

#include <algorithm>
#include <array>

#include "platform/clock.h"

namespace tolven {

namespace {

using platform::SocketWait;
using platform::Status;

constexpr int kMaxTries = 5;
constexpr std::size_t kBlock = 4096;
constexpr std::uint64_t kMaxContent = 1 << 20;
// How late an abort may be noticed.
constexpr std::int64_t kAbortSliceMs = 100;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

// The silence that one call bears.
class Patience {
 public:
  Patience(const ProxySocket& socket, SocketWait what, int timeout)
      : socket_(socket), what_(what), slice_(std::int64_t{timeout} * 1000 / kMaxTries) {}

  bool Await() {
    for (; tries_ <= kMaxTries && !socket_.IsOver(); ++tries_) {
      const int ready = socket_.Await(what_, slice_);
      if (ready != 0) return ready > 0;
    }
    return false;
  }

 private:
  const ProxySocket& socket_;
  const SocketWait what_;
  const std::int64_t slice_;
  int tries_ = 0;
};

// Waits for bytes and shows at most `size` of them: how many, 0 at the end of the connection, or
// -1.
int Look(const ProxySocket& socket, Patience& patience, char* data, std::size_t size) {
  for (;;) {
    if (!patience.Await()) return -1;
    std::size_t got = 0;
    const Status status = platform::sockets().Peek(socket.fd, data, size, got);
    if (status.ok()) return static_cast<int>(got);
    if (!status.is(platform::ErrorKind::kWouldBlock)) return -1;
  }
}

// Takes what Look has shown.
bool Take(const ProxySocket& socket, std::size_t size) {
  std::array<char, kBlock> block;
  while (size > 0) {
    std::size_t got = 0;
    if (!platform::sockets().Receive(socket.fd, block.data(), std::min(size, kBlock), got).ok() ||
        got == 0) {
      return false;
    }
    size -= got;
  }
  return true;
}

// Finds "\r\n\r\n" in bytes that come in pieces.
class EmptyLine {
 public:
  // How many of the bytes go up to its end, or all of them.
  std::size_t Find(const char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      if (data[i] == '\r') {
        matched_ = matched_ == 2 ? 3 : 1;
      } else {
        matched_ = data[i] == '\n' && matched_ % 2 == 1 ? matched_ + 1 : 0;
      }
      if (IsFound()) return i + 1;
    }
    return size;
  }
  bool IsFound() const { return matched_ == 4; }

 private:
  int matched_ = 0;
};

}  // namespace

bool ProxySocket::IsOver() const {
  return (abort != nullptr && abort->load() != 0) || Now() >= end;
}

int ProxySocket::Await(SocketWait what, std::int64_t milliseconds) const {
  const std::int64_t until = std::min(Now() + milliseconds, end);
  while (!IsOver()) {
    const std::int64_t slice = std::clamp<std::int64_t>(until - Now(), 0, kAbortSliceMs);
    const Status status = platform::sockets().Wait(fd, what, static_cast<int>(slice));
    if (status.ok()) return 1;
    if (!status.is(platform::ErrorKind::kTimedOut)) return -1;
    if (Now() >= until) return 0;
  }
  return -1;
}

int ZENTProxyClientPacketSend(const ProxySocket& socket, const char* data, std::size_t length,
                              int timeout) {
  Patience patience(socket, SocketWait::kWrite, timeout);
  while (length > 0) {
    if (!patience.Await()) return -1;
    std::size_t sent = 0;
    const Status status = platform::sockets().Send(socket.fd, data, length, sent);
    if (!status.ok() && !status.is(platform::ErrorKind::kWouldBlock)) return -1;
    data += sent;
    length -= sent;
  }
  return 0;
}

int ZENTProxyClientReadOneLine(const ProxySocket& socket, std::string& line, std::size_t size,
                               int timeout) {
  Patience patience(socket, SocketWait::kRead, timeout);
  std::array<char, kBlock> seen;
  line.clear();
  while (line.size() < size) {
    const int got = Look(socket, patience, seen.data(), std::min(size - line.size(), seen.size()));
    if (got <= 0) return -1;
    const char* const last = seen.data() + got;
    const char* const end = std::find<const char*>(seen.data(), last, '\n');
    line.append(seen.data(), static_cast<std::size_t>(end - seen.data()));
    const std::size_t taken = static_cast<std::size_t>(end - seen.data()) + (end == last ? 0 : 1);
    if (!Take(socket, taken)) return -1;
    if (end == last) continue;
    if (line.ends_with('\r')) line.pop_back();
    return 0;
  }
  return -1;
}

int ZENTProxyClientClearHttpContentByLength(const ProxySocket& socket, std::uint64_t length,
                                            int timeout) {
  const bool is_counted = length != 0;
  if (length > kMaxContent) return -1;
  Patience patience(socket, SocketWait::kRead, timeout);
  EmptyLine empty_line;
  std::array<char, kBlock> seen;
  for (std::uint64_t left = is_counted ? length : kMaxContent; left > 0;) {
    const int got = Look(socket, patience, seen.data(), std::min<std::size_t>(left, seen.size()));
    if (got <= 0) return got;
    std::size_t size = static_cast<std::size_t>(got);
    if (!is_counted) size = empty_line.Find(seen.data(), size);
    if (!Take(socket, size)) return -1;
    if (!is_counted && empty_line.IsFound()) return 0;
    left -= size;
  }
  return is_counted ? 0 : -1;
}

}  // namespace tolven

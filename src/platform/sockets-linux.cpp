#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "platform/errno-linux.h"
#include "platform/service-slot.h"
#include "platform/sockets.h"

namespace tolven::platform {

namespace {

int Fd(NativeSocket socket) { return static_cast<int>(socket); }

int NativeFamily(int family) { return family == 6 ? AF_INET6 : AF_INET; }

Status SetOption(NativeSocket socket, int level, int name, int value) {
  return StatusOf(::setsockopt(Fd(socket), level, name, &value, sizeof value));
}

Status ResolverStatus(int code) {
  switch (code) {
    case EAI_SYSTEM:
      return LastError();
    case EAI_NONAME:
    case EAI_NODATA:
    case EAI_ADDRFAMILY:
      return {ErrorKind::kNotFound, code};
    case EAI_MEMORY:
      return {ErrorKind::kTooMany, code};
    default:
      return {ErrorKind::kOther, code};
  }
}

bool ToAddress(const sockaddr* native, socklen_t length, SocketAddress& address) {
  if (native->sa_family != AF_INET && native->sa_family != AF_INET6) return false;
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  if (::getnameinfo(native, length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return false;
  }
  const auto* first = reinterpret_cast<const unsigned char*>(native);
  address.family = native->sa_family == AF_INET6 ? 6 : 4;
  address.bytes.assign(first, first + length);
  address.text = host;
  address.port = std::atoi(port);
  return true;
}

// The address with the alignment that the system calls want.
struct NativeAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;

  NativeAddress() : length(sizeof storage) {}
  explicit NativeAddress(const SocketAddress& address)
      : length(static_cast<socklen_t>(std::min(address.bytes.size(), sizeof storage))) {
    std::memcpy(&storage, address.bytes.data(), length);
  }
  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

// Servers take their port again right after a restart, when old connections still linger on it; a
// port with a living listener stays refused.
Status BindTo(NativeSocket socket, const sockaddr* address, socklen_t length) {
  const Status reuse = SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  if (!reuse.ok()) return reuse;
  return StatusOf(::bind(Fd(socket), address, length));
}

Status NameOf(int (*call)(int, sockaddr*, socklen_t*), NativeSocket socket,
              SocketAddress& address) {
  NativeAddress native;
  if (call(Fd(socket), native.get(), &native.length) != 0) return LastError();
  if (!ToAddress(native.get(), native.length, address)) return StatusFromErrno(EAFNOSUPPORT);
  return {};
}

short PollEvents(SocketWait what) {
  switch (what) {
    case SocketWait::kRead:
      return POLLIN | POLLPRI;
    case SocketWait::kWrite:
      return POLLOUT | POLLPRI;
    case SocketWait::kReadWrite:
      break;
  }
  return POLLIN | POLLOUT | POLLPRI;
}

// poll() that a signal does not cut short.
int PollFor(pollfd& entry, int timeout_ms) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(timeout_ms);
  int left = timeout_ms;
  for (;;) {
    const int count = ::poll(&entry, 1, left);
    if (count != -1 || errno != EINTR) return count;
    if (timeout_ms < 0) continue;
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    left = rest > 0 ? static_cast<int>(rest) : 0;
  }
}

Status Moved(ssize_t count, std::size_t& moved) {
  if (count < 0) return LastError();
  moved = static_cast<std::size_t>(count);
  return {};
}

class LinuxSockets : public Sockets {
 public:
  LinuxSockets() {
    struct sigaction current {};
    if (::sigaction(SIGPIPE, nullptr, &current) != 0 || current.sa_handler != SIG_DFL) return;
    current.sa_handler = SIG_IGN;
    (void)::sigaction(SIGPIPE, &current, nullptr);
  }

  Status Resolve(const std::string& host, int port, bool numeric_only,
                 std::vector<SocketAddress>& out) override {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | (numeric_only ? AI_NUMERICHOST : 0);
    addrinfo* found = nullptr;
    const int code = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (code != 0) return ResolverStatus(code);
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    out.clear();
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
      SocketAddress address;
      if (ToAddress(entry->ai_addr, entry->ai_addrlen, address)) out.push_back(std::move(address));
    }
    if (out.empty()) return ResolverStatus(EAI_NONAME);
    return {};
  }

  Status Create(int family, NativeSocket& socket) override {
    const int fd = ::socket(NativeFamily(family), SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) return LastError();
    socket = fd;
    return {};
  }

  Status Connect(NativeSocket socket, const SocketAddress& address) override {
    NativeAddress native(address);
    if (::connect(Fd(socket), native.get(), native.length) == 0) return {};
    // An interrupted connect goes on by itself and cannot be called again.
    if (errno == EINTR) return StatusFromErrno(EINPROGRESS);
    return LastError();
  }

  Status PendingError(NativeSocket socket) override {
    int code = 0;
    socklen_t length = sizeof code;
    if (::getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &code, &length) != 0) return LastError();
    return StatusFromErrno(code);
  }

  Status BindLoopback(NativeSocket socket, int port) override {
    if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
      return StatusFromErrno(EINVAL);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return BindTo(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  Status Bind(NativeSocket socket, const SocketAddress& address) override {
    NativeAddress native(address);
    return BindTo(socket, native.get(), native.length);
  }

  Status Listen(NativeSocket socket, int backlog) override {
    return StatusOf(::listen(Fd(socket), backlog));
  }

  Status Accept(NativeSocket listener, NativeSocket& peer) override {
    const int fd = Retry([&] { return ::accept4(Fd(listener), nullptr, nullptr, SOCK_CLOEXEC); });
    if (fd < 0) return LastError();
    peer = fd;
    return {};
  }

  Status LocalPort(NativeSocket socket, int& port) override {
    SocketAddress address;
    const Status status = NameOf(&::getsockname, socket, address);
    if (status.ok()) port = address.port;
    return status;
  }

  Status PeerAddress(NativeSocket socket, std::string& host, int& port) override {
    SocketAddress address;
    const Status status = NameOf(&::getpeername, socket, address);
    if (!status.ok()) return status;
    host = address.text;
    port = address.port;
    return {};
  }

  Status SetBlocking(NativeSocket socket, bool blocking) override {
    const int flags = ::fcntl(Fd(socket), F_GETFL);
    if (flags < 0) return LastError();
    const int wanted = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    return wanted == flags ? Status{} : StatusOf(::fcntl(Fd(socket), F_SETFL, wanted));
  }

  Status SetLinger(NativeSocket socket, int seconds) override {
    const linger value{1, seconds};
    return StatusOf(::setsockopt(Fd(socket), SOL_SOCKET, SO_LINGER, &value, sizeof value));
  }

  Status SetNoDelay(NativeSocket socket) override {
    return SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  }

  bool IsValid(NativeSocket socket) override {
    int type = 0;
    socklen_t length = sizeof type;
    return socket >= 0 && ::getsockopt(Fd(socket), SOL_SOCKET, SO_TYPE, &type, &length) == 0;
  }

  Status Wait(NativeSocket socket, SocketWait what, int timeout_ms) override {
    // poll() takes a negative descriptor for one to leave out.
    if (socket < 0) return StatusFromErrno(EBADF);
    pollfd entry{Fd(socket), PollEvents(what), 0};
    const int count = PollFor(entry, timeout_ms);
    if (count < 0) return LastError();
    if (count == 0) return StatusFromErrno(ETIMEDOUT);
    if ((entry.revents & POLLNVAL) != 0) return StatusFromErrno(EBADF);
    if ((entry.revents & POLLPRI) != 0) return StatusFromErrno(EPROTO);
    return {};
  }

  Status Receive(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    return Moved(Retry([&] { return ::recv(Fd(socket), data, size, 0); }), got);
  }

  Status Peek(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    return Moved(Retry([&] { return ::recv(Fd(socket), data, size, MSG_PEEK); }), got);
  }

  Status Send(NativeSocket socket, const void* data, std::size_t size, std::size_t& sent) override {
    return Moved(Retry([&] { return ::send(Fd(socket), data, size, MSG_NOSIGNAL); }), sent);
  }

  Status SendFile(NativeSocket socket, NativeFile file, std::uint64_t offset, std::size_t size,
                  std::size_t& sent) override {
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
      return StatusFromErrno(EOVERFLOW);
    }
    auto at = static_cast<off_t>(offset);
    return Moved(Retry([&] { return ::sendfile(Fd(socket), static_cast<int>(file), &at, size); }),
                 sent);
  }

  Status ShutDown(NativeSocket socket) override {
    return StatusOf(::shutdown(Fd(socket), SHUT_RDWR));
  }

  // Never repeated: the descriptor is gone whatever close() answers.
  Status Close(NativeSocket socket) override {
    if (::close(Fd(socket)) == 0 || errno == EINTR) return {};
    return LastError();
  }
};

using Slot = ServiceSlot<Sockets, LinuxSockets>;

}  // namespace

Sockets& sockets() { return Slot::Get(); }
Sockets* SetSockets(Sockets* sockets) { return Slot::Set(sockets); }

}  // namespace tolven::platform

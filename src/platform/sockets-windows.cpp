#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "platform/file-transfer-windows.h"
#include "platform/service-slot.h"
#include "platform/sockets.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

SOCKET Native(NativeSocket socket) { return static_cast<SOCKET>(socket); }

int NativeFamily(int family) { return family == 6 ? AF_INET6 : AF_INET; }

Status LastSocketError() { return StatusFromError(static_cast<DWORD>(::WSAGetLastError())); }

Status StatusOfSocketCall(int result) { return result == 0 ? Status{} : LastSocketError(); }

int Clamp(std::size_t size) {
  constexpr std::size_t kLargest = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(size, kLargest));
}

template <class Value>
Status SetOption(NativeSocket socket, int level, int name, const Value& value) {
  return StatusOfSocketCall(::setsockopt(Native(socket), level, name,
                                         reinterpret_cast<const char*>(&value), sizeof value));
}

Status GetOption(NativeSocket socket, int name, int& value) {
  int size = sizeof value;
  return StatusOfSocketCall(
      ::getsockopt(Native(socket), SOL_SOCKET, name, reinterpret_cast<char*>(&value), &size));
}

Status ClearInheritance(SOCKET socket) {
  return StatusOf(::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0));
}

bool ToAddress(const sockaddr* native, int length, SocketAddress& address) {
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
  int length = sizeof storage;

  NativeAddress() = default;
  explicit NativeAddress(const SocketAddress& address)
      : length(static_cast<int>(std::min(address.bytes.size(), sizeof storage))) {
    std::memcpy(&storage, address.bytes.data(), static_cast<std::size_t>(length));
  }
  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Status NameOf(int(WSAAPI* call)(SOCKET, sockaddr*, int*), NativeSocket socket,
              SocketAddress& address) {
  NativeAddress native;
  if (call(Native(socket), native.get(), &native.length) != 0) return LastSocketError();
  if (!ToAddress(native.get(), native.length, address)) return StatusFromError(WSAEAFNOSUPPORT);
  return {};
}

// Here SO_REUSEADDR would share the port with whoever else asks so. Without it a server gets its
// port again right after a restart anyway.
Status BindTo(NativeSocket socket, const sockaddr* address, int length) {
  const Status exclusive = SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, BOOL{TRUE});
  if (!exclusive.ok()) return exclusive;
  return StatusOfSocketCall(::bind(Native(socket), address, length));
}

Status Moved(int count, std::size_t& moved) {
  if (count < 0) return LastSocketError();
  moved = static_cast<std::size_t>(count);
  return {};
}

fd_set SetOf(SOCKET socket) {
  fd_set set;
  FD_ZERO(&set);
  set.fd_array[set.fd_count++] = socket;
  return set;
}

Status WaitFor(HANDLE event, int timeout_ms) {
  const DWORD timeout = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
  const DWORD result = ::WaitForSingleObject(event, timeout);
  if (result == WAIT_OBJECT_0) return {};
  return result == WAIT_TIMEOUT ? StatusFromError(WSAETIMEDOUT) : LastError();
}

class WindowsSockets : public Sockets {
 public:
  // The library counts its users; this one stays.
  WindowsSockets() {
    WSADATA data;
    (void)::WSAStartup(MAKEWORD(2, 2), &data);
  }

  Status Resolve(const std::string& host, int port, bool numeric_only,
                 std::vector<SocketAddress>& out) override {
    addrinfoW hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = numeric_only ? AI_NUMERICHOST : 0;
    addrinfoW* found = nullptr;
    const int code =
        ::GetAddrInfoW(ToWide(host).c_str(), std::to_wstring(port).c_str(), &hints, &found);
    if (code != 0) return StatusFromError(static_cast<DWORD>(code));
    const std::unique_ptr<addrinfoW, decltype(&::FreeAddrInfoW)> owner(found, &::FreeAddrInfoW);
    out.clear();
    for (const addrinfoW* entry = found; entry != nullptr; entry = entry->ai_next) {
      SocketAddress address;
      if (ToAddress(entry->ai_addr, static_cast<int>(entry->ai_addrlen), address)) {
        out.push_back(std::move(address));
      }
    }
    return out.empty() ? StatusFromError(WSAHOST_NOT_FOUND) : Status{};
  }

  Status Create(int family, NativeSocket& socket) override {
    const SOCKET made = ::WSASocketW(NativeFamily(family), SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                     WSA_FLAG_OVERLAPPED);
    if (made == INVALID_SOCKET) return LastSocketError();
    const Status status = ClearInheritance(made);
    if (!status.ok()) {
      ::closesocket(made);
      return status;
    }
    socket = static_cast<NativeSocket>(made);
    return {};
  }

  Status Connect(NativeSocket socket, const SocketAddress& address) override {
    NativeAddress native(address);
    if (::connect(Native(socket), native.get(), native.length) == 0) return {};
    const Status status = LastSocketError();
    return status.is(ErrorKind::kWouldBlock) ? Status{ErrorKind::kInProgress, status.code} : status;
  }

  Status PendingError(NativeSocket socket) override {
    int code = 0;
    const Status status = GetOption(socket, SO_ERROR, code);
    return status.ok() ? StatusFromError(static_cast<DWORD>(code)) : status;
  }

  Status BindLoopback(NativeSocket socket, int port) override {
    if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
      return StatusFromError(WSAEINVAL);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    return BindTo(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  Status Bind(NativeSocket socket, const SocketAddress& address) override {
    NativeAddress native(address);
    return BindTo(socket, native.get(), native.length);
  }

  Status Listen(NativeSocket socket, int backlog) override {
    return StatusOfSocketCall(::listen(Native(socket), backlog));
  }

  Status Accept(NativeSocket listener, NativeSocket& peer) override {
    const SOCKET accepted = ::accept(Native(listener), nullptr, nullptr);
    if (accepted == INVALID_SOCKET) return LastSocketError();
    // It takes over whether the listener blocks.
    Status status = ClearInheritance(accepted);
    if (status.ok()) status = SetBlocking(static_cast<NativeSocket>(accepted), true);
    if (!status.ok()) {
      ::closesocket(accepted);
      return status;
    }
    peer = static_cast<NativeSocket>(accepted);
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
    u_long non_blocking = blocking ? 0 : 1;
    return StatusOfSocketCall(::ioctlsocket(Native(socket), FIONBIO, &non_blocking));
  }

  Status SetLinger(NativeSocket socket, int seconds) override {
    return SetOption(socket, SOL_SOCKET, SO_LINGER, linger{1, static_cast<u_short>(seconds)});
  }

  Status SetNoDelay(NativeSocket socket) override {
    return SetOption(socket, IPPROTO_TCP, TCP_NODELAY, BOOL{TRUE});
  }

  bool IsValid(NativeSocket socket) override {
    int type = 0;
    return socket >= 0 && GetOption(socket, SO_TYPE, type).ok();
  }

  // select() and not WSAPoll(), which older systems never let know of a connect that failed.
  Status Wait(NativeSocket socket, SocketWait what, int timeout_ms) override {
    if (what == SocketWait::kWrite) {
      // Nothing can be written before what is under way has gone.
      const HANDLE under_way = transfers_.Waitable(Native(socket));
      if (under_way != nullptr) return WaitFor(under_way, timeout_ms);
    }
    fd_set read = SetOf(Native(socket));
    fd_set write = read;
    fd_set except = read;
    const auto wants = [what](SocketWait one) {
      return (static_cast<int>(what) & static_cast<int>(one)) != 0;
    };
    timeval limit{timeout_ms / 1000, timeout_ms % 1000 * 1000};
    const int count = ::select(0, wants(SocketWait::kRead) ? &read : nullptr,
                               wants(SocketWait::kWrite) ? &write : nullptr, &except,
                               timeout_ms < 0 ? nullptr : &limit);
    if (count < 0) return LastSocketError();
    if (count == 0) return StatusFromError(WSAETIMEDOUT);
    if (except.fd_count == 0) return {};
    // A connect that failed, or urgent data. Asking for the error would clear it.
    char byte = 0;
    const int urgent = ::recv(Native(socket), &byte, 1, MSG_OOB | MSG_PEEK);
    return urgent > 0 ? Status{ErrorKind::kOther, 0} : Status{};
  }

  Status Receive(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    return Moved(::recv(Native(socket), static_cast<char*>(data), Clamp(size), 0), got);
  }

  Status Peek(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    return Moved(::recv(Native(socket), static_cast<char*>(data), Clamp(size), MSG_PEEK), got);
  }

  Status Send(NativeSocket socket, const void* data, std::size_t size, std::size_t& sent) override {
    return Moved(::send(Native(socket), static_cast<const char*>(data), Clamp(size), 0), sent);
  }

  Status SendFile(NativeSocket socket, NativeFile file, std::uint64_t offset, std::size_t size,
                  std::size_t& sent) override {
    return transfers_.Send(Native(socket), reinterpret_cast<HANDLE>(file), offset, size, sent);
  }

  Status ShutDown(NativeSocket socket) override {
    return StatusOfSocketCall(::shutdown(Native(socket), SD_BOTH));
  }

  Status Close(NativeSocket socket) override {
    transfers_.Forget(Native(socket));
    return StatusOfSocketCall(::closesocket(Native(socket)));
  }

 private:
  FileTransfers transfers_;
};

using Slot = ServiceSlot<Sockets, WindowsSockets>;

}  // namespace

Sockets& sockets() { return Slot::Get(); }
Sockets* SetSockets(Sockets* sockets) { return Slot::Set(sockets); }

}  // namespace tolven::platform

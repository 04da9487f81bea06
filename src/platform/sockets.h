// TCP sockets. Descriptors are close-on-exec; writing to a closed peer is an error, never a signal
// (the first use of the service makes the process ignore SIGPIPE, since sendfile and TLS libraries
// have no flag of their own). A socket belongs to one thread at a time, but ShutDown may come from
// any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/status.h"

namespace tolven::platform {

// A descriptor or a SOCKET; all ones is none.
using NativeSocket = std::intptr_t;
inline constexpr NativeSocket kInvalidSocket = -1;

enum class SocketWait { kRead = 1, kWrite = 2, kReadWrite = 3 };

// One resolved address.
struct SocketAddress {
  int family = 0;                    // 4 or 6
  std::vector<unsigned char> bytes;  // the system's own form, port included
  std::string text;                  // numeric host
  int port = 0;
};

class Sockets {
 public:
  virtual ~Sockets() = default;

  // Addresses for a host name or literal, in the order to try. `numeric_only` forbids look-ups.
  virtual Status Resolve(const std::string& host, int port, bool numeric_only,
                         std::vector<SocketAddress>& out) = 0;
  virtual Status Create(int family, NativeSocket& socket) = 0;  // 4 or 6; a blocking socket
  // Blocking or not as the socket is set; kInProgress when a non-blocking connect goes on.
  virtual Status Connect(NativeSocket socket, const SocketAddress& address) = 0;
  // The pending error of a socket, as told after a non-blocking connect.
  virtual Status PendingError(NativeSocket socket) = 0;
  virtual Status BindLoopback(NativeSocket socket, int port) = 0;  // 127.0.0.1, exclusive
  virtual Status Bind(NativeSocket socket, const SocketAddress& address) = 0;
  virtual Status Listen(NativeSocket socket, int backlog) = 0;
  virtual Status Accept(NativeSocket listener, NativeSocket& peer) = 0;  // `peer` blocks
  virtual Status LocalPort(NativeSocket socket, int& port) = 0;
  virtual Status PeerAddress(NativeSocket socket, std::string& host, int& port) = 0;

  virtual Status SetBlocking(NativeSocket socket, bool blocking) = 0;
  virtual Status SetLinger(NativeSocket socket, int seconds) = 0;
  virtual Status SetNoDelay(NativeSocket socket) = 0;
  virtual bool IsValid(NativeSocket socket) = 0;

  // Waits until the socket can be used so, at most `timeout_ms` (-1: without limit).
  // kTimedOut when the time is up, another error for a bad descriptor or urgent data. A connection
  // that broke counts as usable: the next call on it tells the reason.
  virtual Status Wait(NativeSocket socket, SocketWait what, int timeout_ms) = 0;
  // These four: kWouldBlock when a non-blocking socket has nothing to do now.
  // `got` 0 with success: the peer has closed its side.
  virtual Status Receive(NativeSocket socket, void* data, std::size_t size, std::size_t& got) = 0;
  // Receive that leaves the bytes where they are.
  virtual Status Peek(NativeSocket socket, void* data, std::size_t size, std::size_t& got) = 0;
  virtual Status Send(NativeSocket socket, const void* data, std::size_t size,
                      std::size_t& sent) = 0;
  // Hands part of a file to the kernel. `sent` 0 with success: the file ends at or before `offset`.
  // kInvalid or kNotSupported with nothing sent: this kind of file has to be read and sent.
  virtual Status SendFile(NativeSocket socket, NativeFile file, std::uint64_t offset,
                          std::size_t size, std::size_t& sent) = 0;
  virtual Status ShutDown(NativeSocket socket) = 0;
  virtual Status Close(NativeSocket socket) = 0;
};

Sockets& sockets();
Sockets* SetSockets(Sockets* sockets);

}  // namespace tolven::platform

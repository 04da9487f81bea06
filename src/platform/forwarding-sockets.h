// See forwarding.h.
#pragma once

#include "platform/forwarding.h"
#include "platform/sockets.h"

namespace tolven::platform {

class ForwardingSockets : public Sockets, protected Forwarding {
 public:
  explicit ForwardingSockets(Sockets& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  Status Resolve(const std::string& host, int port, bool numeric_only,
                 std::vector<SocketAddress>& out) override {
    return Do("Resolve", [&] { return base_.Resolve(host, port, numeric_only, out); });
  }
  Status Create(int family, NativeSocket& socket) override {
    socket = kInvalidSocket;
    return Do("Create", [&] { return base_.Create(family, socket); });
  }
  Status Connect(NativeSocket socket, const SocketAddress& address) override {
    return Do("Connect", [&] { return base_.Connect(socket, address); });
  }
  Status PendingError(NativeSocket socket) override {
    return Do("PendingError", [&] { return base_.PendingError(socket); });
  }
  Status BindLoopback(NativeSocket socket, int port) override {
    return Do("BindLoopback", [&] { return base_.BindLoopback(socket, port); });
  }
  Status Bind(NativeSocket socket, const SocketAddress& address) override {
    return Do("Bind", [&] { return base_.Bind(socket, address); });
  }
  Status Listen(NativeSocket socket, int backlog) override {
    return Do("Listen", [&] { return base_.Listen(socket, backlog); });
  }
  Status Accept(NativeSocket listener, NativeSocket& peer) override {
    peer = kInvalidSocket;
    return Do("Accept", [&] { return base_.Accept(listener, peer); });
  }
  Status LocalPort(NativeSocket socket, int& port) override {
    return Do("LocalPort", [&] { return base_.LocalPort(socket, port); });
  }
  Status PeerAddress(NativeSocket socket, std::string& host, int& port) override {
    return Do("PeerAddress", [&] { return base_.PeerAddress(socket, host, port); });
  }

  Status SetBlocking(NativeSocket socket, bool blocking) override {
    return Do("SetBlocking", [&] { return base_.SetBlocking(socket, blocking); });
  }
  Status SetLinger(NativeSocket socket, int seconds) override {
    return Do("SetLinger", [&] { return base_.SetLinger(socket, seconds); });
  }
  Status SetNoDelay(NativeSocket socket) override {
    return Do("SetNoDelay", [&] { return base_.SetNoDelay(socket); });
  }
  bool IsValid(NativeSocket socket) override { return Allows("IsValid") && base_.IsValid(socket); }

  Status Wait(NativeSocket socket, SocketWait what, int timeout_ms) override {
    return Do("Wait", [&] { return base_.Wait(socket, what, timeout_ms); });
  }
  Status Receive(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    got = 0;
    return Do("Receive", [&] { return base_.Receive(socket, data, size, got); });
  }
  Status Peek(NativeSocket socket, void* data, std::size_t size, std::size_t& got) override {
    got = 0;
    return Do("Peek", [&] { return base_.Peek(socket, data, size, got); });
  }
  Status Send(NativeSocket socket, const void* data, std::size_t size, std::size_t& sent) override {
    sent = 0;
    return Do("Send", [&] { return base_.Send(socket, data, size, sent); });
  }
  Status SendFile(NativeSocket socket, NativeFile file, std::uint64_t offset, std::size_t size,
                  std::size_t& sent) override {
    sent = 0;
    return Do("SendFile", [&] { return base_.SendFile(socket, file, offset, size, sent); });
  }
  Status ShutDown(NativeSocket socket) override {
    return Do("ShutDown", [&] { return base_.ShutDown(socket); });
  }
  Status Close(NativeSocket socket) override {
    // A close that fails has closed nevertheless.
    const Status status = base_.Close(socket);
    const Status wanted = Ask("Close");
    return wanted.ok() ? status : wanted;
  }

 private:
  Sockets& base_;
};

}  // namespace tolven::platform

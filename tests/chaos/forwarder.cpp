#include "chaos/forwarder.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace tolven::test {

namespace {

using platform::NativeSocket;
using platform::sockets;
using platform::SocketWait;

// Takes what has come and sends it on. False when either side has ended.
bool Pass(NativeSocket from, NativeSocket to) {
  std::string data(1 << 16, '\0');
  if (!sockets().Wait(from, SocketWait::kRead, 0).ok()) return true;
  std::size_t got = 0, sent = 0;
  if (!sockets().Receive(from, data.data(), data.size(), got).ok() || got == 0) return false;
  for (std::size_t done = 0; done < got; done += sent) {
    sent = 0;
    if (!sockets().Send(to, data.data() + done, got - done, sent).ok()) return false;
  }
  return true;
}

}  // namespace

Forwarder::Forwarder(int server_port) : server_port_(server_port) {
  if (!sockets().Create(4, listener_).ok() || !sockets().BindLoopback(listener_, 0).ok() ||
      !sockets().Listen(listener_, 64).ok() || !sockets().LocalPort(listener_, port_).ok()) {
    throw std::runtime_error("no listener");
  }
  acceptor_ = std::thread([this] { Accept(); });
}

Forwarder::~Forwarder() {
  is_over_ = true;
  (void)sockets().ShutDown(listener_);
  acceptor_.join();
  for (std::thread& link : links_) link.join();
  (void)sockets().Close(listener_);
}

void Forwarder::Accept() {
  NativeSocket client = platform::kInvalidSocket;
  while (sockets().Accept(listener_, client).ok()) {
    links_.emplace_back([this, client, now = broken_.load()] { Carry(client, now); });
  }
}

void Forwarder::Carry(NativeSocket client, int generation) {
  NativeSocket server = platform::kInvalidSocket;
  std::vector<platform::SocketAddress> addresses;
  bool goes_on = sockets().Resolve("127.0.0.1", server_port_, true, addresses).ok() &&
                 sockets().Create(4, server).ok() &&
                 sockets().Connect(server, addresses.front()).ok();
  while (goes_on && !is_over_ && broken_ == generation) {
    // The side that is waited for in between changes, so that neither is kept waiting for long.
    (void)sockets().Wait(client, SocketWait::kRead, 1);
    goes_on = Pass(client, server);
    if (!goes_on) break;
    (void)sockets().Wait(server, SocketWait::kRead, 1);
    goes_on = Pass(server, client);
  }
  (void)sockets().Close(client);
  if (server != platform::kInvalidSocket) (void)sockets().Close(server);
}

}  // namespace tolven::test

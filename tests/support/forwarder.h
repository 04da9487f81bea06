// Stands between clients and a server on loopback: counts the bytes of each direction, and cuts the
// connections when it is told to.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace tolven::test {

class Forwarder {
 public:
  explicit Forwarder(int server_port) : server_port_(server_port) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 16), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    accepting_ = std::thread([this] { Accept(); });
  }
  ~Forwarder() {
    done_ = true;
    accepting_.join();
    for (std::thread& each : forwarding_) each.join();
    ::close(listener_);
  }
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  int port() const { return port_; }
  std::uint64_t up() const { return up_; }      // from clients to the server
  std::uint64_t down() const { return down_; }  // from the server to clients
  void Reset() { up_ = down_ = 0; }
  // Cuts the connection in which the count of a direction passes the limit, once.
  void CutAfterUp(std::uint64_t bytes) { cut_up_ = bytes; }
  void CutAfterDown(std::uint64_t bytes) { cut_down_ = bytes; }
  bool WasCut() const { return cuts_ > 0; }

 private:
  static constexpr int kLookEveryMs = 50;

  static sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
  }

  void Accept() {
    while (!done_) {
      pollfd wait{listener_, POLLIN, 0};
      if (::poll(&wait, 1, kLookEveryMs) <= 0) continue;
      const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      forwarding_.emplace_back([this, client] { Forward(client); });
    }
  }
  void Forward(int client) {
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(server_port_);
    if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      while (!done_ && Step(client, server)) {
      }
    }
    ::close(server);
    ::close(client);
  }
  bool Step(int client, int server) {
    std::array<pollfd, 2> wait{pollfd{client, POLLIN, 0}, pollfd{server, POLLIN, 0}};
    if (::poll(wait.data(), wait.size(), kLookEveryMs) < 0) return false;
    return (wait[0].revents == 0 || Move(client, server, up_, cut_up_)) &&
           (wait[1].revents == 0 || Move(server, client, down_, cut_down_));
  }
  bool Move(int from, int to, std::atomic<std::uint64_t>& count, std::atomic<std::uint64_t>& cut) {
    std::array<char, 16'384> bytes;
    const ssize_t got = ::recv(from, bytes.data(), bytes.size(), 0);
    if (got <= 0) return false;
    for (ssize_t sent = 0; sent < got;) {
      const ssize_t part =
          ::send(to, bytes.data() + sent, static_cast<std::size_t>(got - sent), MSG_NOSIGNAL);
      if (part <= 0) return false;
      sent += part;
    }
    count += static_cast<std::uint64_t>(got);
    std::uint64_t limit = cut;
    if (count < limit || !cut.compare_exchange_strong(limit, UINT64_MAX)) return true;
    ++cuts_;
    return false;
  }

  const int server_port_;
  int listener_ = -1, port_ = 0;
  std::atomic<bool> done_{false};
  std::atomic<std::uint64_t> up_{0}, down_{0}, cut_up_{UINT64_MAX}, cut_down_{UINT64_MAX};
  std::atomic<int> cuts_{0};
  std::thread accepting_;
  std::vector<std::thread> forwarding_;
};

}  // namespace tolven::test

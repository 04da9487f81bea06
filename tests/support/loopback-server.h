// A server on loopback that serves each visitor in a thread, with plain blocking sockets, and what
// such servers do with them.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace tolven::test {

class LoopbackServer {
 public:
  // `serve` is called in a thread for each connection, which is closed after it. Its calls fail
  // once the object goes.
  using Serve = std::function<void(int fd)>;

  explicit LoopbackServer(Serve serve) : serve_(std::move(serve)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Address(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 64), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    accepting_ = std::thread([this] { Accept(); });
  }
  ~LoopbackServer() {
    ::shutdown(listener_, SHUT_RDWR);
    accepting_.join();
    {
      const std::lock_guard lock(mutex_);
      is_ending_ = true;
      for (const int fd : fds_) ::shutdown(fd, SHUT_RDWR);
    }
    for (std::thread& each : serving_) each.join();
    ::close(listener_);
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const { return port_; }
  int accepted() const { return accepted_; }
  int open() const { return open_; }

  // A connection to another port here, which ends with this object, too; -1 for none.
  int Connect(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Address(port);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      ::close(fd);
      return -1;
    }
    Keep(fd);
    return fd;
  }
  void Close(int fd) {
    const std::lock_guard lock(mutex_);
    fds_.erase(fd);
    ::close(fd);
  }
  // Carries bytes both ways until one side ends.
  void Join(int client, int port) {
    const int target = Connect(port);
    if (target < 0) return;
    std::array<pollfd, 2> ends{pollfd{client, POLLIN, 0}, pollfd{target, POLLIN, 0}};
    while (::poll(ends.data(), ends.size(), -1) > 0) {
      if (ends[0].revents != 0 && !Move(client, target)) break;
      if (ends[1].revents != 0 && !Move(target, client)) break;
    }
    Close(target);
  }

  static bool Send(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }
  // Up to and with the empty line, and nothing behind it; empty at the end of the connection.
  static std::string ReadHead(int fd) {
    std::string head;
    char byte = 0;
    while (!head.ends_with("\r\n\r\n")) {
      if (::recv(fd, &byte, 1, 0) != 1) return {};
      head += byte;
    }
    return head;
  }
  static void AwaitEnd(int fd) {
    std::array<char, 4096> bytes;
    while (::recv(fd, bytes.data(), bytes.size(), 0) > 0) {
    }
  }

 private:
  static sockaddr_in Address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
  }
  static bool Move(int from, int to) {
    std::array<char, 16'384> bytes;
    const ssize_t got = ::recv(from, bytes.data(), bytes.size(), 0);
    return got > 0 && Send(to, {bytes.data(), static_cast<std::size_t>(got)});
  }
  void Keep(int fd) {
    const std::lock_guard lock(mutex_);
    fds_.insert(fd);
    if (is_ending_) ::shutdown(fd, SHUT_RDWR);
  }
  void Accept() {
    for (;;) {
      const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;
      Keep(fd);
      ++accepted_;
      ++open_;
      serving_.emplace_back([this, fd] {
        serve_(fd);
        Close(fd);
        --open_;
      });
    }
  }

  const Serve serve_;
  int listener_ = -1, port_ = 0;
  std::atomic<int> accepted_{0}, open_{0};
  std::mutex mutex_;
  std::set<int> fds_;
  bool is_ending_ = false;
  std::list<std::thread> serving_;
  std::thread accepting_;
};

}  // namespace tolven::test

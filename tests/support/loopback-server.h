// A server on loopback that serves each visitor in a thread, with plain blocking sockets, and what
// such servers do with them.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "platform/sockets.h"
#include "support/loopback-listener.h"

namespace tolven::test {

class LoopbackServer {
 public:
  using Socket = platform::NativeSocket;
  // `serve` is called in a thread for each connection, which is closed after it. Its calls fail
  // once the object goes.
  using Serve = std::function<void(Socket socket)>;

  explicit LoopbackServer(Serve serve) : serve_(std::move(serve)) {
    accepting_ = std::thread([this] { Accept(); });
  }
  ~LoopbackServer() {
    listener_.Stop();
    accepting_.join();
    {
      const std::lock_guard lock(mutex_);
      is_ending_ = true;
      for (const Socket each : sockets_) End(each);
    }
    for (std::thread& each : serving_) each.join();
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const { return listener_.port(); }
  int accepted() const { return accepted_; }
  int open() const { return open_; }

  // A connection to another port here, which ends with this object, too; kInvalidSocket for none.
  Socket Connect(int port) {
    const Socket made = LoopbackListener::Connect(port);
    if (made != platform::kInvalidSocket) Keep(made);
    return made;
  }
  void Close(Socket socket) {
    const std::lock_guard lock(mutex_);
    sockets_.erase(socket);
    {
      const std::lock_guard ended(EndedOnes().mutex);
      EndedOnes().sockets.erase(socket);
    }
    (void)g_sockets.Close(socket);
  }
  // Is told of the bytes that were carried, from the client or to it; false ends the connection.
  using Watch = std::function<bool(bool is_from_client, std::size_t size)>;
  // Carries bytes both ways until one side ends.
  void Join(
      Socket client, int port, const Watch& watch = [](bool, std::size_t) { return true; }) {
    const Socket target = Connect(port);
    if (target == platform::kInvalidSocket) return;
    const auto carry = [&](Socket from, Socket to) {
      std::array<char, 16'384> bytes;
      for (std::size_t got = 1; got > 0;) {
        got = Receive(from, bytes.data(), bytes.size());
        if (!Send(to, {bytes.data(), got}) || (got > 0 && !watch(from == client, got))) break;
      }
      End(from);
      End(to);
    };
    std::thread back(carry, target, client);
    carry(client, target);
    back.join();
    Close(target);
  }

  static bool Send(Socket socket, std::string_view bytes) {
    while (!bytes.empty()) {
      std::size_t sent = 0;
      if (!g_sockets.Send(socket, bytes.data(), bytes.size(), sent).ok() || sent == 0) return false;
      bytes.remove_prefix(sent);
    }
    return true;
  }
  // 0 at the end of the connection, whatever the reason.
  static std::size_t Receive(Socket socket, char* data, std::size_t size) {
    // Not every system ends a read when its own socket is shut down.
    while (g_sockets.Wait(socket, platform::SocketWait::kRead, kLookAroundMs)
               .is(platform::ErrorKind::kTimedOut)) {
      if (HasEnded(socket)) return 0;
    }
    std::size_t got = 0;
    return g_sockets.Receive(socket, data, size, got).ok() ? got : 0;
  }
  // Up to and with the empty line, and nothing behind it; empty at the end of the connection.
  static std::string ReadHead(Socket socket) {
    std::string head;
    char byte = 0;
    while (!head.ends_with("\r\n\r\n")) {
      if (Receive(socket, &byte, 1) != 1) return {};
      head += byte;
    }
    return head;
  }
  static void AwaitEnd(Socket socket) {
    std::array<char, 4096> bytes;
    while (Receive(socket, bytes.data(), bytes.size()) > 0) {
    }
  }

 private:
  static constexpr int kLookAroundMs = 50;

  // Those that were shut down here and are still open.
  struct Ended {
    std::mutex mutex;
    std::set<Socket> sockets;
  };
  static Ended& EndedOnes() {
    static Ended ended;
    return ended;
  }
  static void End(Socket socket) {
    const std::lock_guard lock(EndedOnes().mutex);
    EndedOnes().sockets.insert(socket);
    (void)g_sockets.ShutDown(socket);
  }
  static bool HasEnded(Socket socket) {
    const std::lock_guard lock(EndedOnes().mutex);
    return EndedOnes().sockets.contains(socket);
  }

  void Keep(Socket socket) {
    const std::lock_guard lock(mutex_);
    sockets_.insert(socket);
    if (is_ending_) End(socket);
  }
  void Accept() {
    Socket visitor = platform::kInvalidSocket;
    while (listener_.Accept(visitor)) {
      Keep(visitor);
      ++accepted_;
      ++open_;
      serving_.emplace_back([this, visitor] {
        serve_(visitor);
        Close(visitor);
        --open_;
      });
    }
  }

  const Serve serve_;
  LoopbackListener listener_;
  std::atomic<int> accepted_{0}, open_{0};
  std::mutex mutex_;
  std::set<Socket> sockets_;
  bool is_ending_ = false;
  std::list<std::thread> serving_;
  std::thread accepting_;
};

}  // namespace tolven::test

// Stands between clients and a server on loopback: counts the bytes of each direction, and cuts the
// connections when it is told to.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/loopback-server.h"

namespace tolven::test {

class Forwarder {
 public:
  explicit Forwarder(int server_port)
      : server_([this, server_port](LoopbackServer::Socket client) {
          server_.Join(client, server_port, [this](bool is_up, std::size_t size) {
            return is_up ? Count(up_, cut_up_, size) : Count(down_, cut_down_, size);
          });
        }) {}

  int port() const { return server_.port(); }
  std::uint64_t up() const { return up_; }      // from clients to the server
  std::uint64_t down() const { return down_; }  // from the server to clients
  void Reset() { up_ = down_ = 0; }
  // Cuts the connection in which the count of a direction passes the limit, once.
  void CutAfterUp(std::uint64_t bytes) { cut_up_ = bytes; }
  void CutAfterDown(std::uint64_t bytes) { cut_down_ = bytes; }
  bool WasCut() const { return cuts_ > 0; }

 private:
  using Number = std::atomic<std::uint64_t>;

  bool Count(Number& count, Number& cut, std::size_t size) {
    count += size;
    std::uint64_t limit = cut;
    if (count < limit || !cut.compare_exchange_strong(limit, UINT64_MAX)) return true;
    ++cuts_;
    return false;
  }

  Number up_{0}, down_{0}, cut_up_{UINT64_MAX}, cut_down_{UINT64_MAX};
  std::atomic<int> cuts_{0};
  LoopbackServer server_;
};

}  // namespace tolven::test

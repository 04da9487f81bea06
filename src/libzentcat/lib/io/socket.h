#pragma once

#include <atomic>
#include <string>

#include "libzentcat/lib/io/io-base.h"
#include "platform/sockets.h"

namespace tolven::TolvenApplication {

// A TCP socket. Copies and clones share the descriptor, and destroying one leaves it open.
// Belongs to one thread at a time.
class Socket : public IOBase {
 public:
  Socket() = default;
  explicit Socket(platform::NativeSocket fd) : _fd(fd) {}

  std::int64_t read(void* data, std::size_t size) override;
  std::int64_t write(const void* data, std::size_t size) override;
  int sync() override { return 0; }
  int close() override;
  std::unique_ptr<IOBase> clone() const override;
  int selectFor(Mode mode, int milliseconds) override;

  bool isValid() const;
  int shutdown();
  void assign(platform::NativeSocket fd) { _fd = fd; }
  int setBlocking(bool blocking);
  int setLinger(int seconds);
  int setNoDelay();
  // The outcome of the last call that failed.
  const platform::Status& error() const { return _error; }
  platform::NativeSocket fd() const { return _fd; }

  // Connects to a host, trying its addresses in turn until one answers or `*abort_flag` is not 0
  // (a null flag never is). The socket is made here and non-blocking unless `seconds` is 0, which
  // makes connecting wait as long as the system does. 0 or -1; after a failure there is no socket.
  int connectIPv4(const std::string& host, int port, int seconds,
                  const std::atomic<int>* abort_flag);
  int connectIPv6(const std::string& host, int port, int seconds,
                  const std::atomic<int>* abort_flag);

 private:
  int connect(int family, const std::string& host, int port, int seconds,
              const std::atomic<int>* abort_flag);
  int connectTo(const platform::SocketAddress& address, int seconds,
                const std::atomic<int>* abort_flag);
  int waitConnect(int seconds, const std::atomic<int>* abort_flag);
  // Remembers a failure; 0 for success and -1 otherwise.
  int result(const platform::Status& status);

  platform::NativeSocket _fd = platform::kInvalidSocket;
  platform::Status _error;
};

}  // namespace tolven::TolvenApplication

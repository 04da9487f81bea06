// A socket in the hands of the proxy client: non-blocking, and read no further than the proxy's own
// words go, since what follows them is the target's. Results are 0, or -1 when the connection broke
// or ended, the peer was silent for too long, or the caller wants an end.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/sockets.h"

namespace tolven {

struct ProxySocket {
  platform::NativeSocket fd = platform::kInvalidSocket;
  const std::atomic<int>* abort = nullptr;  // not 0: the end is wanted; may be null
  // When all that is asked of the proxy must be done, in milliseconds of the monotonic clock: a
  // proxy that says a byte now and then would hold us for ever otherwise.
  std::int64_t end = std::numeric_limits<std::int64_t>::max();

  bool IsOver() const;
  // Waits, with an eye on all this, until the socket can be used so: 1, 0 when the time is up, or
  // -1.
  int Await(platform::SocketWait what, std::int64_t milliseconds) const;
};

// In each of these the peer may be silent for five times a fifth of `timeout` seconds, and once
// more.

// Sends all of `data`.
int ZENTProxyClientPacketSend(const ProxySocket& socket, const char* data, std::size_t length,
                              int timeout);
// A line without its end, which is "\n" or "\r\n"; -1 also when it has more than `size` bytes with
// it.
int ZENTProxyClientReadOneLine(const ProxySocket& socket, std::string& line, std::size_t size,
                               int timeout);
// Throws away `length` bytes; for 0 everything up to and with the first "\r\n\r\n". The end of the
// connection is an end, too. -1 also for more than anybody puts into an error page.
int ZENTProxyClientClearHttpContentByLength(const ProxySocket& socket, std::uint64_t length,
                                            int timeout);

}  // namespace tolven

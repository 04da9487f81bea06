// The exchange by which a relay joins a connection to its target: an HTTP Upgrade over TLS. It
// drives OpenSSL itself, on a non-blocking socket, and leaves the rest of the connection alone.
#pragma once

#include <atomic>

struct ssl_st;

namespace tolven {

enum : int { kTunnelRefused = -1, kTunnelBroken = -402, kTunnelTimedOut = -403 };

// Writes `data`: 0, kTunnelBroken, or kTunnelTimedOut after `timeout` seconds. The socket is waited
// for in slices of `tv_sec` and `tv_usec`. `*abort`, which may be null, ends the wait once it is
// not 0.
int ZENTTunnelNonBlockingWrite(ssl_st* ssl, const char* data, int length, long tv_sec, long tv_usec,
                               int timeout, const std::atomic<int>* abort = nullptr);

// Asks the relay behind `ssl` for `target_host`. 0 for success; otherwise the relay's status, which
// may be positive, or a code of above. A relay that says nothing of the outcome, or breaks off,
// counts as success: whoever speaks over the connection will find it dead. A relay that says more
// than its header is refused, so that nothing of it passes for an answer of the target.
int ZENTTunnelClientHandshake(ssl_st* ssl, const char* target_host, int target_port, long tv_sec,
                              long tv_usec, int timeout, const std::atomic<int>* abort = nullptr);

}  // namespace tolven

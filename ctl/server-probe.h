// Speaks the handshake with a server on behalf of the daemon: what a connection's record lacks, the
// server's build above all, is learnt before the daemon is told of it, and a wrong token or
// certificate is found before anything waits for it.
#pragma once

#include <atomic>
#include <string>

#include "ctl/session-store.h"
#include "protocol/object.h"

namespace tolven::ctl {

struct ProbeResult {
  // 0, or a code of lib/error-table.h: -2 the server cannot be reached, -6 the token is refused,
  // -24 the certificate is not trusted, others as the server said.
  int code = 0;
  std::string error;    // one line for a person when `code` is not 0
  std::string address;  // of the server, when one of them could be reached
  std::uint32_t major = 0, minor = 0, build = 0;
};

// Asks the server of a record. Blocks for up to a minute when nobody answers, or two behind a proxy
// or relay; `*abort` not 0 ends that early. Uses the certificates of WriteTrustBundle. Any thread
// may call.
ProbeResult ProbeServer(const ConnectionRecord& connection, std::atomic<int>* abort);

// The request by which the daemon links a connection, or is told of its changes: `action` is
// "link_connection" or "reload_connection". Names are resolved, unless a proxy or relay is to do
// so; the server's is its `address` when that is known. False with one line in `error`.
bool MakeConnectionRequest(const ConnectionRecord& connection, const char* action, PObject& request,
                           std::string& error);

}  // namespace tolven::ctl

// The wire side of tolven-server: it accepts connections and answers every command of the sync
// protocol out of two stores, one of metadata and one of contents. It keeps no state of its own but
// transfers in progress, so several processes may serve the same stores.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "ustring/ustring.h"

namespace tolven::server {

class ContentStore;
class Metadata;

struct ServeOptions {
  std::string listen_address = "127.0.0.1";  // a host name or an IPv4 or IPv6 literal
  int port = 7711;                           // 0: any free one
  // Holds the certificate made at the first start ("server.pem", "server.key") and transfers in
  // progress ("transfers"). Made when missing.
  ustring data_dir;
  // PEM files, the certificate followed by those of its issuers; both empty: the own certificate.
  ustring certificate_path, key_path;
  std::uint32_t build = 3317;  // the build number to speak as; 3111 and below send no access lists
  unsigned max_connections = 256;  // further ones are closed at once

  // Seconds that an idle connection is kept open, as told in every answer.
  std::uint32_t alive_seconds = 300;
  // Seconds without a single byte in the middle of a message, after which a connection ends.
  std::uint32_t io_timeout_seconds = 60;
  // A connection that has not shown a valid session by then ends.
  std::chrono::seconds login_time{30};
  // How often a client hears that a long piece of work goes on.
  std::chrono::milliseconds keep_alive_interval{20000};

  // Serving ends soon after `*stop`, which stays the caller's, became true. Null: with SIGTERM,
  // Ctrl-C and their like.
  const std::atomic<bool>* stop = nullptr;
  // Is told the port once connections are accepted, and the SHA-256 fingerprint of the
  // certificate ("AB:CD:..."), which otherwise go to standard output.
  std::function<void(int port, const std::string& fingerprint)> ready;
};

// Serves until told to stop, then ends every connection and returns. The stores must be open and
// outlive the call; they are used from many threads. The log category is "server". 0, or -1 when
// the socket, the certificate or the folder cannot be had.
int Serve(const ServeOptions& options, Metadata& metadata, ContentStore& contents);

}  // namespace tolven::server

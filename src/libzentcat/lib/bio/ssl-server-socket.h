#pragma once

#include <string>

#include "libzentcat/lib/bio/ssl-socket.h"

namespace tolven::TolvenApplication {

// The server's side of TLS. Key and certificate are set before it is loaded.
class SslServerSocket : public SslSocket {
 public:
  SslServerSocket();

  // PEM files: 0, or -1 with the reason in OpenSSL's error queue. The certificate may be followed
  // by those of its issuers.
  int setPrivateKey(const std::string& path);
  int setCertificate(const std::string& path);

  int load(IOBase& io) override;
};

}  // namespace tolven::TolvenApplication

#include "libzentcat/lib/bio/ssl-server-socket.h"

namespace tolven::TolvenApplication {

SslServerSocket::SslServerSocket() : SslSocket(TLS_server_method()) {
  // Nobody resumes sessions, and a ticket that comes after the handshake would stand in the way of
  // a connection that goes back to plain at once.
  if (context() != nullptr) SSL_CTX_set_num_tickets(context(), 0);
}

int SslServerSocket::setPrivateKey(const std::string& path) {
  if (context() == nullptr) return -1;
  return SSL_CTX_use_PrivateKey_file(context(), path.c_str(), SSL_FILETYPE_PEM) == 1 ? 0 : -1;
}

int SslServerSocket::setCertificate(const std::string& path) {
  if (context() == nullptr) return -1;
  return SSL_CTX_use_certificate_chain_file(context(), path.c_str()) == 1 ? 0 : -1;
}

int SslServerSocket::load(IOBase& io) { return handshakeOn(io, SSL_set_accept_state); }

}  // namespace tolven::TolvenApplication

#pragma once

#include <openssl/ssl.h>

#include <memory>

#include "libzentcat/lib/bio/buffered-io-base.h"
#include "libzentcat/lib/io/socket.h"

namespace tolven::TolvenApplication {

// The layer of a TLS connection: loading it runs the handshake on the given socket. Small writes
// gather as on a plain connection, so that an integer does not cost a TLS record of its own.
//
// Unloading sends no close_notify, since the connection may live on in another layer; the protocol
// above delimits its messages itself. Nothing is read ahead of the record in hand, so a connection
// handed on loses no byte.
class SslSocket : public BufferedIOBase {
 public:
  enum ssl_error {
    error_invalid_fd = -100,  // not loaded with a Socket
    error_verify = -101,      // chain or host name of the peer's certificate
  };

  ~SslSocket() override;

  void unload() override;
  std::int64_t read(void* data, std::size_t size) override;

  SSL* ssl() const { return m_ssl; }  // null when not loaded
  // The newest version of TLS to use, such as TLS1_2_VERSION: 0 or -1. To be called before load().
  int setMaxVersion(int version);

 protected:
  explicit SslSocket(const SSL_METHOD* method);

  // Loads a socket and runs the handshake in the role that `set_state` gives: 0 or -1.
  int handshakeOn(IOBase& io, void (*set_state)(SSL*));
  SSL_CTX* context() const { return m_ssl_ctx; }  // null when OpenSSL could not make one

  std::int64_t wait_and_write(const void* data, std::size_t size) override;

 private:
  int createSsl(Socket& socket);
  int wait_and_handshake();
  // What a result of OpenSSL means: 0 nothing, 1 go on when `mode` is possible, -1 the end.
  int handleError(int result, IOBase::Mode& mode);
  // handleError, and the wait it asks for. Bytes of a record still incomplete end the silence, too.
  int waitFor(int result, Silence& silence);
  std::uint64_t wireBytes() const;

  // At most `size` bytes into `data`, as soon as there are any: how many, 0 at the end.
  std::size_t readSome(char* data, std::size_t size, Silence& silence);

  SSL_CTX* m_ssl_ctx;
  SSL* m_ssl = nullptr;
  // What is left of the record in hand: a message is read in many small pieces.
  std::unique_ptr<LineBuffer<char>> m_rbuf;
  std::uint64_t m_seen_bytes = 0;
};

}  // namespace tolven::TolvenApplication

#include "libzentcat/lib/bio/ssl-socket.h"

#include <openssl/bio.h>
#include <openssl/err.h>

#include <algorithm>
#include <limits>

namespace tolven::TolvenApplication {

namespace {

int ToInt(std::size_t size) {
  return static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max()));
}

}  // namespace

SslSocket::SslSocket(const SSL_METHOD* method) : m_ssl_ctx(SSL_CTX_new(method)) {
  if (m_ssl_ctx == nullptr) return;
  SSL_CTX_set_min_proto_version(m_ssl_ctx, TLS1_2_VERSION);
  // Large writes come back record by record, so that each renews the time-out and can be aborted.
  SSL_CTX_set_mode(m_ssl_ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
}

SslSocket::~SslSocket() {
  SSL_free(m_ssl);
  SSL_CTX_free(m_ssl_ctx);
}

int SslSocket::setMaxVersion(int version) {
  if (m_ssl_ctx == nullptr) return -1;
  return SSL_CTX_set_max_proto_version(m_ssl_ctx, version) == 1 ? 0 : -1;
}

int SslSocket::handshakeOn(IOBase& io, void (*set_state)(SSL*)) {
  auto* const socket = dynamic_cast<Socket*>(&io);
  if (socket == nullptr) return fail(error_invalid_fd);
  if (createSsl(*socket) < 0) return -1;
  set_state(m_ssl);
  return wait_and_handshake();
}

int SslSocket::createSsl(Socket& socket) {
  const platform::NativeSocket fd = socket.fd();  // `socket` may be our own, which load() replaces
  if (BufferedIOBase::load(socket) < 0) return -1;
  if (m_ssl_ctx != nullptr) m_ssl = SSL_new(m_ssl_ctx);
  if (m_ssl == nullptr || SSL_set_fd(m_ssl, static_cast<int>(fd)) != 1) {
    return fail(error_syscall);
  }
  m_seen_bytes = 0;
  m_rbuf = std::make_unique<LineBuffer<char>>(SSL3_RT_MAX_PLAIN_LENGTH);
  return 0;
}

void SslSocket::unload() {
  SSL_free(m_ssl);
  m_ssl = nullptr;
  m_rbuf.reset();
  BufferedIOBase::unload();
}

std::uint64_t SslSocket::wireBytes() const {
  return BIO_number_read(SSL_get_rbio(m_ssl)) + BIO_number_written(SSL_get_wbio(m_ssl));
}

int SslSocket::wait_and_handshake() {
  Silence silence;
  while (!stopped()) {
    ERR_clear_error();
    const int result = SSL_do_handshake(m_ssl);
    if (result == 1) return 0;
    if (waitFor(result, silence) < 0) return -1;
  }
  return -1;
}

std::int64_t SslSocket::read(void* data, std::size_t size) {
  if (!loaded() || !isGoodToRead()) return -1;
  auto* const out = static_cast<char*>(data);
  Silence silence;
  std::size_t done = m_rbuf->read(out, size);
  while (done < size) {
    const std::size_t rest = size - done;
    std::size_t got = 0;
    if (rest >= m_rbuf->capacity()) {
      got = readSome(out + done, rest, silence);
    } else {
      m_rbuf->grow(readSome(m_rbuf->tail(m_rbuf->room()), m_rbuf->room(), silence));
      got = m_rbuf->read(out + done, rest);
    }
    if (got == 0) break;
    done += got;
  }
  return static_cast<std::int64_t>(done);
}

std::size_t SslSocket::readSome(char* data, std::size_t size, Silence& silence) {
  while (!stopped()) {
    ERR_clear_error();
    const int got = SSL_read(m_ssl, data, ToInt(size));
    if (got > 0) {
      silence.moved();
      reportRead(static_cast<std::size_t>(got));
      return static_cast<std::size_t>(got);
    }
    if (waitFor(got, silence) < 0) break;
  }
  return 0;
}

std::int64_t SslSocket::wait_and_write(const void* data, std::size_t size) {
  const auto* const bytes = static_cast<const char*>(data);
  Silence silence;
  std::size_t done = 0;
  while (done < size && !stopped()) {
    ERR_clear_error();
    const int sent = SSL_write(m_ssl, bytes + done, ToInt(size - done));
    if (sent > 0) {
      silence.moved();
      done += static_cast<std::size_t>(sent);
    } else if (waitFor(sent, silence) < 0) {
      setNoWrite();
      break;
    }
  }
  return static_cast<std::int64_t>(done);
}

int SslSocket::waitFor(int result, Silence& silence) {
  IOBase::Mode mode = IOBase::MODE_READ_WRITE;
  const int outcome = handleError(result, mode);
  if (outcome <= 0) return -1;
  const std::uint64_t bytes = wireBytes();
  if (bytes != m_seen_bytes) silence.moved();
  m_seen_bytes = bytes;
  return waitForIO(mode, silence);
}

int SslSocket::handleError(int result, IOBase::Mode& mode) {
  switch (SSL_get_error(m_ssl, result)) {
    case SSL_ERROR_NONE:
      return 0;
    case SSL_ERROR_WANT_READ:
      mode = IOBase::MODE_READ;
      return 1;
    case SSL_ERROR_WANT_WRITE:
      mode = IOBase::MODE_WRITE;
      return 1;
    case SSL_ERROR_WANT_X509_LOOKUP:
    case SSL_ERROR_WANT_CONNECT:
    case SSL_ERROR_WANT_ACCEPT:
      return 1;
    case SSL_ERROR_ZERO_RETURN:
      setNoRead();
      setNoWrite();
      return -1;
    case SSL_ERROR_SYSCALL:
      if (ERR_peek_error() == 0 && result == 0) {
        setNoRead();
        setNoWrite();
      }
      break;
    default:
      break;
  }
  ERR_clear_error();
  return fail(error_syscall);
}

}  // namespace tolven::TolvenApplication

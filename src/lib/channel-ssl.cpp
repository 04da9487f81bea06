// The TLS side of a channel.
#include <openssl/err.h>
#include <openssl/ssl.h>

#include "lib/abort-handler.h"
#include "lib/channel.h"
#include "lib/error-table.h"
#include "lib/log.h"
#include "libzentcat/lib/bio/ssl-client-socket.h"
#include "libzentcat/lib/bio/ssl-server-socket.h"
#include "libzenttunnelclient/tunnel-client.h"

namespace tolven {

namespace {

using TolvenApplication::SslClientSocket;
using TolvenApplication::SslServerSocket;
using TolvenApplication::SslSocket;

constexpr const char* kCategory = "channel_debug";
constexpr int kIoFailed = -2;
constexpr const char* kDirectCiphers = "RC4-MD5";

}  // namespace

std::string Channel::m_cert_path;
std::string Channel::m_key_path;
ustring Channel::m_ca_path;

void log_ssl() {
  char text[256];
  while (const unsigned long code = ERR_get_error()) {
    Logger::LogMsg(Logger::L_WARNING, kCategory, L"[WARNING] channel(%d): ssl-errors: %s\n",
                   __LINE__, ERR_error_string(code, text));
  }
}

int Channel::ConvertToSSLChannel(bool server) {
  if (m_isSSL) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] channel(%d): ConvertToSSLChannel: Channel is SSL channel, no need "
                   L"to be converted\n",
                   __LINE__);
    return 0;
  }
  if (m_bio == nullptr) return kIoFailed;
  auto ssl = CreateSSLSocket(server);
  if (ssl == nullptr) return kIoFailed;
  if (m_bio->handoverTo(*ssl) < 0) {
    if (ssl->error() != SslSocket::error_verify) return kIoFailed;
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] channel(%d): ConvertToSSLChannel: %s, host name '%s'\n", __LINE__,
                   ErrorText(ErrorCodes::ERR_SSL_VERIFY_FAIL), m_ssl_hostname);
    return ErrorCodes::ERR_SSL_VERIFY_FAIL;
  }
  m_bio = std::move(ssl);
  m_isSSL = true;
  return 0;
}

int Channel::AskRelay(const char* host, int port, int& status) {
  using std::chrono::duration_cast, std::chrono::seconds;
  if (m_bio == nullptr || m_isSSL) return kIoFailed;
  const auto ssl = CreateSSLClient(true, ustring());
  const bool is_ready = ssl->setMaxVersion(TLS1_2_VERSION) == 0 && m_bio->handoverTo(*ssl) == 0;
  if (is_ready) {
    const auto whole = duration_cast<seconds>(m_timeout);
    status = ZENTTunnelClientHandshake(ssl->ssl(), host, port, static_cast<long>(whole.count()),
                                       static_cast<long>((m_timeout - whole).count()),
                                       static_cast<int>(channel_timeout), AbortFlag());
  }
  // After a handshake that failed the socket may be in both.
  const bool is_back = ssl->handoverTo(*m_bio) == 0;
  return is_ready && is_back ? 0 : kIoFailed;
}

std::unique_ptr<SslSocket> Channel::CreateSSLSocket(bool server) {
  return server ? CreateSSLServer() : CreateSSLClient(m_is_allowing_untrust, m_ssl_hostname);
}

std::unique_ptr<SslSocket> Channel::CreateSSLClient(bool allow_untrust, const ustring& hostname) {
  auto socket = std::make_unique<SslClientSocket>();
  socket->setVerify(!allow_untrust);
  if (socket->setVerifyCa(m_ca_path.str()) < 0 && !allow_untrust) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] channel(%d): no trusted authorities in '%s'\n", __LINE__, m_ca_path);
  }
  socket->setVerifyCallback(nullptr);
  socket->setVerifyHostname(hostname.str());
  return socket;
}

std::unique_ptr<SslSocket> Channel::CreateSSLServer() {
  auto socket = std::make_unique<SslServerSocket>();
  if (socket->setPrivateKey(m_key_path) < 0 || socket->setCertificate(m_cert_path) < 0) {
    log_ssl();
    return nullptr;
  }
  return socket;
}

int Channel::InitSSL(SSL*& ssl, SSL_CTX*& context, bool server, bool allow_untrust) {
  ssl = nullptr;
  context = SSL_CTX_new(server ? SSLv23_server_method() : SSLv23_client_method());
  bool ready = context != nullptr;
  if (ready && server) {
    ready = InstallCERT(context) == 0 && InstallPriKey(context) == 0;
  } else if (ready) {
    ready = SSL_CTX_set_cipher_list(context, kDirectCiphers) == 1 &&
            (allow_untrust || InstallVerifyCA(context) == 0);
  }
  if (ready) ssl = SSL_new(context);
  if (ssl == nullptr ||
      (m_socket != nullptr && SSL_set_fd(ssl, static_cast<int>(m_socket->fd())) != 1)) {
    log_ssl();
    DeinitSSL(ssl, context, true);
    return kIoFailed;
  }
  if (server) {
    SSL_set_accept_state(ssl);
  } else {
    SSL_set_connect_state(ssl);
  }
  return 0;
}

void Channel::DeinitSSL(SSL*& ssl, SSL_CTX*& context, bool quiet) {
  if (ssl != nullptr) {
    if (quiet) SSL_set_quiet_shutdown(ssl, 1);
    SSL_shutdown(ssl);
    SSL_free(ssl);
    ssl = nullptr;
  }
  SSL_CTX_free(context);
  context = nullptr;
  ERR_clear_error();
}

int Channel::InstallCERT(SSL_CTX* context) {
  return SSL_CTX_use_certificate_chain_file(context, m_cert_path.c_str()) == 1 ? 0 : kIoFailed;
}

int Channel::InstallPriKey(SSL_CTX* context) {
  const bool usable =
      SSL_CTX_use_PrivateKey_file(context, m_key_path.c_str(), SSL_FILETYPE_PEM) == 1 &&
      SSL_CTX_check_private_key(context) == 1;
  return usable ? 0 : kIoFailed;
}

int Channel::InstallVerifyCA(SSL_CTX* context) {
  const char* const path = m_ca_path.c_str_utf8();
  if (SSL_CTX_load_verify_file(context, path) != 1) {
    ERR_clear_error();
    if (SSL_CTX_load_verify_dir(context, path) != 1) return kIoFailed;
  }
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  return 0;
}

}  // namespace tolven

#include "libzentcat/lib/bio/ssl-client-socket.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace tolven::TolvenApplication {

namespace {

// Names of hosts are ASCII; the locale must have no say here.
char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

// The bytes as UTF-8, with any NUL inside kept: a name that is cut at one could pass for another.
std::string ToUtf8(const ASN1_STRING* text) {
  unsigned char* bytes = nullptr;
  const int length = ASN1_STRING_to_UTF8(&bytes, text);
  if (length < 0) return {};
  std::string result(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  OPENSSL_free(bytes);
  return result;
}

}  // namespace

SslClientSocket::SslClientSocket() : SslSocket(TLS_client_method()) {}

int SslClientSocket::setVerifyCa(const std::string& path) {
  if (context() == nullptr || path.empty()) return -1;
  // A folder takes any path: its files are looked up when a chain needs them.
  const bool loaded = SSL_CTX_load_verify_file(context(), path.c_str()) == 1 ||
                      SSL_CTX_load_verify_dir(context(), path.c_str()) == 1;
  ERR_clear_error();
  return loaded ? 0 : -1;
}

void SslClientSocket::setVerifyCallback(SSL_verify_cb callback) {
  // The handshake goes on with any certificate; load() judges it.
  if (context() != nullptr) SSL_CTX_set_verify(context(), SSL_VERIFY_NONE, callback);
}

int SslClientSocket::load(IOBase& io) {
  if (handshakeOn(io, SSL_set_connect_state) < 0) return -1;
  m_verify_result = SSL_get_verify_result(ssl());
  if (!m_need_verify) return 0;
  if (m_verify_result != X509_V_OK || verifyHostname() < 0) return fail(error_verify);
  return 0;
}

int SslClientSocket::verifyHostname() const {
  if (m_hostname.empty()) return 0;
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(SSL_get1_peer_certificate(ssl()),
                                                                &X509_free);
  if (certificate == nullptr) return 0;
  const bool matches =
      matchSubjectCommonName(certificate.get()) || matchSubjectAlternativeName(certificate.get());
  return matches ? 0 : -1;
}

bool SslClientSocket::matchSubjectCommonName(X509* certificate) const {
  const X509_NAME* const subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  if (index < 0) return false;
  return matchHostname(ToUtf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index))));
}

bool SslClientSocket::matchSubjectAlternativeName(X509* certificate) const {
  const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> names(
      static_cast<GENERAL_NAMES*>(
          X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
      &GENERAL_NAMES_free);
  if (names == nullptr) return false;
  for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
    const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
    if (name->type == GEN_DNS && matchHostname(ToUtf8(name->d.dNSName))) return true;
  }
  return false;
}

bool SslClientSocket::matchHostname(const std::string& pattern) const {
  if (pattern.empty() || pattern[0] != '*') return EqualNoCase(pattern, m_hostname);
  if (pattern.size() < 2) return false;
  const std::string_view domain = std::string_view(pattern).substr(2);
  if (EqualNoCase(domain, m_hostname)) return true;
  const std::size_t dot = m_hostname.find('.');
  if (dot == std::string::npos) return false;
  return EqualNoCase(domain, std::string_view(m_hostname).substr(dot + 1));
}

}  // namespace tolven::TolvenApplication

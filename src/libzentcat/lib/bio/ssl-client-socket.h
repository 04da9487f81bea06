#pragma once

#include <string>

#include "libzentcat/lib/bio/ssl-socket.h"

namespace tolven::TolvenApplication {

// The client's side of TLS. Everything about the server's certificate is looked at once, after the
// handshake and before the first byte of content.
class SslClientSocket : public SslSocket {
 public:
  SslClientSocket();

  // Whether load() asks for a good chain and a matching name; without, neither is looked at.
  void setVerify(bool need_verify) { m_need_verify = need_verify; }
  // A PEM file or a folder of hashed PEM files with the trusted authorities: 0 or -1. With none
  // set, no chain is good.
  int setVerifyCa(const std::string& path);
  void setVerifyCallback(SSL_verify_cb callback);
  // The name to find in the certificate; with an empty one the chain alone counts.
  void setVerifyHostname(const std::string& name) { m_hostname = name; }

  int load(IOBase& io) override;

  // The result of the check of the chain, an X509_V_ code. REQUIRES: loaded.
  long verifyResult() const { return m_verify_result; }
  // 0 when the server's certificate is for the host name, -1 when it is not.
  int verifyHostname() const;

  // Whether a name of a certificate is that of the host: equal without regard to case, or "*." and
  // all of the host name or what follows its first dot.
  bool matchHostname(const std::string& pattern) const;

 private:
  bool matchSubjectCommonName(X509* certificate) const;
  bool matchSubjectAlternativeName(X509* certificate) const;

  bool m_need_verify = false;
  std::string m_hostname;
  long m_verify_result = 0;
};

}  // namespace tolven::TolvenApplication

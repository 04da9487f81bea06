// A relay: takes clients in over TLS, reads the target out of their token by arithmetic of its own,
// says what it is told to and leads them on to ports of this machine.
#pragma once

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/ssl.h>

#include <mutex>
#include <string>
#include <vector>

#include "support/loopback-server.h"
#include "support/ntlm-check.h"
#include "transport/certificates.h"

namespace tolven::test {

class TestRelay {
 public:
  struct Manner {
    std::string answer =
        "HTTP/1.1 101 Switching Protocols\r\nX-Target-Status: 0\r\nUpgrade: ZentrovaTunnel\r\n\r\n";
    bool stays = true;      // until the client goes; otherwise it hangs up after the answer
    int least_version = 0;  // of TLS
  };

  TestRelay() : TestRelay(Manner()) {}
  explicit TestRelay(Manner manner)
      : manner_(std::move(manner)),
        certificates_("some.relay.example", ""),
        context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free),
        server_([this](LoopbackServer::Socket client) { Serve(client); }) {}

  int port() const { return server_.port(); }
  int accepted() const { return server_.accepted(); }
  int joined() const { return joined_; }
  std::vector<std::string> problems() const {
    const std::lock_guard lock(mutex_);
    return problems_;
  }

 private:
  using Session = std::unique_ptr<SSL, decltype(&SSL_free)>;

  void Complain(const std::string& what) {
    const std::lock_guard lock(mutex_);
    problems_.push_back(what);
  }

  // "host:port" of a token; empty for one that is not as it should be.
  static std::string ReadToken(const std::string& token) {
    if (token.size() < 34 || token.substr(0, 4) != std::string("\xFF\xFF\0\x01", 4)) return {};
    const auto number = [&](std::size_t at) {
      std::uint32_t value = 0;
      for (std::size_t i = 0; i < 4; ++i) {
        value = value * 256 + static_cast<unsigned char>(token[at + i]);
      }
      return value;
    };
    const std::uint32_t length = number(20), seed = number(10) * 1103515245U + 12345U;
    if (length + 26 != token.size()) return {};
    const unsigned char word[4] = {
        static_cast<unsigned char>(seed >> 24), static_cast<unsigned char>(seed >> 16),
        static_cast<unsigned char>(seed >> 8), static_cast<unsigned char>(seed)};
    unsigned char key[36];
    SHA1(word, sizeof word, key);
    EVP_Digest(word, sizeof word, key + 20, nullptr, EVP_md5(), nullptr);
    const auto* const vector = reinterpret_cast<const unsigned char*>("TOLVENHB");
    std::string plain(length + 8, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(plain.data());
    const auto* const in = reinterpret_cast<const unsigned char*>(token.data()) + 24;
    int done = 0, last = 0;
    EVP_CIPHER_CTX* const cipher = EVP_CIPHER_CTX_new();
    EVP_DecryptInit_ex(cipher, EVP_des_ede3_cbc(), nullptr, key, vector);
    EVP_DecryptUpdate(cipher, out, &done, in, static_cast<int>(length));
    const int is_good = EVP_DecryptFinal_ex(cipher, out + done, &last);
    EVP_CIPHER_CTX_free(cipher);
    plain.resize(is_good == 1 ? static_cast<std::size_t>(done + last) : 0);
    return plain;
  }

  // The port of the target; 0 for a request that is not as it should be.
  int ReadRequest(const std::string& head) {
    const auto value = [&](const std::string& key) {
      const std::size_t at = head.find("\r\n" + key + ": ") + key.size() + 4;
      return head.substr(at, head.find("\r\n", at) - at);
    };
    const std::string host = value("X-Target-Host"), port = value("X-Target-Port");
    const std::string token = value("X-AuthToken");
    const std::string wanted =
        "GET /zent-tunnel HTTP/1.1\r\nHost: relay.tolvenhub.example\r\n"
        "Upgrade: ZentrovaTunnel\r\nX-Target-Host: " +
        host + "\r\nX-Target-Port: " + port + "\r\nX-AuthToken: " + token + "\r\n\r\n";
    if (head != wanted) Complain("request: " + head);
    const std::string told = ReadToken(NtlmCheck::Decode64(token));
    if (told == host + ":" + port) return std::stoi(port);
    Complain("token: '" + told + "'");
    return 0;
  }

  static std::string ReadHead(SSL* ssl) {
    std::string head;
    char byte = 0;
    while (!head.ends_with("\r\n\r\n")) {
      if (SSL_read(ssl, &byte, 1) != 1) return {};
      head += byte;
    }
    return head;
  }

  Session Accept(LoopbackServer::Socket client) {
    const std::lock_guard lock(mutex_);
    SSL_CTX_use_certificate_chain_file(context_.get(), certificates_.certificate().c_str_utf8());
    SSL_CTX_use_PrivateKey_file(context_.get(), certificates_.key().c_str_utf8(), SSL_FILETYPE_PEM);
    SSL_CTX_set_min_proto_version(context_.get(), manner_.least_version);
    Session ssl(SSL_new(context_.get()), &SSL_free);
    SSL_set_fd(ssl.get(), static_cast<int>(client));
    return ssl;
  }

  // The target's port once the client is to be led on, else 0.
  int Greet(LoopbackServer::Socket client) {
    const Session ssl = Accept(client);
    if (SSL_accept(ssl.get()) != 1) return 0;
    if (SSL_version(ssl.get()) != TLS1_2_VERSION) Complain("a newer TLS than records allow");
    if (SSL_get_servername(ssl.get(), TLSEXT_NAMETYPE_host_name) != nullptr) Complain("a name");
    const std::string head = ReadHead(ssl.get());
    const int port = head.empty() ? 0 : ReadRequest(head);
    if (port == 0) return 0;
    for (std::size_t at = 0; at < manner_.answer.size(); at += 16'000) {
      const std::string part = manner_.answer.substr(at, 16'000);
      if (SSL_write(ssl.get(), part.data(), static_cast<int>(part.size())) <= 0) return 0;
    }
    return port;
  }

  void Serve(LoopbackServer::Socket client) {
    const int port = Greet(client);
    if (port == 0 || !manner_.stays) return;
    ++joined_;
    server_.Join(client, port);
  }

  const Manner manner_;
  const Certificates certificates_;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::atomic<int> joined_{0};
  mutable std::mutex mutex_;
  std::vector<std::string> problems_;
  LoopbackServer server_;
};

}  // namespace tolven::test

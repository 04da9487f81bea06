// An HTTP proxy that insists on one way to log in, reads every word of its clients closely, and
// leads them on to ports of this machine.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "support/loopback-server.h"
#include "support/ntlm-check.h"

namespace tolven::test {

class TestProxy {
 public:
  enum class Wants { kNothing, kBasic, kNtlm1, kNtlm2 };

  explicit TestProxy(Wants wants, NtlmAccount account = {})
      : wants_(wants),
        account_(account),
        ntlm_(std::move(account), wants == Wants::kNtlm2),
        server_([this](LoopbackServer::Socket client) { Serve(client); }) {}

  int port() const { return server_.port(); }
  int open() const { return server_.open(); }
  int joined() const { return joined_; }
  // What clients did wrong, beside logging in in another way.
  std::vector<std::string> problems() const {
    const std::lock_guard lock(mutex_);
    return problems_;
  }
  // The targets that were asked for, as they were written.
  std::set<std::string> targets() const {
    const std::lock_guard lock(mutex_);
    return targets_;
  }

 private:
  void Complain(const std::string& what) {
    const std::lock_guard lock(mutex_);
    problems_.push_back(what);
  }
  bool Require(bool holds, const char* what) {
    if (!holds) Complain(what);
    return holds;
  }

  // The value of a header, empty for none.
  static std::string Value(const std::string& head, const std::string& key) {
    const std::string start = "\r\n" + key + ": ";
    const std::size_t at = head.find(start);
    if (at == std::string::npos) return {};
    const std::size_t begin = at + start.size();
    return head.substr(begin, head.find("\r\n", begin) - begin);
  }
  // The port to connect to; 0 for a request that is not as it should be.
  int ReadRequest(const std::string& head) {
    const std::string target = head.substr(8, head.find(' ', 8) - 8);
    const std::string wanted = "CONNECT " + target +
                               " HTTP/1.1\r\nProxy-Connection: Keep-Alive\r\nHost: " + target +
                               "\r\nContent-Length: 0\r\n";
    if (!Require(head.starts_with(wanted), "request")) return 0;
    const std::lock_guard lock(mutex_);
    targets_.insert(target);
    return std::stoi(target.substr(target.rfind(':') + 1));
  }

  void Serve(LoopbackServer::Socket client) {
    for (;;) {
      const std::string head = LoopbackServer::ReadHead(client);
      if (head.empty()) return;
      const int port = ReadRequest(head);
      std::string challenge;
      if (port != 0 && Admits(Value(head, "Proxy-Authorization"), challenge)) {
        ++joined_;
        LoopbackServer::Send(client, "HTTP/1.1 200 Connection established\r\nVia: test\r\n\r\n");
        server_.Join(client, port);
        return;
      }
      LoopbackServer::Send(client, Refusal(challenge));
    }
  }

  // As proxies are: with a page, and with more than one offer.
  std::string Refusal(const std::string& challenge) const {
    const std::string page = "<html>\r\n\r\nno</html>";
    const std::string offer = wants_ == Wants::kBasic ? "Basic realm=\"x\"" : "NTLM" + challenge;
    return "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Negotiate\r\n"
           "proxy-authenticate: " +
           offer + "\r\nContent-Type: text/html\r\nContent-Length: " + std::to_string(page.size()) +
           "\r\n\r\n" + page;
  }

  // Whether this login is enough; a `challenge` that is to follow "NTLM" otherwise.
  bool Admits(const std::string& login, std::string& challenge) {
    if (wants_ == Wants::kNothing) return true;
    if (wants_ == Wants::kBasic) {
      return login == "Basic " + NtlmCheck::Encode64(account_.user + ":" + account_.password);
    }
    if (!login.starts_with("NTLM ")) return false;
    const std::string message = NtlmCheck::Decode64(login.substr(5));
    if (message.size() > 8 && message[8] == 1) {
      // The other version asks, too.
      if (ntlm_.JudgeOffer(message).empty())
        challenge = " " + NtlmCheck::Encode64(ntlm_.Challenge());
      return false;
    }
    const std::string problem = ntlm_.JudgeAnswer(message);
    if (!problem.empty()) Complain(problem);
    return problem.empty();
  }

  const Wants wants_;
  const NtlmAccount account_;
  const NtlmCheck ntlm_;
  std::atomic<int> joined_{0};
  mutable std::mutex mutex_;
  std::vector<std::string> problems_;
  std::set<std::string> targets_;
  LoopbackServer server_;
};

}  // namespace tolven::test

// Where servers, proxies and relays are, as people write it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tolven::ctl {

struct Endpoint {
  std::string host;  // a name or an IPv4 or IPv6 literal, without brackets
  int port = 0;      // 0: none

  bool empty() const { return host.empty(); }
  std::string Text() const;  // "host:port" or "[literal]:port"
  bool operator==(const Endpoint&) const = default;
};

// "HOST:PORT" or "[LITERAL]:PORT". False with one line in `error`.
bool ReadEndpoint(const std::string& text, Endpoint& endpoint, std::string& error);

// An HTTP proxy: "http://[[DOMAIN\]USER[:PASSWORD]@]HOST:PORT", with or without "http://" in front.
// What has a meaning in addresses is written as in %40.
struct ProxyAddress {
  Endpoint endpoint;
  std::string user, password, domain;

  bool empty() const { return endpoint.empty(); }
};
bool ReadProxy(const std::string& url, ProxyAddress& proxy, std::string& error);

// Whether the text is an IPv4 or IPv6 literal and no name.
bool IsAddressLiteral(const std::string& host);

// The addresses of a host, those to try first in front; for a name the system's resolver is asked.
// False with one line in `error`.
bool ResolveHost(const Endpoint& endpoint, std::vector<std::string>& addresses, std::string& error);

}  // namespace tolven::ctl

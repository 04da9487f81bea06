#include "ctl/endpoint.h"

#include <charconv>
#include <string_view>

#include "platform/sockets.h"

namespace tolven::ctl {
namespace {

constexpr std::string_view kScheme = "http://";

// "%40" becomes "@"; false for what is no such triple.
bool Unescape(std::string_view text, std::string& plain) {
  plain.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return false;
    int byte = 0;
    const char* const end = text.data() + i + 3;
    const auto read = std::from_chars(text.data() + i + 1, end, byte, 16);
    if (read.ptr != end || byte <= 0) return false;
    plain += static_cast<char>(byte);
    i += 2;
  }
  return true;
}

bool ReadUser(std::string_view text, ProxyAddress& proxy) {
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos && !Unescape(text.substr(colon + 1), proxy.password)) {
    return false;
  }
  std::string user;
  if (!Unescape(text.substr(0, colon), user)) return false;
  const std::size_t backslash = user.find('\\');
  if (backslash != std::string::npos) proxy.domain = user.substr(0, backslash);
  proxy.user = backslash == std::string::npos ? user : user.substr(backslash + 1);
  return true;
}

}  // namespace

std::string Endpoint::Text() const {
  const bool is_literal6 = host.find(':') != std::string::npos;
  return (is_literal6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool ReadEndpoint(const std::string& text, Endpoint& endpoint, std::string& error) {
  const std::size_t colon = text.rfind(':');
  std::string host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    host.clear();
  }
  int port = 0;
  const char* const end = text.data() + text.size();
  const bool is_number = colon != std::string::npos &&
                         std::from_chars(text.data() + colon + 1, end, port).ptr == end &&
                         port > 0 && port <= 65535;
  if (host.empty() || !is_number) {
    error = "'" + text + "' is no HOST:PORT";
    return false;
  }
  endpoint = {host, port};
  return true;
}

bool ReadProxy(const std::string& url, ProxyAddress& proxy, std::string& error) {
  std::string_view rest = url;
  if (rest.starts_with(kScheme)) rest.remove_prefix(kScheme.size());
  while (rest.ends_with('/')) rest.remove_suffix(1);
  const std::size_t at = rest.rfind('@');
  proxy = {};
  if (at != std::string_view::npos && !ReadUser(rest.substr(0, at), proxy)) {
    error = "the user or password of the proxy has a '%' without two digits";
    return false;
  }
  if (at != std::string_view::npos) rest.remove_prefix(at + 1);
  return ReadEndpoint(std::string(rest), proxy.endpoint, error);
}

bool IsAddressLiteral(const std::string& host) {
  std::vector<platform::SocketAddress> found;
  return platform::sockets().Resolve(host, 1, true, found).ok() && !found.empty();
}

bool ResolveHost(const Endpoint& endpoint, std::vector<std::string>& addresses,
                 std::string& error) {
  std::vector<platform::SocketAddress> found;
  const platform::Status status =
      platform::sockets().Resolve(endpoint.host, endpoint.port, false, found);
  for (const platform::SocketAddress& address : found) addresses.push_back(address.text);
  if (!addresses.empty()) return true;
  error = "the name " + endpoint.host + " has no address: " + platform::StatusText(status);
  return false;
}

}  // namespace tolven::ctl

#include "ctl/server-probe.h"

#include <algorithm>
#include <vector>

#include "client/core/connection-request.h"
#include "client/core/refusal-codes.h"
#include "ctl/words.h"
#include "lib/channel-factory.h"
#include "lib/error-table.h"
#include "lib/proto-client.h"
#include "lib/proto-common.h"
#include "lib/proto-constants.h"
#include "platform/identity.h"
#include "protocol/stream.h"

namespace tolven::ctl {
namespace {

constexpr std::uint32_t kAnswerSeconds = 30;
// What a server without a word about itself counts as.
constexpr std::uint32_t kUntoldBuild = 2402;
constexpr int kConnectionModeIp = 1;
constexpr PStream::Limits kLimits{10'000, 1 << 20, false};

// Addresses of the server; behind a proxy or relay its name, which is looked up there.
bool FindServer(const ConnectionRecord& connection, std::vector<std::string>& addresses,
                std::string& error) {
  if (connection.proxy.empty() && connection.tunnel.empty()) {
    return ResolveHost(connection.server, addresses, error);
  }
  addresses.push_back(connection.server.host);
  return true;
}

bool AddProxy(const ConnectionRecord& connection, const ustring& computer, PObject& request,
              std::string& error) {
  if (connection.proxy.empty()) return true;
  ProxyAddress proxy;
  std::vector<std::string> addresses;
  if (!ReadProxy(connection.proxy, proxy, error) ||
      !ResolveHost(proxy.endpoint, addresses, error)) {
    return false;
  }
  // Proxies are spoken to over IPv4 alone.
  const auto usable = std::find_if(addresses.begin(), addresses.end(), [](const auto& address) {
    return address.find(':') == std::string::npos;
  });
  if (usable == addresses.end()) {
    error = "the proxy " + proxy.endpoint.host + " has no IPv4 address";
    return false;
  }
  request["use_proxy"] = true;
  request["proxy_ip"] = ustring(*usable);
  request["proxy_port"] = proxy.endpoint.port;
  request["proxy_host"] = computer;
  request["proxy_username"] = ustring(proxy.user);
  request["proxy_password"] = ustring(proxy.password);
  request["proxy_domain"] = ustring(proxy.domain);
  return true;
}

bool AddTunnel(const ConnectionRecord& connection, PObject& request, std::string& error) {
  if (connection.tunnel.empty()) return true;
  Endpoint tunnel;
  if (!ReadEndpoint(connection.tunnel, tunnel, error)) return false;
  std::vector<std::string> addresses{tunnel.host};
  if (connection.proxy.empty()) {
    addresses.clear();
    if (!ResolveHost(tunnel, addresses, error)) return false;
  }
  request["use_tunnel"] = true;
  request["tunnel_ip"] = ustring(addresses.front());
  request["tunnel_port"] = tunnel.port;
  return true;
}

std::string CannotReach(const ConnectionRecord& connection) {
  std::string text = "cannot reach " + connection.server.Text();
  if (!connection.tunnel.empty()) text += " through the relay " + connection.tunnel;
  if (!connection.proxy.empty()) text += " through the proxy";
  return text;
}

ProbeResult Fail(int code, std::string error) {
  ProbeResult result;
  result.code = code;
  result.error = std::move(error);
  return result;
}

ProbeResult Judge(const ConnectionRecord& connection, const PObject& response) {
  if (response.hasMember("error")) {
    int code = HandshakeErrorCode(response["error"]["code"].asUInt32());
    if (code == 0) code = ErrorCodes::ERR_SERVER;
    return Fail(code, connection.server.Text() + ": " + ErrorWords(code));
  }
  if (response["alive"].asUInt32() == 0) {
    return Fail(ErrorCodes::ERR_IO, connection.server.Text() + " refuses connections just now");
  }
  ProbeResult result;
  const PObject& version = response["server"]["package_version"];
  result.major = version["major"].asUInt32();
  result.minor = version["minor"].asUInt32();
  result.build = response.hasMember("server") ? version["build"].asUInt32() : kUntoldBuild;
  return result;
}

}  // namespace

bool MakeConnectionRequest(const ConnectionRecord& connection, const char* action, PObject& request,
                           std::string& error) {
  std::vector<std::string> addresses{connection.address};
  if (connection.address.empty()) {
    addresses.clear();
    if (!FindServer(connection, addresses, error)) return false;
  }
  ustring computer;
  int platform_id = 0;
  (void)platform::identity().HostName(computer, platform_id);  // only names of conflicts need it
  request.clear();
  request["action"] = action;
  request["connection_id"] = connection.id;
  request["connection_mode"] = kConnectionModeIp;
  request["server_ip"] = ustring(addresses.front());
  request["server_port"] = connection.server.port;
  request["session"] = ustring(connection.token);
  request["username"] = "";
  request["computer_name"] = computer;
  request["use_ssl"] = connection.tls;
  request["ssl_allow_untrust"] = connection.insecure;
  request["ssl_server_hostname"] = ustring(connection.host_name);
  request["package_major"] = connection.major;
  request["package_minor"] = connection.minor;
  request["package_version"] = connection.build;
  return AddProxy(connection, computer, request, error) && AddTunnel(connection, request, error);
}

namespace {

ProbeResult Speak(const ConnectionRecord& connection, Channel& channel, const ustring& host_name) {
  const std::string unreachable = CannotReach(connection);
  PObject request, response;
  PStream stream;
  stream.SetLimits(kLimits);
  InitRequest(request, "connect");
  request["session"] = ustring(connection.token);
  if (connection.tls) request["do_ssl"] = true;
  if (RunProtocol(channel, stream, SCMD_REQUEST_CONNECT, request, response) < 0) {
    return Fail(ErrorCodes::ERR_IO, unreachable + ": it does not answer");
  }
  ProbeResult result = Judge(connection, response);
  if (result.code != 0 || !connection.tls) return result;
  channel.SetAllowUntrust(connection.insecure);
  channel.SetSSLHostname(host_name);
  const int code = channel.ConvertToSSLChannel(false);
  if (code == ErrorCodes::ERR_SSL_VERIFY_FAIL) {
    return Fail(code, connection.server.Text() + ": " + ErrorWords(code));
  }
  return code < 0 ? Fail(ErrorCodes::ERR_IO, unreachable + " with TLS") : result;
}

ProbeResult ProbeAddress(const ConnectionRecord& connection, std::atomic<int>* abort) {
  PObject message;
  std::string error;
  if (!MakeConnectionRequest(connection, "link_connection", message, error)) {
    return Fail(ErrorCodes::ERR_IO, error);
  }
  const ConnectionRequest way(message);
  const auto channel = CreateChannelByConnectionType(way.proxy_in_use(), way.tunnel_in_use());
  channel->SetFlag(abort);
  channel->SetTimeout(kAnswerSeconds);
  if (channel->Open(way.info.server_ip.c_str_utf8(), way.info.server_port) < 0) {
    return Fail(ErrorCodes::ERR_IO, CannotReach(connection));
  }
  ProbeResult result = Speak(connection, *channel, way.info.server_name);
  result.address = connection.address;
  return result;
}

}  // namespace

ProbeResult ProbeServer(const ConnectionRecord& connection, std::atomic<int>* abort) {
  std::vector<std::string> addresses;
  std::string error;
  if (!FindServer(connection, addresses, error)) return Fail(ErrorCodes::ERR_IO, error);
  ProbeResult result;
  for (const std::string& address : addresses) {
    ConnectionRecord one = connection;
    one.address = address;
    result = ProbeAddress(one, abort);
    // An answer is an answer, from whichever address.
    if (result.code != ErrorCodes::ERR_IO || *abort != 0) break;
  }
  return result;
}

}  // namespace tolven::ctl

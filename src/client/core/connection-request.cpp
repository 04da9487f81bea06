#include "client/core/connection-request.h"

namespace tolven {

namespace {

void ReadServer(const PObject& msg, ConnectionInfo& info) {
  info.session = msg["session"].asString();
  info.server_ip = msg["server_ip"].asString();
  info.server_port = msg["server_port"].asInt32();
  info.conn_id = msg["connection_id"].asUInt64();
  info.c_mode = msg["connection_mode"].asInt32();
  info.username = msg["username"].asString();
  info.computer_name = msg["computer_name"].asString();
  info.use_ssl = msg["use_ssl"].asBool();
  info.version_info.build_number = static_cast<long>(msg["package_version"].asInt64());
  info.version_info.major = msg["package_major"].asInt32();
  info.version_info.minor = msg["package_minor"].asInt32();
  info.ssl_allow_untrust = msg["ssl_allow_untrust"].asBool();
  info.server_name = msg["ssl_server_hostname"].asString();
}

void ReadProxy(const PObject& msg, ProxyInfo& proxy) {
  proxy.use_proxy = msg["use_proxy"].asBool();
  proxy.use_sys_proxy = msg["use_sys_proxy"].asBool();
  proxy.proxy_ip = msg["proxy_ip"].asString().str();
  proxy.proxy_port = msg["proxy_port"].asUInt16();
  proxy.user_name = msg["proxy_username"].asString().str();
  proxy.password = msg["proxy_password"].asString().str();
  proxy.domain = msg["proxy_domain"].asString().str();
  proxy.host = msg["proxy_host"].asString().str();
}

void ReadTunnel(const PObject& msg, TunnelInfo& tunnel) {
  tunnel.use_tunnel = msg["use_tunnel"].asBool();
  tunnel.tunnel_ip = msg["tunnel_ip"].asString().str();
  tunnel.tunnel_port = msg["tunnel_port"].asUInt16();
}

}  // namespace

ConnectionRequest::ConnectionRequest(const PObject& msg) {
  prepare_connection_info(msg, info, proxy, tunnel);
}

void prepare_connection_info(const PObject& msg, ConnectionInfo& info, ProxyInfo& proxy,
                             TunnelInfo& tunnel) {
  ReadServer(msg, info);
  ReadProxy(msg, proxy);
  ReadTunnel(msg, tunnel);
}

}  // namespace tolven

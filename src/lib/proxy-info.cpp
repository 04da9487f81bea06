#include "lib/proxy-info.h"

namespace tolven {

ustring ProxyInfo::toString() const {
  return ustring("use_proxy = " + std::to_string(use_proxy) + ", use_sys_proxy = " +
                 std::to_string(use_sys_proxy) + ", proxy = " + proxy_ip + ":" +
                 std::to_string(proxy_port) + ", user = " + user_name + ", domain = " + domain +
                 ", host = " + host + ", auth = " + std::to_string(auth_type));
}

ustring TunnelInfo::toString() const {
  return ustring("use_tunnel = " + std::to_string(use_tunnel) + ", tunnel = " + tunnel_ip + ":" +
                 std::to_string(tunnel_port));
}

}  // namespace tolven

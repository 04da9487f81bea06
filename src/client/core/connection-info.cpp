#include "client/core/connection-info.h"

#include <string>
#include <tuple>

namespace tolven {

namespace {

auto Members(const ConnectionInfo& info) {
  return std::tie(info.c_mode, info.server_name, info.server_ip, info.server_port,
                  info.quickconn_mode, info.username, info.password, info.ds_id, info.session,
                  info.protocol_version, info.conn_id, info.computer_name, info.linked,
                  info.use_ssl, info.ssl_allow_untrust, info.version_info, info.status, info.error,
                  info.user_uid, info.user_gid, info.user_is_admin);
}

}  // namespace

bool ConnectionInfo::operator==(const ConnectionInfo& other) const {
  return Members(*this) == Members(other);
}

ustring ConnectionInfo::toString() const {
  return ustring("connection #" + std::to_string(conn_id) + ": " + username.str() + "@" +
                 server_ip.str() + ":" + std::to_string(server_port) + " (" + server_name.str() +
                 "), ssl = " + std::to_string(use_ssl) + ":" + std::to_string(ssl_allow_untrust) +
                 ", build = " + std::to_string(version_info.build_number));
}

}  // namespace tolven

// What the daemon knows of one server account.
#pragma once

#include <cstdint>

#include "ustring/ustring.h"

namespace tolven {

enum ConnectionMode { CM_UNKNOW = 0, CM_IP = 1, CM_DDNS = 2, CM_HOPLINK = 3 };

struct VersionInfo {
  int major = 0;
  int minor = 0;
  long build_number = 0;

  bool operator==(const VersionInfo& other) const = default;
};

struct ConnectionInfo {
  void clear() { *this = ConnectionInfo(); }
  bool operator==(const ConnectionInfo& other) const;
  bool operator!=(const ConnectionInfo& other) const { return !(*this == other); }
  ustring toString() const;  // without password and session

  int c_mode = CM_UNKNOW;
  ustring server_name;  // the name to find in its certificate
  ustring server_ip;    // the address to connect to
  int server_port = 0;
  ustring quickconn_mode;
  ustring username;
  ustring password;
  ustring ds_id;
  ustring session;  // the token of the login
  int protocol_version = 0;
  std::uint64_t conn_id = 0;  // the key
  ustring computer_name;
  int linked = 0;
  bool use_ssl = false;
  bool ssl_allow_untrust = false;
  VersionInfo version_info;  // of the server, as it was when the user logged in
  int status = 0;
  int error = 0;
  std::uint32_t user_uid = 0;
  std::uint32_t user_gid = 0;
  bool user_is_admin = false;
};

}  // namespace tolven

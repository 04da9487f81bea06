// The connections and sessions that this user has, in one JSON file. The daemon keeps none of them
// over a restart, so what stands here is what it is told after each link.
//
// The file is private to the user: it holds login tokens. Ids go up and are never given twice, also
// not after a removal, since folders and databases on disk carry them.
//
// Not locked; one process at a time changes the file (see HomeClaim).
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "ctl/endpoint.h"
#include "ustring/ustring.h"

namespace tolven::ctl {

// One server account.
struct ConnectionRecord {
  std::uint64_t id = 0;
  Endpoint server;
  std::string address;    // the one of the server's addresses that answered last
  std::string token;      // of a login session at the server
  bool embedded = false;  // the server that tolvenctl itself runs
  bool tls = false;
  bool insecure = false;                          // TLS with whatever certificate
  std::string ca_path;                            // trusted certificates for it, a file or a folder
  std::string host_name;                          // the name to find in the certificate; empty: any
  std::string proxy;                              // a URL; empty: none
  std::string tunnel;                             // HOST:PORT; empty: none
  std::uint32_t major = 0, minor = 0, build = 0;  // of the server, as it last told
};

// One pair of folders.
struct SessionRecord {
  std::uint64_t id = 0;
  std::uint64_t connection_id = 0;
  std::uint64_t view_id = 0;
  ustring folder;  // absolute
  ustring remote_path = "/";
  bool recursive = true;
  bool read_only = false;
  std::string perm_mode = "sync-all";
  bool paused = false;
  // Whether both sides have agreed once since the session or its rules were made. Until then its
  // rescans merge: what is missing here comes from the server and is not removed there.
  bool has_settled = false;
};

class SessionStore {
 public:
  explicit SessionStore(ustring path) : path_(std::move(path)) {}

  // A file that is not there is an empty store. False with one line in `error` for one that cannot
  // be read; nothing is overwritten then.
  bool Load(std::string& error);
  bool Save(std::string& error) const;

  // The copy in the store, with its new id.
  ConnectionRecord& Add(ConnectionRecord connection);
  SessionRecord& Add(SessionRecord session);
  void RemoveConnection(std::uint64_t id);
  void RemoveSession(std::uint64_t id);

  // Ids up to this one are never given.
  void ReserveSessions(std::uint64_t id) { next_session_ = std::max(next_session_, id + 1); }

  // Null when there is none. Valid until something is added or removed.
  ConnectionRecord* FindConnection(std::uint64_t id);
  SessionRecord* FindSession(std::uint64_t id);
  ConnectionRecord* FindEmbedded();

  const std::vector<ConnectionRecord>& connections() const { return connections_; }
  const std::vector<SessionRecord>& sessions() const { return sessions_; }

 private:
  ustring path_;
  std::vector<ConnectionRecord> connections_;
  std::vector<SessionRecord> sessions_;
  std::uint64_t next_connection_ = 1, next_session_ = 1;
};

}  // namespace tolven::ctl

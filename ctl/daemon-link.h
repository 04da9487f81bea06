// The verbs that tell the daemon of connections and sessions.
#pragma once

#include <functional>
#include <string>

#include "ctl/session-store.h"
#include "protocol/object.h"

namespace tolven::ctl {

// All operations give false, with one line in `error`, when the daemon does not answer or refuses.
class DaemonLink {
 public:
  // Sends one request and waits for its reply: false when the daemon cannot be reached.
  using Caller = std::function<bool(const PObject& request, PObject& reply)>;

  explicit DaemonLink(Caller caller) : caller_(std::move(caller)) {}

  bool GetStatus(PObject& status) const;

  // `is_known`: the daemon has been told of the connection before.
  bool TellConnection(const ConnectionRecord& connection, bool is_known, std::string& error) const;
  bool RemoveConnection(std::uint64_t id, std::string& error) const;

  // `folder`: the session's configuration folder. Until a session has settled, what is missing on
  // one side comes from the other.
  bool AddSession(const SessionRecord& session, const ustring& folder, std::string& error) const;
  bool RemoveSession(std::uint64_t id, std::string& error) const;
  bool PauseSession(std::uint64_t id, bool pause, std::string& error) const;
  // Changes of a session that goes on: `changes` has members of "reload_session".
  bool ReloadSession(std::uint64_t id, PObject changes, std::string& error) const;

 private:
  bool Call(const PObject& request, std::string& error) const;

  const Caller caller_;
};

}  // namespace tolven::ctl

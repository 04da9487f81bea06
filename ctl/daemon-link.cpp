#include "ctl/daemon-link.h"

#include "ctl/server-probe.h"

namespace tolven::ctl {

bool DaemonLink::Call(const PObject& request, std::string& error) const {
  PObject reply;
  if (!caller_(request, reply)) {
    error = "the daemon does not answer";
  } else if (reply.hasMember("error")) {
    error = reply["error"].asString().str();
  }
  return error.empty();
}

bool DaemonLink::GetStatus(PObject& status) const {
  PObject request;
  request["action"] = "get_status";
  return caller_(request, status);
}

bool DaemonLink::TellConnection(const ConnectionRecord& connection, bool is_known,
                                std::string& error) const {
  PObject request;
  return MakeConnectionRequest(connection, is_known ? "reload_connection" : "link_connection",
                               request, error) &&
         Call(request, error);
}

bool DaemonLink::RemoveConnection(std::uint64_t id, std::string& error) const {
  PObject request;
  request["action"] = "unlink_connection";
  request["connection_id"] = id;
  return Call(request, error);
}

bool DaemonLink::AddSession(const SessionRecord& session, const ustring& folder,
                            std::string& error) const {
  PObject request;
  request["action"] = "add_session";
  request["connection_id"] = session.connection_id;
  request["session_id"] = session.id;
  request["view_id"] = session.view_id;
  request["config_path"] = folder;
  request["sync_folder"] = session.folder;
  request["remote_path"] = session.remote_path;
  request["recursive"] = session.recursive;
  request["read_only"] = session.read_only;
  request["perm_mode"] = ustring(session.perm_mode);
  request["sync_mode"] = !session.has_settled;
  if (!Call(request, error)) return false;
  return !session.paused || PauseSession(session.id, true, error);
}

bool DaemonLink::RemoveSession(std::uint64_t id, std::string& error) const {
  PObject request;
  request["action"] = "remove_session";
  request["session_id"] = id;
  return Call(request, error);
}

bool DaemonLink::PauseSession(std::uint64_t id, bool pause, std::string& error) const {
  PObject request;
  request["action"] = pause ? "pause" : "resume";
  request["session_id"] = id;
  return Call(request, error);
}

bool DaemonLink::ReloadSession(std::uint64_t id, PObject changes, std::string& error) const {
  changes["action"] = "reload_session";
  changes["session_id"] = id;
  return Call(changes, error);
}

}  // namespace tolven::ctl

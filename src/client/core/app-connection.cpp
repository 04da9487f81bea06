// Connections: one server account each, as the UI tells them. Sessions of a connection that is
// removed stay until the UI removes them, too.
#include "client/core/app.h"
#include "client/core/connection-manager.h"
#include "client/core/connection-request.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "client_debug";

bool HasConnectionId(const PObject& msg, PObject& result) {
  if (msg.hasMember("connection_id")) return true;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid parameters.\n", __LINE__);
  result["error"] = "Invalid parameters";
  return false;
}

void LogDetails(const ConnectionRequest& request) {
  const ConnectionInfo& info = request.info;
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): server = %s:%u\n", __LINE__,
                 info.server_ip, info.server_port);
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): ssl = %u:%u\n", __LINE__,
                 info.use_ssl ? 1 : 0, info.ssl_allow_untrust ? 1 : 0);
  if (request.proxy_in_use() != nullptr) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): proxy: %s:%u\n", __LINE__,
                   request.proxy.proxy_ip, request.proxy.proxy_port);
  }
  if (request.tunnel_in_use() != nullptr) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): tunnel: %s:%u\n", __LINE__,
                   request.tunnel.tunnel_ip, request.tunnel.tunnel_port);
  }
}

}  // namespace

void TolvenhubApp::add_connection(const PObject& msg, PObject& result) {
  if (!HasConnectionId(msg, result)) return;
  const ConnectionRequest request(msg);
  const ConnectionInfo& info = request.info;
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): connection #%llu is added:\n",
                 __LINE__, info.conn_id);
  LogDetails(request);
  if (ConnectionManager::getInstance().add(info, request.proxy_in_use(), request.tunnel_in_use()) <
      0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] app(%d): connection #%llu (%s:%p) is not added\n", __LINE__,
                   info.conn_id, info.server_ip, info.server_port);
  }
}

void TolvenhubApp::reload_connection(const PObject& msg, PObject& result) {
  if (!HasConnectionId(msg, result)) return;
  const ConnectionRequest request(msg);
  const ConnectionInfo& info = request.info;
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): connection #%llu is reloaded:\n",
                 __LINE__, info.conn_id);
  LogDetails(request);
  AbortFilter filter;
  filter.SetConnection(info.conn_id);
  pause_worker();
  interrupt_worker(filter);
  if (ConnectionManager::getInstance().reload(info, request.proxy_in_use(),
                                              request.tunnel_in_use()) < 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] app(%d): connection #%llu (%s:%p) is not reloaded\n", __LINE__,
                   info.conn_id, info.server_ip, info.server_port);
  }
  resume_worker();
}

void TolvenhubApp::remove_connection(const PObject& msg, PObject&) {
  const std::uint64_t id = msg["connection_id"].asUInt64();
  AbortFilter filter;
  filter.SetConnection(id);
  pause_worker();
  interrupt_worker(filter);
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): connection #%llu is removed\n",
                 __LINE__, id);
  if (id == 0) {
    ConnectionManager::getInstance().clear();
  } else {
    ConnectionManager::getInstance().remove(id);
  }
  resume_worker();
}

}  // namespace tolven

// The operations behind the verbs. The rule for any change that workers might be acting on: pause
// the workers, interrupt those concerned, change, resume.
#include "client/core/app.h"
#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";

}  // namespace

void TolvenhubApp::stop(const PObject&, PObject&) {
  app_running_ = 0;
  do_unlink();
}

void TolvenhubApp::link(const PObject& msg, PObject& result) { do_link(msg, result); }

void TolvenhubApp::unlink(const PObject&, PObject&) { do_unlink(); }

int TolvenhubApp::do_link(const PObject&, PObject& result) {
  // What is left of an earlier link would be lost sight of.
  if (has_env_) do_unlink();
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): Link tolven hub daemon, version:%d\n",
                 __LINE__, kVersion);
  if (init_env() < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): failed to initialize environment\n",
                   __LINE__);
    result["error"] = "Failed to initialize environment";
    return -1;
  }
  if (init_tasks() < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): failed to initialize members\n",
                   __LINE__);
    result["error"] = "Failed to initialize members";
    return -1;
  }
  start_all();
  linked_ = true;
  return 0;
}

int TolvenhubApp::do_unlink() {
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): unlink daemon\n", __LINE__);
  linked_ = false;
  stop_all();
  destroy_tasks();
  destroy_env();
  return 0;
}

void TolvenhubApp::pause_session(const PObject& msg, PObject&) {
  AbortFilter filter;
  if (msg.hasMember("session_id")) filter.SetSession(msg["session_id"].asUInt64());
  if (msg.hasMember("connection_id")) filter.SetConnection(msg["connection_id"].asUInt64());
  pause_worker();
  interrupt_worker(filter);
  resume_worker();
}

void TolvenhubApp::resume_session(const PObject&, PObject&) {}

void TolvenhubApp::add_connection(const PObject& msg, PObject& result) {
  if (!msg.hasMember("connection_id")) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid parameters.\n", __LINE__);
    result["error"] = "Invalid parameters";
    return;
  }
  Logger::LogMsg(Logger::L_WARNING, kCategory,
                 L"[WARNING] app(%d): connection #%llu (%s:%p) is not added\n", __LINE__,
                 msg["connection_id"].asUInt64(), msg["server_ip"].asString(),
                 msg["server_port"].asInt32());
}

void TolvenhubApp::reload_connection(const PObject& msg, PObject& result) {
  if (!msg.hasMember("connection_id")) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid parameters.\n", __LINE__);
    result["error"] = "Invalid parameters";
    return;
  }
  AbortFilter filter;
  filter.SetConnection(msg["connection_id"].asUInt64());
  pause_worker();
  interrupt_worker(filter);
  Logger::LogMsg(Logger::L_WARNING, kCategory,
                 L"[WARNING] app(%d): connection #%llu (%s:%p) is not reloaded\n", __LINE__,
                 msg["connection_id"].asUInt64(), msg["server_ip"].asString(),
                 msg["server_port"].asInt32());
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
  resume_worker();
}

void TolvenhubApp::reload_session(const PObject& msg, PObject& result) {
  if (!msg.hasMember("session_id")) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): Invalid parameter\n.", __LINE__);
    result["error"] = "Invalid parameter";
    return;
  }
  result["error"] = "Invalid session.";
}

void TolvenhubApp::add_session(const PObject& msg, PObject& result) {
  for (const char* key : {"connection_id", "session_id", "view_id"}) {
    if (!msg.hasMember(key)) {
      result["error"] = "Invalid parameters.";
      return;
    }
  }
  Logger::LogMsg(Logger::L_WARNING, kCategory,
                 L"[WARNING] app(%d): session %llu is not added, failed to create registry entry\n",
                 __LINE__, msg["session_id"].asUInt64());
  result["error"] = "Failed to create registry entry.";
}

void TolvenhubApp::remove_session(const PObject& msg, PObject& result) {
  const std::uint64_t id = msg["session_id"].asUInt64();
  AbortFilter filter;
  filter.SetSession(id);
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): session #%llu is removed\n", __LINE__,
                 id);
  pause_worker();
  interrupt_worker(filter);
  if (id != 0) remove_one_session(id, result);
  resume_worker();
}

void TolvenhubApp::remove_one_session(std::uint64_t id, PObject& result) {
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): remove_one_session '%llu'.\n",
                 __LINE__, id);
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid session %llu, stop remove\n",
                 __LINE__, id);
  result["error"] = "Invalid session.";
}

void TolvenhubApp::add_event(const PObject& msg, PObject&) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid session id %llu\n", __LINE__,
                 msg["session_id"].asUInt64());
}

}  // namespace tolven

// Linking and unlinking. The rule for any change that workers might be acting on, here and in the
// other verbs: pause the workers, interrupt those concerned, change, resume.
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

}  // namespace tolven

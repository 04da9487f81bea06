// From a request to its operation.
#include "client/core/app.h"
#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";

// Making the text of a tree costs more than a look-up of the level.
void LogTree(const xchar* format, int line, const PObject& tree) {
  if (!Logger::IsEnabled(Logger::L_DEBUG, kCategory)) return;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, format, line, tree.toString());
}

}  // namespace

struct TolvenhubApp::Verb {
  const char* name;
  void (TolvenhubApp::*operation)(const PObject& msg, PObject& result);
  bool needs_link;  // works on the tasks or the environment
};

const TolvenhubApp::Verb TolvenhubApp::kVerbs[] = {
    {"stop", &TolvenhubApp::stop, false},
    {"link", &TolvenhubApp::link, false},
    {"unlink", &TolvenhubApp::unlink, false},
    {"pause", &TolvenhubApp::pause_session, true},
    {"resume", &TolvenhubApp::resume_session, true},
    {"link_connection", &TolvenhubApp::add_connection, true},
    {"reload_connection", &TolvenhubApp::reload_connection, true},
    {"unlink_connection", &TolvenhubApp::remove_connection, true},
    {"reload_session", &TolvenhubApp::reload_session, true},
    {"add_session", &TolvenhubApp::add_session, true},
    {"remove_session", &TolvenhubApp::remove_session, true},
    {"get_status", &TolvenhubApp::get_status, false},
    {"add_event", &TolvenhubApp::add_event, true},
};

void TolvenhubApp::handle_control(const PObject& msg, PObject& result) {
  LogTree(L"[DEBUG] app(%d): >>> %s\n", __LINE__, msg);
  if (msg.hasMember("action")) {
    const PObject& action = msg["action"];
    const Verb* verb = nullptr;
    for (const Verb& candidate : kVerbs) {
      if (action.asStringView() == candidate.name) verb = &candidate;
    }
    if (verb == nullptr) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): <<< Unknown IPC action: %s\n",
                     __LINE__, action.asString());
    } else if (verb->needs_link && !linked_) {
      result["error"] = "Daemon is not linked.";
    } else {
      (this->*verb->operation)(msg, result);
      if (verb->operation == &TolvenhubApp::stop) return;
    }
  }
  LogTree(L"[DEBUG] app(%d): <<< %s\n", __LINE__, result);
}

}  // namespace tolven

// The commands that change connections and sessions.
#include <iostream>

#include "ctl/commands.h"
#include "ctl/console.h"
#include "ctl/json-tree.h"
#include "ctl/rule-editor.h"
#include "ctl/words.h"
#include "platform/clock.h"

namespace tolven::ctl {
namespace {

constexpr std::chrono::milliseconds kLook{500};

int PrintAnswer(const PObject& answer) {
  for (const char* part : {"note", "text"}) {
    if (answer.hasMember(part)) std::cout << answer[part].asString().str() << std::endl;
  }
  return 0;
}

int Run(const PObject& command) {
  PObject answer;
  std::string error;
  return Execute(command, answer, error) ? PrintAnswer(answer) : Fail(error);
}

// The same, again and again while the session has not settled.
bool RunWhenSettled(const PObject& command, PObject& answer, std::string& error) {
  bool is_told = false;
  for (;;) {
    answer.clear();
    error.clear();
    if (Execute(command, answer, error)) return true;
    if (!answer["unsettled"].asBool()) return false;
    if (!is_told) {
      std::cerr << "tolvenctl: " << error << "; waiting until it has (Ctrl-C gives up)"
                << std::endl;
    }
    is_told = true;
    platform::clock().Sleep(kLook);
  }
}

}  // namespace

int RunAdd(const AddOptions& options) {
  PObject command;
  std::string error;
  return MakeAddCommand(options, command, error) ? Run(command) : Fail(error);
}

int RunRemove(std::uint64_t session, bool yes) {
  PObject command, answer;
  std::string error;
  command["command"] = "remove";
  command["session_id"] = session;
  command["dry_run"] = true;
  if (!Execute(command, answer, error)) return Fail(error);
  PrintAnswer(answer);
  if (!yes && !Confirm("remove it?")) return Fail("nothing was removed (--yes removes it)");
  command["session_id"] = answer["session_id"];
  command["dry_run"] = false;
  return Execute(command, answer, error) ? 0 : Fail(error);
}

int RunToken(std::uint64_t connection, const std::string& token) {
  PObject command;
  command["command"] = "token";
  command["connection_id"] = connection;
  command["token"] = ustring(token == "-" ? Ask("login token: ") : token);
  return Run(command);
}

int RunPause(std::uint64_t session, bool pause) {
  PObject command;
  command["command"] = pause ? "pause" : "resume";
  command["session_id"] = session;
  return Run(command);
}

int RunSet(std::uint64_t session, const std::string& key, const std::string& value, bool yes) {
  if (key == "recursive" && value == "off" && !yes &&
      !Confirm("The folders in the synced folder leave this computer and stay on the server. "
               "Go on?")) {
    return Fail("nothing was changed (--yes changes it)");
  }
  PObject command, answer;
  std::string error;
  command["command"] = "set";
  command["session_id"] = session;
  command["key"] = ustring(key);
  command["value"] = ustring(value);
  return RunWhenSettled(command, answer, error) ? PrintAnswer(answer) : Fail(error);
}

int RunFilter(std::uint64_t session, const std::string& operation, const std::string& kind,
              const std::string& value, bool json) {
  PObject command, answer;
  std::string error;
  command["command"] = "filter";
  command["session_id"] = session;
  command["operation"] = ustring(operation);
  command["kind"] = ustring(kind);
  command["value"] = ustring(value);
  if (!RunWhenSettled(command, answer, error)) return Fail(error);
  if (json) {
    std::cout << TreeToJson(answer, true) << std::endl;
    return 0;
  }
  std::cout << "session " << answer["session_id"].asUInt64() << " leaves out:\n";
  for (const PObject& rule : answer["rules"].asArray()) {
    std::cout << "  " << rule["kind"].asString().str() << "  "
              << Printable(rule["value"].asStringView()) << '\n';
  }
  if (answer["rules"].asArray().empty()) std::cout << "  nothing\n";
  std::cout.flush();
  return 0;
}

}  // namespace tolven::ctl

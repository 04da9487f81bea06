#include "ctl/hub-client.h"

#include <charconv>

#include "lib/ipc-sender.h"

namespace tolven::ctl {
namespace {

// The port that the resident has left in its file; 0 when there is none.
int HubPort(const Home& home) {
  std::string text;
  int port = 0;
  if (ReadSmallFile(home.hub_file, text)) {
    std::from_chars(text.data(), text.data() + text.size(), port);
  }
  return port;
}

}  // namespace

bool HubClient::IsRunning() const {
  PObject ping, answer;
  ping["command"] = "ping";
  std::string error;
  return Call(ping, answer, error) && answer.hasMember("pid");
}

bool HubClient::Call(const PObject& command, PObject& answer, std::string& error) const {
  const int port = HubPort(home_);
  PObject asked = command;
  asked["home"] = home_.root;
  IPCSender sender;
  const bool is_answered =
      port != 0 && sender.connect(port) == 0 && sender.send(asked, true, answer) == 0;
  // The port may have been left behind, and be somebody else's by now.
  if (!is_answered || answer["home"].asString() != home_.root) {
    error = "tolvenctl is not running; start it with \"tolvenctl run\"";
    return false;
  }
  if (!answer.hasMember("error")) return true;
  error = answer["error"].asString().str();
  return false;
}

bool HubClient::Verb(const PObject& request, PObject& reply, std::string& error) const {
  PObject command, answer;
  command["command"] = "verb";
  command["request"] = request;
  if (!Call(command, answer, error)) return false;
  reply = answer["reply"];
  return true;
}

}  // namespace tolven::ctl

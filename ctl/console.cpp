#include "ctl/console.h"

#include <iostream>

#include "ctl/home-claim.h"
#include "ctl/hub-client.h"
#include "ctl/supervisor.h"
#include "ctl/sync-root.h"
#include "platform/process.h"

namespace tolven::ctl {

int Fail(const std::string& error) {
  std::cerr << "tolvenctl: " << error << std::endl;
  return 1;
}

std::string Ask(const std::string& prompt) {
  if (platform::process().IsTerminal(0)) std::cerr << prompt << std::flush;
  std::string line;
  std::getline(std::cin, line);
  return line;
}

bool Confirm(const std::string& question) {
  if (!platform::process().IsTerminal(0)) return false;
  const std::string answer = Ask(question + " [y/N] ");
  return answer == "y" || answer == "Y" || answer == "yes";
}

bool MakeAddCommand(const AddOptions& options, PObject& command, std::string& error) {
  const std::string folder = options.folder.empty() ? DefaultSyncRoot(error) : options.folder;
  if (folder.empty()) return false;
  command["command"] = "add";
  // The resident's current folder is another one.
  command["folder"] = PlainFolder(folder);
  command["remote_path"] = ustring(options.remote_path);
  if (options.server.empty()) {
    const bool has_more = !options.token.empty() || options.view != 0 || options.tls ||
                          options.insecure || !options.ca_path.empty() ||
                          !options.host_name.empty() || !options.proxy.empty() ||
                          !options.tunnel.empty();
    if (has_more) error = "what tells of a server needs --server HOST:PORT";
    return error.empty();
  }
  const std::string token = options.token.empty() ? Ask("login token: ") : options.token;
  command["server"] = ustring(options.server);
  command["token"] = ustring(token);
  if (options.view != 0) command["view_id"] = options.view;
  command["tls"] = options.tls;
  command["insecure"] = options.insecure;
  if (!options.ca_path.empty()) command["ca"] = PlainFolder(options.ca_path);
  command["host_name"] = ustring(options.host_name);
  command["proxy"] = ustring(options.proxy);
  command["tunnel"] = ustring(options.tunnel);
  return true;
}

bool Execute(const PObject& command, PObject& answer, std::string& error) {
  const Home home = FindHome(error);
  if (!error.empty()) return false;
  const HubClient client(home);
  if (client.IsRunning()) return client.Call(command, answer, error);
  HomeClaim claim;
  if (!claim.Take(home)) {
    error = "another tolvenctl is at work; try again";
    return false;
  }
  Supervisor supervisor(home);
  if (!supervisor.Load(error)) return false;
  supervisor.Execute(command, answer);
  if (answer.hasMember("error")) error = answer["error"].asString().str();
  return error.empty();
}

}  // namespace tolven::ctl

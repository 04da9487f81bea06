#include "ctl/commands.h"

#include <cstdio>
#include <iostream>

#include "ctl/hub-client.h"
#include "ctl/hub.h"
#include "ctl/json-tree.h"
#include "ctl/words.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/process.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;

int Fail(const std::string& error) {
  std::cerr << "tolvenctl: " << error << std::endl;
  return 1;
}

// The daemon lies beside tolvenctl when both are installed, and in the build tree otherwise.
ustring FindDaemon(const std::string& given) {
  if (!given.empty()) return ustring(given);
  ustring self;
  if (!platform::process().ExecutablePath(self).ok()) return ustring();
  const ustring folder = self.substr(0, self.find_last_of("/\\"));
  const ustring suffix = self.size() > 4 && self.substr(self.size() - 4) == ".exe" ? ".exe" : "";
  for (const char* place : {"/tolven-daemon", "/../src/client/core/tolven-daemon"}) {
    ustring candidate = folder + place + suffix;
    platform::NodeInfo info;
    if (platform::files().Stat(candidate, info).ok()) return candidate;
  }
  return ustring();
}

// "2 sessions, 1 connection, 0 active workers" from an answer to "get_status".
std::string StatusLine(const PObject& status) {
  const auto count = [&status](const char* list) {
    return std::to_string(status[list].asArray().size());
  };
  return "sessions: " + count("session_list") + "  connections: " + count("connection_list") +
         "  workers: " + count("worker_list");
}

// Prints what the daemon tells, and the status when it changes, until the hub stops.
void Watch(Hub& hub, const RunOptions& options, const std::atomic<bool>& done) {
  std::uint64_t next = 0;
  std::string last_status;
  PObject request, status;
  request["action"] = "get_status";
  while (!done) {
    for (const PObject& message : hub.notifications().After(next, milliseconds(250), next)) {
      if (!options.quiet) std::cout << Describe(message) << std::endl;
    }
    if (!options.show_status || done || !hub.CallDaemon(request, status)) continue;
    const std::string line = StatusLine(status);
    if (line != last_status) std::cout << line << std::endl;
    last_status = line;
  }
}

}  // namespace

int RunHub(const RunOptions& options) {
  std::string error;
  const Home home = FindHome(error);
  if (!error.empty()) return Fail(error);
  if (HubClient(home).IsRunning()) return Fail("already running; see \"tolvenctl status\"");
  const ustring daemon = FindDaemon(options.daemon);
  if (daemon.empty()) return Fail("cannot find tolven-daemon; name it with --daemon");

  Hub hub(home, daemon, ustring(options.ca_path));
  const platform::Status handled = platform::process().OnTermination([&hub] { hub.Stop(); });
  if (!handled.ok()) return Fail("cannot handle signals: " + platform::StatusText(handled));
  if (!hub.Start(error)) return Fail(error);
  std::cout << "Tolven Hub runs; its data is in " << home.root << ". Ctrl-C stops it." << std::endl;

  std::atomic<bool> done{false};
  std::thread watcher(Watch, std::ref(hub), std::cref(options), std::cref(done));
  const bool in_order = hub.Serve(error);
  done = true;
  watcher.join();
  if (!in_order) return Fail(error);
  std::cout << "stopped" << std::endl;
  return 0;
}

int RunRaw(const std::string& json) {
  std::string error;
  PObject request, reply;
  if (!JsonToTree(json, request, error)) return Fail("the request is no JSON: " + error);
  const Home home = FindHome(error);
  if (!error.empty() || !HubClient(home).Verb(request, reply, error)) return Fail(error);
  std::cout << TreeToJson(reply, true) << std::endl;
  return 0;
}

int RunStatus(bool json) {
  std::string error;
  PObject request, reply;
  request["action"] = "get_status";
  const Home home = FindHome(error);
  if (!error.empty() || !HubClient(home).Verb(request, reply, error)) return Fail(error);
  std::cout << (json ? TreeToJson(reply, true) : "running\n" + StatusLine(reply)) << std::endl;
  return 0;
}

int RunEvents(bool follow, bool json) {
  std::string error;
  const Home home = FindHome(error);
  if (!error.empty()) return Fail(error);
  const HubClient client(home);
  std::uint64_t next = 0;
  do {
    PObject command, answer;
    command["command"] = "notifications";
    command["since"] = next;
    command["wait_ms"] = follow ? 250 : 0;
    if (!client.Call(command, answer, error)) return Fail(error);
    next = answer["next"].asUInt64();
    for (const PObject& message : answer["list"].asArray()) {
      std::cout << (json ? TreeToJson(message, false) : Describe(message)) << std::endl;
    }
  } while (follow);
  return 0;
}

int RunStop() {
  std::string error;
  const Home home = FindHome(error);
  PObject command, answer;
  command["command"] = "stop";
  const HubClient client(home);
  if (!error.empty() || !client.Call(command, answer, error)) return Fail(error);
  while (client.IsRunning()) platform::clock().Sleep(milliseconds(50));
  return 0;
}

}  // namespace tolven::ctl

// The commands that only ask, and "stop".
#include "ctl/commands.h"

#include <iostream>

#include "ctl/console.h"
#include "ctl/home-claim.h"
#include "ctl/hub-client.h"
#include "ctl/json-tree.h"
#include "ctl/live-view.h"
#include "ctl/words.h"
#include "lib/file-op.h"
#include "platform/clock.h"
#include "platform/process.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLook{500};

bool Snapshot(const HubClient& client, PObject& snapshot, std::string& error) {
  PObject command;
  command["command"] = "snapshot";
  snapshot.clear();
  return client.Call(command, snapshot, error);
}

void PrintStatus(const PObject& snapshot) {
  std::cout << "running\n";
  for (const PObject& session : snapshot["sessions"].asArray()) {
    std::cout << SessionText(session) << '\n';
    const std::string problem = Printable(session["problem"].asStringView());
    if (!problem.empty()) std::cout << "    ! " << problem << '\n';
  }
  for (const PObject& connection : snapshot["connections"].asArray()) {
    std::cout << "connection " << connection["connection_id"].asUInt64() << " to "
              << Printable(connection["server"].asStringView()) << ": "
              << connection["status"].asStringView() << '\n';
    const std::string problem = Printable(connection["problem"].asStringView());
    if (!problem.empty()) std::cout << "    ! " << problem << '\n';
  }
  std::cout.flush();
}

int CollectConflict(const ustring& path, void* priv) {
  const std::string_view name = path.view().substr(path.view().rfind('/') + 1);
  if (IsConflictName(name)) static_cast<std::vector<std::string>*>(priv)->push_back(path.str());
  return 0;
}

}  // namespace

int RunRaw(const std::string& json) {
  std::string error;
  PObject request, reply;
  if (!JsonToTree(json, request, error)) return Fail("the request is no JSON: " + error);
  const Home home = FindHome(error);
  if (!error.empty() || !HubClient(home).Verb(request, reply, error)) return Fail(error);
  std::cout << TreeToJson(reply, true) << std::endl;
  return 0;
}

int RunStatus(bool json, bool watch) {
  std::string error;
  const Home home = FindHome(error);
  if (!error.empty()) return Fail(error);
  const HubClient client(home);
  PObject snapshot;
  const bool as_picture = watch && !json && platform::process().IsTerminal(1);
  LiveView view(as_picture);
  std::string last;
  do {
    if (!Snapshot(client, snapshot, error)) return Fail(error);
    if (json) {
      const std::string text = TreeToJson(snapshot, !watch);
      if (text != last) std::cout << text << std::endl;
      last = text;
    } else if (watch) {
      view.Show(snapshot);
    } else {
      PrintStatus(snapshot);
    }
    if (watch) platform::clock().Sleep(kLook);
  } while (watch);
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

int RunConflicts(bool json) {
  std::string error;
  PObject command, answer, list;
  command["command"] = "sessions";
  if (!Execute(command, answer, error)) return Fail(error);
  list.asArray();
  for (const PObject& session : answer["sessions"].asArray()) {
    std::vector<std::string> found;
    const ustring folder = session["folder"].asString();
    if (TraverseDir(folder, CollectConflict, &found) < 0) {
      (void)Fail("cannot read all of " + folder.str());
    }
    for (const std::string& path : found) {
      PObject& conflict = list.asArray().emplace_back();
      conflict["session_id"] = session["session_id"];
      conflict["path"] = ustring(path);
      if (!json) std::cout << Printable(path) << '\n';
    }
  }
  if (json) std::cout << TreeToJson(list, true) << '\n';
  if (!json && list.asArray().empty()) std::cout << "no conflicts\n";
  std::cout.flush();
  return 0;
}

int RunStop() {
  std::string error;
  const Home home = FindHome(error);
  PObject command, answer;
  command["command"] = "stop";
  const HubClient client(home);
  if (!error.empty() || !client.Call(command, answer, error)) return Fail(error);
  // The claim ends with the resident's process.
  HomeClaim claim;
  while (!claim.Take(home)) platform::clock().Sleep(milliseconds(50));
  return 0;
}

}  // namespace tolven::ctl

// tolvenctl: starts the daemon, tells it what to do, and shows what it does.

#include <CLI/CLI.hpp>
#include <iostream>

#include "ctl/commands.h"
#include "platform/process.h"

namespace {

using namespace tolven::ctl;

void AddRunOptions(CLI::App* command, RunOptions& options) {
  command->add_option("--daemon", options.daemon, "the daemon's program (found by itself)");
  command->add_option("--ca", options.ca_path, "trusted server certificates, a file or a folder");
  command->add_flag("--quiet", options.quiet, "print no line for each notification");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Starts and controls the Tolven Hub daemon."};
  app.require_subcommand(1);
  int status = 0;

  RunOptions run, up;
  CLI::App* command = app.add_subcommand(
      "run", "hold the daemon: start it, print what it tells, serve the other commands");
  AddRunOptions(command, run);
  command->callback([&] { status = RunHub(run); });

  command = app.add_subcommand("up", "like run, and show the daemon's status as it changes");
  AddRunOptions(command, up);
  up.show_status = true;
  command->callback([&] { status = RunHub(up); });

  std::string json;
  command = app.add_subcommand("raw", "send one verb to the daemon as JSON, print its reply");
  command->add_option("json", json, R"(for example {"action": "get_status"})")->required();
  command->footer(
      "Integers are 64-bit without sign: true is 1, false is 0, a negative number its two's\n"
      "complement. A slice of a file is {\"$binary\": {\"path\": \"/p\", \"offset\": 0, "
      "\"length\": 1}}.");
  command->callback([&] { status = RunRaw(json); });

  bool status_json = false;
  command = app.add_subcommand("status", "what the daemon is doing");
  command->add_flag("--json", status_json, "the daemon's whole answer as JSON");
  command->callback([&] { status = RunStatus(status_json); });

  bool follow = false, events_json = false;
  command = app.add_subcommand("events", "the latest notifications of the daemon");
  command->add_flag("--follow,-f", follow, "go on with what comes");
  command->add_flag("--json", events_json, "one JSON value a line");
  command->callback([&] { status = RunEvents(follow, events_json); });

  command = app.add_subcommand("stop", "stop the daemon and the resident tolvenctl");
  command->callback([&] { status = RunStop(); });

  const tolven::platform::Status sockets = tolven::platform::process().StartSockets();
  if (!sockets.ok()) {
    std::cerr << "tolvenctl: cannot use sockets: " << tolven::platform::StatusText(sockets) << "\n";
    return 1;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 1;
  }
  tolven::platform::process().StopSockets();
  return status;
}

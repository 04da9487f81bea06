// tolvenctl: starts the daemon, tells it what to do, and shows what it does.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "ctl/commands.h"
#include "platform/process.h"

namespace {

using namespace tolven::ctl;

// Everything that the command line can set. It lives as long as the parser.
struct Options {
  RunOptions run, up;
  AddOptions add;
  std::uint64_t session = 0, connection = 0;
  bool json = false, watch = false, follow = false, yes = false;
  std::string text, token, key, value, kind;
  int status = 0;
};

void AddRunOptions(CLI::App* command, RunOptions& options) {
  command->add_option("--daemon", options.daemon, "the daemon's program (found by itself)");
  command->add_flag("--quiet", options.quiet, "show nothing");
}

void AddFolderOptions(CLI::App* command, AddOptions& options) {
  command->add_option("folder", options.folder, "the folder to sync (default: ~/Tolven)");
  command->add_option("--server", options.server,
                      "HOST:PORT of a server; without, one is run on this computer");
  command->add_option("--token", options.token, "login token of the server; asked for without");
  command->add_option("--view", options.view, "id of the server's view");
  command->add_option("--remote-path", options.remote_path, "the folder in the view")
      ->capture_default_str();
  command->add_flag("--tls", options.tls, "speak TLS");
  command->add_option("--ca", options.ca_path,
                      "trusted certificates, a PEM file or a folder of them; implies --tls");
  command->add_flag("--insecure", options.insecure, "TLS with whatever certificate");
  command->add_option("--host-name", options.host_name,
                      "the name to find in the certificate (default: HOST unless an address)");
  command->add_option("--proxy", options.proxy, "http://[[DOMAIN\\]USER[:PASSWORD]@]HOST:PORT");
  command->add_option("--tunnel", options.tunnel, "HOST:PORT of a relay");
}

void AddResidents(CLI::App& app, Options& o) {
  CLI::App* command = app.add_subcommand(
      "up", "sync a folder and show what happens; Ctrl-C stops, and the next time goes on");
  AddRunOptions(command, o.up);
  AddFolderOptions(command, o.up.add);
  o.up.is_up = true;
  command->callback([&o] { o.status = RunHub(o.up); });

  command = app.add_subcommand("run", "sync what was added, and serve the other commands");
  AddRunOptions(command, o.run);
  command->callback([&o] { o.status = RunHub(o.run); });
}

void AddQueries(CLI::App& app, Options& o) {
  CLI::App* command = app.add_subcommand("status", "what every session is doing");
  command->add_flag("--json", o.json, "one JSON value");
  command->add_flag("--watch", o.watch, "go on showing it");
  command->footer(
      "\"up to date so far\" means that nothing is known to be left to do. \"settled\" is said "
      "once\nthe session was also connected and nothing happened for 12 seconds.");
  command->callback([&o] { o.status = RunStatus(o.json, o.watch); });

  command = app.add_subcommand("events", "the latest notifications of the daemon");
  command->add_flag("--follow,-f", o.follow, "go on with what comes");
  command->add_flag("--json", o.json, "one JSON value a line");
  command->callback([&o] { o.status = RunEvents(o.follow, o.json); });

  command = app.add_subcommand("conflicts", "files that were kept beside another version");
  command->add_flag("--json", o.json, "one JSON value");
  command->callback([&o] { o.status = RunConflicts(o.json); });

  command = app.add_subcommand("raw", "send one verb to the daemon as JSON, print its reply");
  command->add_option("json", o.text, R"(for example {"action": "get_status"})")->required();
  command->footer(
      "Integers are 64-bit without sign: true is 1, false is 0, a negative number its two's\n"
      "complement. A slice of a file is {\"$binary\": {\"path\": \"/p\", \"offset\": 0, "
      "\"length\": 1}}.");
  command->callback([&o] { o.status = RunRaw(o.text); });

  command = app.add_subcommand("stop", "stop the daemon and the resident tolvenctl");
  command->callback([&o] { o.status = RunStop(); });
}

CLI::App* AddSessionCommand(CLI::App& app, const char* name, const char* text, Options& o) {
  CLI::App* const command = app.add_subcommand(name, text);
  command->add_option("--session,-s", o.session, "number of the session, when there are several");
  return command;
}

void AddFilter(CLI::App& app, Options& o) {
  CLI::App* const filter = AddSessionCommand(app, "filter", "what a session leaves out", o);
  filter->add_flag("--json", o.json, "one JSON value");
  filter->require_subcommand(1);
  filter->footer(
      "KIND is name (of files), extension, path (of a folder or file, from the synced folder on)\n"
      "or size (files above it, as in 100M). Taking a rule away waits until the session has "
      "settled.");
  for (const char* operation : {"list", "add", "remove"}) {
    CLI::App* const command = filter->add_subcommand(operation);
    const std::string name = operation;
    if (name != "list") {
      command->add_option("kind", o.kind)
          ->required()
          ->check(CLI::IsMember({"name", "extension", "path", "size"}));
      command->add_option("value", o.value)->required(name == "add");
    }
    command->callback(
        [&o, name] { o.status = RunFilter(o.session, name, o.kind, o.value, o.json); });
  }
}

void AddEdits(CLI::App& app, Options& o) {
  CLI::App* command = app.add_subcommand("add", "sync one more folder");
  AddFolderOptions(command, o.add);
  command->callback([&o] { o.status = RunAdd(o.add); });

  command = app.add_subcommand("remove", "stop syncing a folder");
  command->add_option("session", o.session, "its number, when there are several");
  command->add_flag("--yes,-y", o.yes, "without asking");
  command->callback([&o] { o.status = RunRemove(o.session, o.yes); });

  command = app.add_subcommand("token", "give a connection a new login token");
  command->add_option("token", o.token, "-: from standard input; none for the built-in server");
  command->add_option("--connection,-c", o.connection, "its number, when there are several");
  command->callback([&o] { o.status = RunToken(o.connection, o.token); });

  command = app.add_subcommand("pause", "pause one session, or all");
  command->add_option("session", o.session, "its number");
  command->callback([&o] { o.status = RunPause(o.session, true); });

  command = app.add_subcommand("resume", "go on with one session, or with all");
  command->add_option("session", o.session, "its number");
  command->callback([&o] { o.status = RunPause(o.session, false); });

  command = AddSessionCommand(app, "set", "change a session", o);
  command->add_option("key", o.key, "recursive, read-only or perm-mode")->required();
  command->add_option("value", o.value, "on or off; sync-all, domain-only or exec-bit-only")
      ->required();
  command->add_flag("--yes,-y", o.yes, "without asking");
  command->callback([&o] { o.status = RunSet(o.session, o.key, o.value, o.yes); });

  AddFilter(app, o);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Syncs folders of this computer with a Tolven Hub server."};
  app.require_subcommand(1);
  Options options;
  AddResidents(app, options);
  AddEdits(app, options);
  AddQueries(app, options);

  const tolven::platform::Status sockets = tolven::platform::process().StartSockets();
  if (!sockets.ok()) {
    std::cerr << "tolvenctl: cannot use sockets: " << tolven::platform::StatusText(sockets) << "\n";
    return 1;
  }
  try {
    std::vector<std::string> words = tolven::platform::process().Arguments(argc, argv);
    std::reverse(words.begin(), words.end());  // the parser takes them from the end
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 1;
  }
  tolven::platform::process().StopSockets();
  return options.status;
}

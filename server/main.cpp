// tolven-server: serves views to the daemons of its users, and lets its administrator set it up.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "acl/acl-constants.h"
#include "lib/log.h"
#include "platform/process.h"
#include "server/admin/commands.h"
#include "server/protocol/server.h"

namespace {

using namespace tolven;
using namespace tolven::server;

// What every command needs.
struct Common {
  std::string data;
  bool json = false;
};

CLI::App* AddCommand(CLI::App& parent, const char* name, const char* text, Common& common) {
  CLI::App* const command = parent.add_subcommand(name, text);
  command->add_option("--data", common.data, "the folder with the server's state")->required();
  command->add_flag("--json", common.json, "one JSON value on standard output");
  return command;
}

// Runs `work` on an opened folder.
template <class Work>
int WithData(const Common& common, Work work) {
  DataFolder data{ustring(common.data)};
  if (data.Open() != 0) return 1;
  Commands commands(data, common.json);
  return work(commands);
}

// "HOST:PORT", "[HOST]:PORT" or a port alone.
bool ReadListen(const std::string& text, ServeOptions& options) {
  const std::size_t colon = text.rfind(':');
  if (colon != std::string::npos) options.listen_address = text.substr(0, colon);
  if (options.listen_address.starts_with('[') && options.listen_address.ends_with(']')) {
    options.listen_address = options.listen_address.substr(1, options.listen_address.size() - 2);
  }
  const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
  try {
    std::size_t used = 0;
    options.port = std::stoi(port, &used);
    return used == port.size() && options.port >= 0 && options.port <= 65535;
  } catch (const std::exception&) {
    return false;
  }
}

int RunServer(const Common& common, const std::string& listen, unsigned versions,
              ServeOptions& options) {
  if (!ReadListen(listen, options)) {
    std::cerr << "tolven-server: '" << listen << "' is no HOST:PORT\n";
    return 1;
  }
  Logger::Initialize(Logger::STDERR_LOGGER, "", "", 0);
  DataFolder data{ustring(common.data)};
  if (data.Open(versions) != 0) return 1;
  if (!data.Claim()) {
    std::cerr << "tolven-server: '" << common.data << "' is served already\n";
    return 1;
  }
  options.data_dir = data.path();
  return Serve(options, data.metadata(), data.contents()) == 0 ? 0 : 1;
}

// "NAME=rights" pairs into grants of one kind.
bool ReadGrants(const std::vector<std::string>& texts, int type, std::vector<AclGrant>& grants) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    AclGrant& grant = grants.emplace_back();
    grant.type = type;
    if (equals == std::string::npos) return false;
    grant.rights = text.substr(equals + 1);
    try {
      grant.id = std::stoi(text.substr(0, equals));
    } catch (const std::exception&) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Serves folders to the Tolven Hub daemons of its users."};
  app.require_subcommand(1);
  Common common;
  int status = 0;

  CLI::App* command = AddCommand(app, "init", "make an empty server", common);
  command->callback([&] {
    status = DataFolder{ustring(common.data)}.Make() == 0 ? 0 : 1;
    if (status != 0) std::cerr << "tolven-server: '" << common.data << "' cannot be made\n";
  });

  std::string listen = "127.0.0.1:7711";
  unsigned versions = SqliteMetadata::kVersions;
  std::string certificate, key;
  ServeOptions options;
  command = AddCommand(app, "serve", "serve until SIGTERM or Ctrl-C", common);
  command->add_option("--listen", listen, "HOST:PORT; port 0 takes a free one")
      ->capture_default_str();
  command->add_option("--cert", certificate, "certificate chain (PEM); an own one is made without");
  command->add_option("--key", key, "its private key (PEM)");
  command->add_option("--build", options.build, "speak as another build")->capture_default_str();
  command->add_option("--versions", versions, "older versions of a file that are kept")
      ->capture_default_str();
  command->callback([&] {
    options.certificate_path = ustring(certificate);
    options.key_path = ustring(key);
    status = RunServer(common, listen, versions, options);
  });

  User user;
  CLI::App* group = app.add_subcommand("user", "who may log in");
  group->require_subcommand(1);
  command = AddCommand(*group, "add", "add a user", common);
  command->add_option("name", user.name)->required();
  command->add_option("--uid", user.uid,
                      "number that access lists know the user by; a free one without");
  command->add_option("--group", user.groups, "a group's number; may come several times");
  command->add_flag("--admin", user.is_admin, "access lists do not hold for an administrator");
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.AddUser(user); }); });

  std::string name, path;
  command = AddCommand(app, "session", "print a new session token of a user", common);
  command->add_option("user", name)->required();
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.NewSession(name); }); });

  View view;
  group = app.add_subcommand("view", "folders that are served");
  group->require_subcommand(1);
  command = AddCommand(*group, "add", "add an empty view", common);
  command->add_option("name", view.name)->required();
  command->add_option("--quota", view.quota, "bytes that its files may have; 0: any");
  command->add_flag("--read-only", view.read_only, "nobody may change it");
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.AddView(view); }); });

  std::vector<std::string> users, groups;
  std::string everyone;
  group = app.add_subcommand("acl", "who may see and write what");
  group->require_subcommand(1);
  command = AddCommand(
      *group, "set", "give an object a list that holds for all below; none: take it away", common);
  command->add_option("view", name)->required();
  command->add_option("path", path)->required();
  command->add_option("--user", users, "UID=rw, UID=r or UID=none; may come several times");
  command->add_option("--group", groups, "GID=rw, GID=r or GID=none; may come several times");
  command->add_option("--everyone", everyone, "rw, r or none");
  command->callback([&] {
    std::vector<AclGrant> grants;
    if (!ReadGrants(users, ACL_API::ZENTSDK_ACL_USER, grants) ||
        !ReadGrants(groups, ACL_API::ZENTSDK_ACL_GROUP, grants)) {
      std::cerr << "tolven-server: a grant is NUMBER=RIGHTS\n";
      status = 1;
      return;
    }
    if (!everyone.empty()) grants.push_back({ACL_API::ZENTSDK_ACL_GROUP_EVERYONE, 0, everyone});
    status = WithData(common, [&](Commands& c) { return c.SetAcl(name, path, grants); });
  });

  std::vector<std::string> files;
  group = app.add_subcommand("profile", "filters that a user's clients have to keep");
  group->require_subcommand(1);
  command =
      AddCommand(*group, "set", "replace the profiles of a user; none: take them away", common);
  command->add_option("user", name)->required();
  command->add_option("file", files, "filter files");
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.SetProfiles(name, files); }); });

  command = AddCommand(app, "ls", "users and views, or what a view holds", common);
  command->add_option("view", name);
  command->add_option("path", path);
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.List(name, path); }); });

  command = AddCommand(app, "log", "last changes of a view, or versions of a path", common);
  command->add_option("view", name)->required();
  command->add_option("path", path);
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.Log(name, path); }); });

  std::uint64_t version = 0;
  command = AddCommand(app, "restore", "make an older version of a file the current one", common);
  command->add_option("view", name)->required();
  command->add_option("path", path)->required();
  command->add_option("--version", version, "its number, as log prints it")->required();
  command->callback([&] {
    status = WithData(common, [&](Commands& c) { return c.Restore(name, path, version); });
  });

  bool sweep = false;
  command = AddCommand(app, "check", "verify every row and every content", common);
  command->add_flag("--sweep", sweep, "remove contents that nothing has");
  command->callback(
      [&] { status = WithData(common, [&](Commands& c) { return c.Check(sweep); }); });

  const platform::Status sockets = platform::process().StartSockets();
  if (!sockets.ok()) {
    std::cerr << "tolven-server: cannot use sockets: " << platform::StatusText(sockets) << "\n";
    return 1;
  }
  try {
    std::vector<std::string> words = platform::process().Arguments(argc, argv);
    std::reverse(words.begin(), words.end());  // the parser takes them from the end
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 1;
  }
  platform::process().StopSockets();
  return status;
}

// The tolvenctl commands. Each returns the process's exit status, 0 or 1, and reports an error as
// one line on standard error.
#pragma once

#include <cstdint>
#include <string>

namespace tolven::ctl {

// A folder to sync, and what with.
struct AddOptions {
  std::string folder;
  std::string server;  // HOST:PORT; empty: the embedded one
  std::string token;   // empty: asked for when there is a server
  std::uint64_t view = 0;
  std::string remote_path = "/";
  bool tls = false, insecure = false;
  std::string ca_path, host_name, proxy, tunnel;
};

struct RunOptions {
  std::string daemon;  // the daemon's program; empty: found beside tolvenctl
  bool quiet = false;  // nothing is shown
  bool is_up = false;  // add a folder first, and show a picture on a terminal
  AddOptions add;
};

// Resident until it is stopped.
int RunHub(const RunOptions& options);

int RunRaw(const std::string& json);
int RunStatus(bool json, bool watch);
int RunEvents(bool follow, bool json);
int RunConflicts(bool json);
int RunStop();

// These work with and without a resident. A `session` of 0 is the only one there is.
int RunAdd(const AddOptions& options);
// `yes`: without asking.
int RunRemove(std::uint64_t session, bool yes);
// An empty `token` is asked for, or given by the embedded server.
int RunToken(std::uint64_t connection, const std::string& token);
int RunPause(std::uint64_t session, bool pause);  // 0: all
// These two wait when their session has to settle first.
int RunSet(std::uint64_t session, const std::string& key, const std::string& value, bool yes);
int RunFilter(std::uint64_t session, const std::string& operation, const std::string& kind,
              const std::string& value, bool json);

}  // namespace tolven::ctl

// The tolvenctl commands. Each returns the process's exit status, 0 or 1, and reports an error as
// one line on standard error.
#pragma once

#include <string>

namespace tolven::ctl {

struct RunOptions {
  std::string daemon;        // the daemon's program; empty: found beside tolvenctl
  std::string ca_path;       // trusted certificates for servers, a file or a folder
  bool quiet = false;        // no line for each notification
  bool show_status = false;  // print the status whenever it changes
};

int RunHub(const RunOptions& options);
int RunRaw(const std::string& json);
int RunStatus(bool json);
int RunEvents(bool follow, bool json);
int RunStop();

}  // namespace tolven::ctl

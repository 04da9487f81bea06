// Where one user's Tolven Hub keeps its things, all below <local application data>/Tolvenhub, and
// the two files that the daemon needs before it can be started and linked.
#pragma once

#include <cstdint>
#include <string>

#include "ustring/ustring.h"

namespace tolven::ctl {

struct Home {
  ustring root;           // <local application data>/Tolvenhub
  ustring daemon_config;  // the daemon's key = value file
  ustring system_filter;  // what never takes part in syncing, in any session
  ustring log_level;      // thresholds of the daemon's log, edited by hand
  ustring daemon_log;
  ustring daemon_output;  // what the daemon writes to its standard streams
  ustring pid_file;
  ustring status_db, filter_db, history_db;
  ustring hub_file;     // port of the resident tolvenctl
  ustring claim;        // held by whoever changes the configuration
  ustring daemon_port;  // port of the daemon that was started last
  ustring store;        // connections and sessions
  ustring trusted;      // certificates that the daemon trusts
  ustring sessions;     // one folder for each session
  ustring server;       // data of the embedded server
  ustring own_log;      // of tolvenctl and the embedded server

  // A session's configuration folder.
  ustring SessionFolder(std::uint64_t id) const { return sessions + "/" + std::to_string(id); }
};

// Finds and makes the folder. Empty `error` means success.
Home FindHome(std::string& error);

// Writes the daemon's configuration anew, and the system filter and log-level files when they are
// not there yet. `ui_port` is where the resident tolvenctl listens. Empty `error` means success.
void WriteDaemonFiles(const Home& home, int ui_port, const ustring& ca_path, std::string& error);

// Replaces a small file in one step, so that a reader sees the old or the new text. A new file gets
// `mode`; 0: what the system gives.
inline constexpr std::uint32_t kOwnerAlone = 0600;
bool ReplaceFile(const ustring& path, const std::string& text, std::string& error,
                 std::uint32_t mode = 0);
// False when it does not exist or cannot be read; at most 1 MiB.
bool ReadSmallFile(const ustring& path, std::string& text);

}  // namespace tolven::ctl

#include "ctl/home.h"

#include "lib/file-op.h"
#include "platform/files.h"
#include "platform/identity.h"
#include "platform/whole-file.h"

namespace tolven::ctl {
namespace {

using platform::OpenMode;
using platform::ScopedFile;
using platform::Status;

constexpr std::size_t kMaxSmallFile = 1 << 20;

// Editors' and systems' droppings, and names that cannot live on every system.
constexpr const char* kSystemFilter = R"([Version]
major = 1
minor = 0
[Common]
black_name = ".DS_Store", "Thumbs.db", "desktop.ini", ".ZentrovaWorkingDirectory"
[File]
black_prefix = "~$", ".~lock."
black_suffix = ".swp", ".swx", ".part", ".crdownload"
[Directory]
black_name = "@eaDir", "lost+found", "System Volume Information", "$RECYCLE.BIN"
)";

constexpr const char* kLogLevels =
    "# One line for each category, as in client_debug=7; read when the daemon starts.\n"
    "# 3 errors, 4 warnings (the default), 6 information, 7 everything.\n";

// A value for the configuration file. Its grammar has no escapes, so one kind of quote must be
// free.
bool Quote(const ustring& value, std::string& quoted) {
  for (const char quote : {'"', '\''}) {
    if (value.view().find(quote) == std::string_view::npos) {
      quoted = quote + value.str() + quote;
      return true;
    }
  }
  return false;
}

bool Exists(const ustring& path) {
  platform::NodeInfo info;
  return platform::files().Stat(path, info).ok();
}

}  // namespace

Home FindHome(std::string& error) {
  Home home;
  ustring data;
  const Status status = platform::identity().LocalAppData(data);
  if (!status.ok()) {
    error = "cannot find your application data folder: " + platform::StatusText(status);
    return home;
  }
  home.root = data + "/Tolvenhub";
  home.daemon_config = home.root + "/tolven-daemon.conf";
  home.system_filter = home.root + "/filter";
  home.log_level = home.root + "/tolven-daemon.debug";
  home.daemon_log = home.root + "/log/tolven-daemon.log";
  home.daemon_output = home.root + "/log/tolven-daemon.out";
  home.pid_file = home.root + "/tolven-daemon.pid";
  home.status_db = home.root + "/file-status.sqlite";
  home.filter_db = home.root + "/filter.sqlite";
  home.history_db = home.root + "/history.sqlite";
  home.hub_file = home.root + "/tolvenctl.port";
  home.claim = home.root + "/tolvenctl.claim";
  home.daemon_port = home.root + "/tolven-daemon.port";
  home.store = home.root + "/tolvenctl.json";
  home.trusted = home.root + "/trusted.pem";
  home.sessions = home.root + "/sessions";
  home.server = home.root + "/server";
  home.own_log = home.root + "/log/tolvenctl.log";
  if (FSMKDir(home.root + "/log", true) != 0) {
    error = "cannot make the folder " + home.root.str() + "/log";
  }
  return home;
}

void WriteDaemonFiles(const Home& home, int ui_port, const ustring& ca_path, std::string& error) {
  const std::pair<const char*, const ustring&> paths[] = {
      {"history_db_path", home.history_db},    {"fstat_db_path", home.status_db},
      {"filter_db_path", home.filter_db},      {"system_filter_path", home.system_filter},
      {"pid_file_path", home.pid_file},        {"log_file_path", home.daemon_log},
      {"log_level_file_path", home.log_level}, {"cert_path", ca_path},
  };
  std::string text = "# Written by tolvenctl at each start of the daemon.\n";
  for (const auto& [key, path] : paths) {
    if (path.empty()) continue;
    std::string quoted;
    if (!Quote(path, quoted)) {
      error = "a path with both kinds of quotes cannot be configured: " + path.str();
      return;
    }
    text += std::string(key) + " = " + quoted + "\n";
  }
  text += "ui_port = " + std::to_string(ui_port) + "\n";
  if (!ReplaceFile(home.daemon_config, text, error)) return;
  if (!Exists(home.system_filter) && !ReplaceFile(home.system_filter, kSystemFilter, error)) return;
  if (!Exists(home.log_level)) ReplaceFile(home.log_level, kLogLevels, error);
}

bool ReplaceFile(const ustring& path, const std::string& text, std::string& error,
                 std::uint32_t mode) {
  const Status status = platform::ReplaceWholeFile(path, text, mode);
  if (!status.ok()) error = "cannot write " + path.str() + ": " + platform::StatusText(status);
  return status.ok();
}

bool ReadSmallFile(const ustring& path, std::string& text) {
  ScopedFile file;
  if (!platform::files().Open(path, OpenMode::kRead, *file.receive()).ok()) return false;
  text.resize(kMaxSmallFile);
  std::size_t size = 0, got = 0;
  do {
    if (!platform::files().Read(file.get(), text.data() + size, text.size() - size, got).ok()) {
      return false;
    }
    size += got;
  } while (got > 0 && size < text.size());
  text.resize(size);
  return true;
}

}  // namespace tolven::ctl

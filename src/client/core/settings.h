// The daemon's settings, read once from its configuration file before any other thread exists.
// Every getter returns a copy and may be called from any thread.
#pragma once

#include <cstddef>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class Settings {
 public:
  static Settings& getInstance();

  Settings() = default;  // all defaults; the daemon itself uses getInstance()
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

  // Takes every key of the file that has a value; the others keep their defaults. Negative when the
  // file cannot be read or has a malformed line, and then nothing changes.
  int loadConfigSettings(const ustring& path);

  ustring getDbPath() const { return getMember(db_path_); }  // never configured, never used
  ustring getPidFilePath() const { return getMember(pid_file_path_); }  // empty: no pid file
  ustring getLogFilePath() const { return getMember(log_file_path_); }
  ustring getLogLevelFilePath() const { return getMember(log_level_file_path_); }
  // Trusted CA certificates, a file or a folder.
  ustring getCertPath() const { return getMember(cert_path_); }
  // Name of the working directory inside each synced folder.
  ustring getWorkDirName() const { return getMember(work_dir_name_); }
  ustring getFStatDbPath() const { return getMember(fstat_db_path_); }
  ustring getFilterDbPath() const { return getMember(filter_db_path_); }
  ustring getHistoryDbPath() const { return getMember(history_db_path_); }
  ustring getSystemFilterPath() const { return getMember(system_filter_path_); }
  std::size_t getWorkerCount() const { return getMember(worker_count_); }
  // Empty: the control socket is a local TCP port.
  ustring getSocketPath() const { return getMember(socket_path_); }
  // Empty: notifications go to getUIPort().
  ustring getUISocketPath() const { return getMember(ui_socket_path_); }
  // Port on 127.0.0.1 where the UI listens, and the first that the daemon tries for itself.
  int getUIPort() const { return getMember(ui_port_); }
  bool isForeground() const { return getMember(is_foreground_); }  // log to standard output

 private:
  template <class T>
  T getMember(const T& member) const EXCLUDES(lock_) {
    MutexLock lock(lock_);
    return member;
  }

  mutable Mutex lock_;  // guards every field
  ustring db_path_;
  ustring pid_file_path_ = "/var/run/tolven-daemon.pid";
  ustring log_file_path_ = "/var/log/tolven-daemon.log";
  ustring log_level_file_path_ = "/var/log/tolven-daemon.debug";
  ustring cert_path_;
  ustring work_dir_name_ = ".ZentrovaWorkingDirectory";
  ustring fstat_db_path_ = "/tmp/file-status.sqlite";
  ustring filter_db_path_ = "/tmp/filter.sqlite";
  ustring history_db_path_ = "/tmp/history.sqlite";
  ustring system_filter_path_ = "/tmp/filter";
  std::size_t worker_count_ = 3;
  ustring socket_path_;
  ustring ui_socket_path_;
  int ui_port_ = 1024;
  bool is_foreground_ = false;
};

}  // namespace tolven

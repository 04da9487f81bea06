#include "client/core/settings.h"

#include <utility>

#include "lib/config.h"

namespace tolven {
namespace {

// The member stays as it is when the text is no number or a negative one.
template <class T>
void TakeNumber(const ustring& text, T& member) {
  int value = 0;
  if (Config::ParseInt(text.view(), value) && value >= 0) member = static_cast<T>(value);
}

}  // namespace

Settings& Settings::getInstance() {
  static Settings* const instance = new Settings;
  return *instance;
}

int Settings::loadConfigSettings(const ustring& path) {
  Config config;
  if (config.read(path) < 0) return -1;

  MutexLock lock(lock_);
  const std::pair<const char*, ustring*> texts[] = {
      {"history_db_path", &history_db_path_},
      {"fstat_db_path", &fstat_db_path_},
      {"filter_db_path", &filter_db_path_},
      {"system_filter_path", &system_filter_path_},
      {"pid_file_path", &pid_file_path_},
      {"log_file_path", &log_file_path_},
      {"log_level_file_path", &log_level_file_path_},
      {"cert_path", &cert_path_},
      {"work_dir_name", &work_dir_name_},
      {"socket_path", &socket_path_},
      {"ui_socket_path", &ui_socket_path_},
  };
  for (const auto& [key, member] : texts) {
    if (!config[key].empty()) *member = config[key];
  }
  TakeNumber(config["worker_count"], worker_count_);
  TakeNumber(config["ui_port"], ui_port_);
  if (!config["is_foreground"].empty()) is_foreground_ = config["is_foreground"] == "true";
  return 0;
}

}  // namespace tolven

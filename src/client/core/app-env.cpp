// What all tasks share and needs setting up: the environment.
#include "client/core/app.h"
#include "client/core/connection-manager.h"
#include "client/core/registry.h"
#include "client/core/settings.h"
#include "client/event-manager.h"
#include "client/filter-db.h"
#include "lib/black-list2.h"
#include "lib/channel.h"
#include "lib/file-status-db.h"
#include "lib/log.h"
#include "lib/profile-manager.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";

}  // namespace

int TolvenhubApp::init_env() {
  has_env_ = true;
  const Settings& settings = Settings::getInstance();
  print_settings();
  Channel::SetVerifyCAPath(settings.getCertPath());

  const ustring filter_db = settings.getFilterDbPath();
  if (FilterDB::getInstance().initialize(filter_db) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): Failed to init filter DB at [%s]\n",
                   __LINE__, filter_db);
    return -1;
  }
  // The states of files do not survive a restart. Without the file they are not shown, and syncing
  // goes on.
  FileStatusDB::initialize(settings.getFStatDbPath());
  FileStatusDB::removeAllEntry();

  EventManager::getInstance().SetSessionLookup([](uint64_t sess_id, ustring& local_path) {
    Registry::Entry entry;
    if (Registry::getInstance().Find(sess_id, entry) != 1) return 0;
    local_path = entry.local_path;
    return 1;
  });

  const ustring filter = settings.getSystemFilterPath();
  if (BlackList2::getInstance().Load(filter) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Failed to load system filter from %s.\n", __LINE__, filter);
    return -1;
  }
  if (ProfileManager::GetInstance().Initialize("", false) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Fail to initialize Profile managers.\n", __LINE__);
    return -1;
  }
  return 0;
}

void TolvenhubApp::destroy_env() {
  FilterDB::getInstance().destroy();
  FileStatusDB::destroy();
  BlackList2::getInstance().Destroy();
  EventManager::getInstance().Clear();
  Registry::getInstance().Clear();
  ConnectionManager::getInstance().clear();
  has_env_ = false;
}

void TolvenhubApp::print_settings() {
  const Settings& settings = Settings::getInstance();
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): ======= Settings =======\n",
                 __LINE__);
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): pid_file_path: %s\n", __LINE__,
                 settings.getPidFilePath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): log_file_path: %s\n", __LINE__,
                 settings.getLogFilePath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): log_level_file_path: %s\n",
                 __LINE__, settings.getLogLevelFilePath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): worker_count: %lu\n", __LINE__,
                 settings.getWorkerCount());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): socket_path: %s\n", __LINE__,
                 settings.getSocketPath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): is_foreground: %s\n", __LINE__,
                 settings.isForeground() ? "true" : "false");
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): fstat_db_path: %s\n", __LINE__,
                 settings.getFStatDbPath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): filter_db_path: %s\n", __LINE__,
                 settings.getFilterDbPath());
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): cert_path: %s\n", __LINE__,
                 settings.getCertPath());
}

}  // namespace tolven

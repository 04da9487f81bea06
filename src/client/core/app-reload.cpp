// Changes of a session that goes on running.
#include <vector>

#include "client/core/app.h"
#include "client/core/filter-utils.h"
#include "client/core/registry.h"
#include "client/core/root-proof.h"
#include "client/core/session-layout.h"
#include "client/core/session-setup.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "client/file-list.h"
#include "client/string-buffer.h"
#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "client_debug";

void LogSession(int line, const xchar* text, std::uint64_t sess_id) {
  Logger::LogMsg(Logger::L_INFO, kCategory, text, line, sess_id);
}

void LogError(int line, const xchar* text, std::uint64_t sess_id) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line, sess_id);
}

void LogFoldersStay(int line, const ustring& path) {
  Logger::LogMsg(Logger::L_WARNING, kCategory,
                 L"[WARNING] app(%d): folders under %s is not removed\n", line, path);
}

// The folders in `path` that belong to the session; false when it cannot be read.
bool ListFolders(const ustring& path, std::vector<ustring>& names) {
  DIR_HANDLE folder;
  FSOpenDir(path, 0, folder);
  DIR_ENTRY entry;
  int found = 0;
  while ((found = FSReadDir(folder, entry)) == 1) {
    if (entry.type != FT_DIR || entry.name == "." || entry.name == "..") continue;
    if (entry.name != kWorkingDirectory) names.push_back(entry.name);
  }
  FSCloseDir(folder);
  return found == 0;
}

bool ForgetFolders(FileEventDB& db) {
  StringBuffer names;
  FileList top(names);
  if (db.rmAllFolders() != 0 || db.getFileListWithoutRecursive(top, "/") != 0) return false;
  for (auto item = top.rbegin(); item != top.rend(); ++item) {
    if ((*item).is_dir() && db.rmLocalEventInfo((*item).path) != 0) return false;
  }
  return true;
}

}  // namespace

void TolvenhubApp::reload_session(const PObject& msg, PObject& result) {
  if (!msg.hasMember("session_id")) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): Invalid parameter\n.", __LINE__);
    result["error"] = "Invalid parameter";
    return;
  }
  const std::uint64_t id = msg["session_id"].asUInt64();
  Registry::Entry entry;
  if (Registry::getInstance().Find(id, entry) != 1) {
    result["error"] = "Invalid session.";
    return;
  }
  Logger::LogMsg(Logger::L_INFO, kCategory,
                 L"[INFO] app(%d): session #%llu is reloaded, info = %s\n", __LINE__, id,
                 msg.toString());
  if (msg.hasMember("read_only")) change_permission(entry, msg["read_only"].asBool());
  if (msg["do_reload_filter"].asBool()) {
    Logger::LogMsg(Logger::L_INFO, kCategory,
                   L"[INFO] app(%d): reload_session with reload_filter\n", __LINE__);
    reload_filter(entry, result);
  }
  if (msg.hasMember("recursive")) change_recursive(entry, msg["recursive"].asBool());
  if (msg.hasMember("perm_mode")) {
    change_permission_mode(entry, GetPermissionMode(msg["perm_mode"].asString()));
  }
  interrupt_session(id);
}

void TolvenhubApp::interrupt_session(std::uint64_t id) {
  AbortFilter filter;
  filter.SetSession(id);
  interrupt_worker(filter);
}

void TolvenhubApp::change_permission(Registry::Entry& entry, bool read_only) {
  if (entry.read_only == read_only) return;
  if (read_only) {
    LogSession(__LINE__, L"[INFO] app(%d): chaning permission sync of session %llu to read only\n",
               entry.sess_id);
  } else {
    LogSession(__LINE__, L"[INFO] app(%d): chaning permission sync of session %llu to read write\n",
               entry.sess_id);
  }
  entry.read_only = read_only;
  Registry::getInstance().SetReadOnly(entry.sess_id, read_only);
  if (!read_only) EventManager::getInstance().IssueRescan(entry.sess_id, "/", true);
}

void TolvenhubApp::change_permission_mode(Registry::Entry& entry, PermissionMode mode) {
  entry.perm_mode = mode;
  Registry::getInstance().SetPermMode(entry.sess_id, mode);
}

void TolvenhubApp::change_recursive(Registry::Entry& entry, bool recursive) {
  if (entry.recursive == recursive) return;
  entry.recursive = recursive;
  if (recursive) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): switch to recursive\n", __LINE__);
    // A removal in a folder that took no part, still pending, must not count from now on.
    interrupt_session(entry.sess_id);
    EventManager::getInstance().ClearSessionEventPool(entry.sess_id);
    Registry::getInstance().SetRecursive(entry.sess_id, true);
    entry.event_db->setSyncId(0);
  } else {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): switch to non-recursive\n",
                   __LINE__);
    Registry::getInstance().SetRecursive(entry.sess_id, false);
    // Who works below a folder would make it anew, or tell the server that it is gone.
    interrupt_session(entry.sess_id);
    // As long as the database knows the folders, their absence could be taken for a removal. And
    // what took the place of the session's folder is not ours.
    const bool forgotten = ForgetFolders(*entry.event_db);
    if (forgotten && entry.root_proof->IsProved()) {
      remove_all_dir(entry.local_path);
    } else {
      LogFoldersStay(__LINE__, entry.local_path);
    }
  }
  EventManager::getInstance().IssueRescan(entry.sess_id, "/", true);
}

void TolvenhubApp::remove_all_dir(const ustring& path) {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): removing all folders under %s\n",
                 __LINE__, path);
  std::vector<ustring> names;
  if (!ListFolders(path, names)) {
    LogFoldersStay(__LINE__, path);
    return;
  }
  for (const ustring& name : names) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): removing %s/%s\n", __LINE__, path,
                   name);
    FSRemove(path + "/" + name, false);
  }
}

// The new lists are in place before what they let through comes back: a worker may take it up at
// once. Nor is anybody left then who parks something by the old ones. None of them is used unless
// all could be loaded.
void TolvenhubApp::reload_filter(Registry::Entry& entry, PObject& result) {
  const SessionPaths paths(entry.config_path);
  const auto black_list = LoadBlackList(paths.black_list);
  if (black_list == nullptr) {
    result["error"] = "Failed to load black list.";
    return;
  }
  const auto white_list = LoadWhiteList(paths.white_list);
  if (white_list == nullptr) {
    LogError(__LINE__, L"[ERROR] app(%d): failed to reload white list filter for sesion %llu\n",
             entry.sess_id);
    result["error"] = "Failed to load white list.";
    return;
  }
  const auto force_hash_check_list = LoadForceHashCheckList(paths.force_hash_check_list);
  if (force_hash_check_list == nullptr) {
    LogError(__LINE__,
             L"[ERROR] app(%d): failed to reload force hash check list filter for sesion %llu\n",
             entry.sess_id);
    result["error"] = "Failed to load force hash check list.";
    return;
  }
  LogSession(__LINE__, L"[INFO] app(%d): Reload session (%llu)\n", entry.sess_id);
  Registry& registry = Registry::getInstance();
  registry.SetBlackList(entry.sess_id, black_list);
  registry.SetWhiteList(entry.sess_id, white_list);
  registry.SetForceHashCheckList(entry.sess_id, force_hash_check_list);
  entry.black_list = black_list;
  entry.white_list = white_list;
  entry.force_hash_check_list = force_hash_check_list;
  interrupt_session(entry.sess_id);
  if (ReplaceFilter(entry, false) == 0) return;
  LogError(__LINE__, L"[ERROR] app(%d): failed to replace filter for session (%llu)\n",
           entry.sess_id);
  result["error"] = "Failed to replace filter";
}

}  // namespace tolven

#include "client/core/session-setup.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/core/profile-folder.h"
#include "client/core/recent-commits.h"
#include "client/core/root-proof.h"
#include "client/core/session-layout.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/file-op.h"
#include "lib/file-status-db.h"
#include "lib/force-hash-check-list-cpp.h"
#include "lib/log.h"
#include "lib/policy.h"
#include "lib/profile-set.h"
#include "lib/white-list-cpp.h"
#include "platform/paths.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "client_debug";

bool is_dir(const ustring& path) {
  FILE_INFO info;
  return FSStat(path, info, false) == 0 && info.isExist && info.type == FT_DIR;
}

bool IsLink(const ustring& path) {
  FILE_INFO info;
  return FSStat(path, info, false) == 0 && info.isExist && info.type == FT_SLINK;
}

int Fail(int line, const xchar* text, const ustring& path) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line, path);
  return -1;
}

int Fail(int line, const xchar* text, std::uint64_t sess_id) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line, sess_id);
  return -1;
}

template <class List>
shared_pointer<List> LoadList(const ustring& path) {
  auto list = std::make_shared<List>();
  return list->Load(path) == 0 ? list : nullptr;
}

template <class T>
T ValueOr(const PObject& params, const char* key, T fallback) {
  return params.hasMember(key) ? static_cast<T>(params[key].asUInt64()) : fallback;
}

// Whether a folder holds nothing but the session's own; false when it cannot be read.
bool LookIntoFolder(const ustring& path, bool& is_empty) {
  DIR_HANDLE folder;
  FSOpenDir(path, 0, folder);
  DIR_ENTRY entry;
  int found = 0;
  is_empty = true;
  while (is_empty && (found = FSReadDir(folder, entry)) == 1) {
    is_empty = entry.name == "." || entry.name == ".." || entry.name == kWorkingDirectory;
  }
  FSCloseDir(folder);
  return found >= 0;
}

// A state for the file that a filter keeps away from here, or a failure for one without a path.
bool ToFileStatus(const FilteredEvent& event, const ustring& root, FileStatusInfo& info) {
  if (!event.IsValid()) return false;
  info.path = FileStatusKey(root, event.path.view()).str();
  info.fileType = event.IsDir() ? 1 : 0;
  info.syncStatus =
      event.filter_type == FilteredEvent::FILTERED_ACL ? FSTAT_NO_PERM : FSTAT_UNSUPPORT;
  return true;
}

// A finished signature of a row with a small number is called so: "." and two digits.
bool IsSignatureName(std::string_view name) {
  const auto is_digit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  return name.size() == 3 && name[0] == '.' && is_digit(name[1]) && is_digit(name[2]);
}

// What a crash left of signatures in the making.
void RemoveLeftOvers(const ustring& signatures) {
  DIR_HANDLE folder;
  FSOpenDir(signatures, 0, folder);
  DIR_ENTRY entry;
  std::vector<ustring> files;
  while (FSReadDir(folder, entry) == 1) {
    if (entry.type == FT_FILE && !IsSignatureName(entry.name.view()))
      files.push_back(signatures + "/" + entry.name);
  }
  FSCloseDir(folder);
  for (const ustring& file : files) FSRemove(file, false);
}

// Only the file with the folder's id stays: a start that fails on the way must not leave a folder
// that the next one does not know.
int EmptyWorkingDirectory(const ustring& path) {
  if (!is_dir(path)) return FSRemove(path, false);
  DIR_HANDLE folder;
  FSOpenDir(path, 0, folder);
  DIR_ENTRY entry;
  std::vector<ustring> names;
  int found = 0;
  while ((found = FSReadDir(folder, entry)) == 1) {
    if (entry.name == "." || entry.name == "..") continue;
    if (entry.name != kRootIdFile || entry.type != FT_FILE) names.push_back(entry.name);
  }
  FSCloseDir(folder);
  for (const ustring& name : names) {
    if (FSRemove(path + "/" + name, false) < 0) return -1;
  }
  return found;
}

}  // namespace

SessionPaths::SessionPaths(const ustring& config_path)
    : signatures(config_path + "/db/sign"),
      event_db(config_path + "/db/event-db.sqlite"),
      black_list(config_path + "/conf/blacklist.filter"),
      white_list(config_path + "/conf/whitelist.filter"),
      force_hash_check_list(config_path + "/conf/force-hash-check-list.filter") {}

ustring PlainSyncFolder(const ustring& folder) {
  std::string path = folder.str();
  for (char& c : path) {
    if (platform::IsPathSeparator(c)) c = '/';
  }
  const std::size_t root = platform::PathRootLength(ustring(path));
  while (path.size() > root && path.ends_with('/')) path.pop_back();
  return ustring(path);
}

ustring RealFolder(const ustring& folder) {
  std::error_code failed;
  const std::string& name = folder.str();
  const std::filesystem::path real =
      std::filesystem::canonical(std::u8string(name.begin(), name.end()), failed);
  if (failed) return folder;
  const std::u8string text = real.u8string();
  return PlainSyncFolder(ustring(std::string(text.begin(), text.end())));
}

PermissionMode GetPermissionMode(const ustring& text) {
  if (text == "sync-all") return PERM_SYNC_ALL;
  return text == "domain-only" ? PERM_SYNC_DOMAIN_ONLY : PERM_SYNC_EXEC_BIT_ONLY;
}

shared_pointer<BlackList2> LoadBlackList(const ustring& path) { return LoadList<BlackList2>(path); }

shared_pointer<WhiteListCpp> LoadWhiteList(const ustring& path) {
  return LoadList<WhiteListCpp>(path);
}

shared_pointer<ForceHashCheckListCpp> LoadForceHashCheckList(const ustring& path) {
  return LoadList<ForceHashCheckListCpp>(path);
}

SessionSetup::SessionSetup(const PObject& params)
    : paths_(params["config_path"].asString()), merge_(params["sync_mode"].asBool()) {
  entry_.sess_id = params["session_id"].asUInt64();
  entry_.conn_id = params["connection_id"].asUInt64();
  entry_.view_id = params["view_id"].asUInt64();
  entry_.node_id = ValueOr(params, "node_id", entry_.view_id);
  entry_.recursive = ValueOr(params, "recursive", true);
  entry_.local_path = PlainSyncFolder(params["sync_folder"].asString());
  if (IsLink(entry_.local_path)) entry_.local_path = RealFolder(entry_.local_path);
  entry_.remote_path = params["remote_path"].asString();
  if (entry_.remote_path.empty()) entry_.remote_path = "/";
  entry_.config_path = params["config_path"].asString();
  entry_.share_name = params["share_name"].asString();
  entry_.read_only = params["read_only"].asBool();
  entry_.perm_mode = params.hasMember("perm_mode")
                         ? GetPermissionMode(params["perm_mode"].asString())
                         : PERM_SYNC_ALL;
}

int SessionSetup::Run() {
  if (CheckFolders() != 0 || OpenDatabase() != 0 || ProveRoot() != 0 ||
      MakeWorkingDirectory() != 0) {
    return -1;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] app(%d): session environment of session %llu is done\n", __LINE__,
                 entry_.sess_id);
  if (RestoreFileStatus() != 0 || LoadLists() != 0 || LoadProfiles() != 0) return -1;
  if (RecentCommits::getInstance().Load(*entry_.event_db, entry_.sess_id) != 0) return -1;
  FSInit(entry_.local_path);
  entry_.isMSDOS = IsMSDOS(entry_.local_path);
  return 0;
}

int SessionSetup::CheckFolders() {
  if (!IsValidSyncFolder(entry_.local_path) || !is_dir(entry_.local_path)) {
    return Fail(__LINE__, L"[ERROR] app(%d): local watch folder (%s) is not a directory\n",
                entry_.local_path);
  }
  if (!is_dir(entry_.config_path)) {
    return Fail(__LINE__, L"[ERROR] app(%d): local config folder (%s) is not a directory\n",
                entry_.config_path);
  }
  if (FSMakeFolder(paths_.signatures) < 0) {
    return Fail(__LINE__, L"[ERROR] app(%d): Failed to create signature directory at %s.\n",
                paths_.signatures);
  }
  RemoveLeftOvers(paths_.signatures);
  return 0;
}

// Before anything is made in the folder: only the database tells whether it is the right one.
int SessionSetup::OpenDatabase() {
  ProfileFolder(entry_.config_path + "/db/profiles").Restore();
  entry_.event_db = std::make_shared<FileEventDB>();
  if (entry_.event_db->initialize(paths_.event_db) == 0) return 0;
  return Fail(__LINE__, L"[ERROR] app(%d): Failed to initiailize event database for session %llu\n",
              entry_.sess_id);
}

// A database that knows files beside a folder that it does not know: an empty one is a volume that
// is not mounted, and what is missing in any other was not removed by anybody.
int SessionSetup::ProveRoot() {
  FileEventDB& db = *entry_.event_db;
  const RootProof::Found found = RootProof::Recognise(entry_.local_path, db);
  if (found == RootProof::Found::YES) return 0;
  if (found == RootProof::Found::NOT_KNOWN) return -1;
  const int has_files = db.hasFiles();
  if (has_files < 0) return -1;
  if (has_files == 0) return 0;
  bool is_empty = false;
  if (!LookIntoFolder(entry_.local_path, is_empty)) return -1;
  if (is_empty) {
    error_ = "Sync folder is empty or not mounted.";
    return -1;
  }
  merge_ = true;
  return 0;
}

int SessionSetup::MakeWorkingDirectory() {
  const ustring working_directory = JoinPath(entry_.local_path, kWorkingDirectory);
  // Never the session's folder itself: made anew it would hold the id, and all in it would be gone.
  if (EmptyWorkingDirectory(working_directory) < 0 || FSMKDir(working_directory, false) < 0) {
    return Fail(__LINE__, L"[ERROR] app(%d): Failed to create working directory at %s.\n",
                working_directory);
  }
  const ustring recycle_bin = working_directory + "/" + kRecycleBin;
  if (FSMKDir(recycle_bin, false) < 0) {
    return Fail(__LINE__, L"[ERROR] app(%d): Failed to create recycle bin directory at %s.\n",
                recycle_bin);
  }
  if (entry_.event_db->resetRecycleBin() != 0) {
    return Fail(__LINE__, L"[ERROR] app(%d): Failed to resetRecycleBin table for session %llu\n",
                entry_.sess_id);
  }
  const ustring id = RootProof::Establish(entry_.local_path, *entry_.event_db);
  if (id.empty()) {
    return Fail(__LINE__, L"[ERROR] app(%d): Failed to create working directory at %s.\n",
                working_directory);
  }
  entry_.root_proof =
      std::make_shared<RootProof>(entry_.conn_id, entry_.sess_id, entry_.local_path, id);
  return entry_.root_proof->LooksProved() ? 0 : -1;
}

int SessionSetup::RestoreFileStatus() {
  std::vector<FilteredEvent> parked;
  if (entry_.event_db->getServerFilteredEvent(
          FilteredEvent::FILTERED_ALL, "/", FileEventDB::FILTER_FLAG_INCLUDE_CHILD, parked) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Failed to dump server filtered event to file status db\n",
                   __LINE__);
    return -1;
  }
  for (const FilteredEvent& event : parked) {
    FileStatusInfo info;
    if (!ToFileStatus(event, entry_.local_path, info) || FileStatusDB::setFileSyncStat(info) != 0) {
      Logger::LogMsg(Logger::L_WARNING, kCategory,
                     L"[WARNING] app(%d): Failed to convert server filtered event [%s] to "
                     L"FileStatusDB\n",
                     __LINE__, event.path);
    }
  }
  return 0;
}

int SessionSetup::LoadLists() {
  entry_.black_list = LoadBlackList(paths_.black_list);
  if (entry_.black_list == nullptr) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Failed to load black list filter for session %llu '%s'\n",
                   __LINE__, entry_.sess_id, paths_.black_list);
    return -1;
  }
  entry_.white_list = LoadWhiteList(paths_.white_list);
  if (entry_.white_list == nullptr) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Failed to load white list filter for session %llu '%s'\n",
                   __LINE__, entry_.sess_id, paths_.white_list);
    return -1;
  }
  entry_.force_hash_check_list = LoadForceHashCheckList(paths_.force_hash_check_list);
  if (entry_.force_hash_check_list == nullptr) {
    return Fail(__LINE__,
                L"[ERROR] app(%d): Failed to load force hash check filter for session %llu\n",
                entry_.sess_id);
  }
  return 0;
}

int SessionSetup::LoadProfiles() {
  auto set = std::make_shared<ProfileSet>();
  ProfileFolder(entry_.event_db->getProfilePath()).Load(entry_.sess_id, *set);
  entry_.server_black_lists = std::move(set);
  return 0;
}

}  // namespace tolven

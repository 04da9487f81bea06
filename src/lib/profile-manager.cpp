#include "lib/profile-manager.h"

#include <memory>

#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "sync_task_debug";

// Closes a listing at the end of a scope.
struct Listing {
  explicit Listing(const ustring& path) { FSOpenDir(path, 0, dir); }
  ~Listing() { FSCloseDir(dir); }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;
  DIR_HANDLE dir;
};

}  // namespace

ProfileManager& ProfileManager::GetInstance() {
  static ProfileManager instance;
  return instance;
}

ProfileManager::~ProfileManager() {
  const ProfileManagerGuard hold(*this);
  if (_auto_cleanup) Clear();
}

int ProfileManager::Initialize(const ustring& tmp_path, bool auto_cleanup) {
  if (!tmp_path.empty() && !IsFileExist(tmp_path, false)) FSMKDir(tmp_path, false);
  const ProfileManagerGuard hold(*this);
  _tmp_file_path = tmp_path;
  _auto_cleanup = auto_cleanup;
  return 0;
}

int ProfileManager::LoadProfiles(std::uint64_t id, const ustring& folder) {
  Listing listing(folder);
  DIR_ENTRY entry;
  // A folder is opened by the first read.
  int more = FSReadDir(listing.dir, entry);
  if (more < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] profile-mgr(%d): Fail to open dir %s\n",
                   __LINE__, folder);
    return -1;
  }
  const ProfileManagerGuard hold(*this);
  Clear();
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] profile-mgr(%d): Setting profile for user %lld, from folder '%s'\n",
                 __LINE__, id, folder);
  for (std::uint64_t count = 0; more > 0; more = FSReadDir(listing.dir, entry)) {
    if (entry.name == "." || entry.name == "..") continue;
    AddProfileByFile(count++, "", folder + "/" + entry.name, {id});
  }
  if (more < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] profile-mgr(%d): Failed when FSReadDir %s.\n", __LINE__, folder);
  }
  return 0;
}

int ProfileManager::AddProfileByFile(std::uint64_t profile_id, const ustring& name,
                                     const ustring& path,
                                     const std::vector<std::uint64_t>& user_ids) {
  const auto profile = std::make_shared<Profile>();
  const int result = profile->LoadFromFile(path);
  profile->SetId(profile_id);
  profile->SetName(name);
  _profiles.push_back(profile);
  for (const std::uint64_t user : user_ids) {
    _user_profile_set[user].Add(profile);
    Logger::LogMsg(
        Logger::L_DEBUG, kCategory,
        L"[DEBUG] profile-mgr(%d): Set profile into user_profile_set of userid '%lld' '%lld'\n",
        __LINE__, user, profile_id);
  }
  return result;
}

int ProfileManager::GetUserProfileSet(std::uint64_t id, ProfileSet& set) {
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] profile-mgr(%d): GetUserProfileSet profile get %lld \n", __LINE__, id);
  const ProfileManagerGuard hold(*this);
  const auto found = _user_profile_set.find(id);
  if (found == _user_profile_set.end()) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] profile-mgr(%d): GetUserProfileSet Failed \n", __LINE__);
    return -1;
  }
  set = found->second;
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] profile-mgr(%d): GetUserProfileSet Success set size = %d\n", __LINE__,
                 set.size());
  return 0;
}

ustring ProfileManager::GetHash(std::uint64_t id) const {
  const auto found = _user_profile_set.find(id);
  return found == _user_profile_set.end() ? ustring() : found->second.GetHash();
}

void ProfileManager::Clear() {
  _user_profile_set.clear();
  _profiles.clear();
  for (const ustring& path : _temp_file_list) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] profile-mgr(%d): removing '%s'\n for Profile Manager clear.\n",
                   __LINE__, path);
    FSRemove(path, false);
  }
  _temp_file_list.clear();
}

int LoadProfileSet(std::uint64_t id, const ustring& folder, ProfileSet& set) {
  static Mutex one_at_a_time;
  MutexLock hold(one_at_a_time);
  set = ProfileSet();
  ProfileManager& manager = ProfileManager::GetInstance();
  const int result = manager.LoadProfiles(id, folder);
  if (result == 0) (void)manager.GetUserProfileSet(id, set);
  return result;
}

}  // namespace tolven

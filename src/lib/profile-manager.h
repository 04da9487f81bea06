// Loads server filter profiles and hands out the set of each user; a session counts as one. What it
// hands out is the caller's own and outlives the manager's tables.
//
// May be called from any thread. Operations take the manager's lock, or are called with it held,
// as their annotations tell. Messages go to category "sync_task_debug".
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "lib/profile-set.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace Json {
class Value;
}

namespace tolven {

// The manager is itself what its lock guards, so that clang finds calls that would deadlock.
class CAPABILITY("profiles") ProfileManager {
 public:
  static ProfileManager& GetInstance();

  ProfileManager() = default;
  ~ProfileManager();
  ProfileManager(const ProfileManager&) = delete;
  ProfileManager& operator=(const ProfileManager&) = delete;

  // Where AddProfileByContext() puts its files; the folder is made when it is missing. An empty
  // path: there are none. With `auto_cleanup` they go with the manager. Returns 0.
  int Initialize(const ustring& tmp_path, bool auto_cleanup) EXCLUDES(this);

  // Forgets the profiles of all users, then makes each file in `folder` a profile of `id`. 0, or -1
  // when the folder cannot be opened, and then nothing is forgotten.
  int LoadProfiles(std::uint64_t id, const ustring& folder) EXCLUDES(this);
  // 0 and a copy of the user's set, or -1 and `set` as it was when the user has none. See
  // LoadProfileSet() for both steps in one.
  int GetUserProfileSet(std::uint64_t id, ProfileSet& set) EXCLUDES(this);

  // For callers that work in several steps with the operations below. See ProfileManagerGuard.
  void GetProfileManagerLock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { mutex.lock(); }
  void PutProfileManagerLock() RELEASE() NO_THREAD_SAFETY_ANALYSIS { mutex.unlock(); }

  // Makes one filter file a profile of the given users. 0.
  int AddProfileByFile(std::uint64_t profile_id, const ustring& name, const ustring& path,
                       const std::vector<std::uint64_t>& user_ids) REQUIRES(this);
  // The same with rules in JSON; see JsonValueToFilterFile(). 0 or -1.
  int AddProfileByContext(std::uint64_t profile_id, const ustring& name, const ustring& text,
                          const std::vector<std::uint64_t>& user_ids) REQUIRES(this);
  // ProfileSet::GetHash() of the user's set, "" without one.
  ustring GetHash(std::uint64_t id) const REQUIRES(this);
  // Forgets all and removes the files of AddProfileByContext().
  void Clear() REQUIRES(this);

  // Writes a filter file with the rules of a JSON object. Its members, all optional: arrays of
  // strings "black_path_prefix_selective_sync", "filtered_extensions" and "filtered_names", and the
  // number "filtered_max_upload_size" (bytes, 32 bits, 0 for no limit). 0, or -1 for members of
  // another type and when the file cannot be written.
  static int JsonValueToFilterFile(const Json::Value& json, const ustring& path);

 private:
  Mutex mutex;
  std::map<std::uint64_t, ProfileSet> _user_profile_set GUARDED_BY(this);
  std::vector<shared_pointer<Profile>> _profiles GUARDED_BY(this);
  std::vector<ustring> _temp_file_list GUARDED_BY(this);
  ustring _tmp_file_path GUARDED_BY(this);
  bool _auto_cleanup GUARDED_BY(this) = false;
};

// Holds the manager's lock for a scope.
class SCOPED_CAPABILITY ProfileManagerGuard {
 public:
  explicit ProfileManagerGuard(ProfileManager& manager) ACQUIRE(manager) : manager_(manager) {
    manager_.GetProfileManagerLock();
  }
  ~ProfileManagerGuard() RELEASE() { manager_.PutProfileManagerLock(); }
  ProfileManagerGuard(const ProfileManagerGuard&) = delete;
  ProfileManagerGuard& operator=(const ProfileManagerGuard&) = delete;

 private:
  ProfileManager& manager_;
};

// What sessions use: loads a folder and takes its set, with no other load between the two. `set` is
// empty when there are no profiles. 0, or -1 when the folder cannot be opened.
int LoadProfileSet(std::uint64_t id, const ustring& folder, ProfileSet& set);

}  // namespace tolven

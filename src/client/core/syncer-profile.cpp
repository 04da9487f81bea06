// The filter profiles that the server keeps for the session's user: told apart by one hash for the
// whole set, fetched when it differs, and replaced as a whole.
#include <memory>
#include <vector>

#include "client/core/profile-folder.h"
#include "client/core/refusal-codes.h"
#include "client/core/syncer-log.h"
#include "client/core/syncer.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/file-op.h"
#include "lib/profile-set.h"
#include "lib/proto-common.h"
#include "platform/clock.h"

namespace tolven {

namespace {

// How long to leave the server alone that names a hash which what it sends does not have.
constexpr std::int64_t kAskAgainMilliseconds = 60'000;

}  // namespace

int Syncer::ReloadServerFilter(const PObject& response) {
  if (!IsProfileChanged(response)) {
    asked_profiles_.erase(context.entry.sess_id);
    return 0;
  }
  const ustring hash = response["profile_list"].asArray().front()["hash"].asString();
  const std::int64_t now = platform::clock().MonotonicMilliseconds();
  const auto asked = asked_profiles_.find(context.entry.sess_id);
  if (asked != asked_profiles_.end() && asked->second.hash == hash &&
      now - asked->second.asked_at < kAskAgainMilliseconds) {
    return 0;
  }
  const int code = ReloadProfile();
  if (code == 0) asked_profiles_[context.entry.sess_id] = {hash, now};
  return code;
}

bool Syncer::IsProfileChanged(const PObject& response) const {
  const ustring client_hash = context.entry.server_black_lists->GetHash();
  for (const PObject& profile : response["profile_list"].asArray()) {
    const ustring& server_hash = profile["hash"].asString();
    SYNCER_DEBUG("client hash = '%s'; server hash = '%s'\n", client_hash, server_hash);
    if (server_hash != client_hash) return true;
  }
  return false;
}

int Syncer::ReloadProfile() {
  PObject request, answer;
  InitRequest(request, "get_profile");
  request["session"] = GetConnectionInfo().session;
  if (const int failure = ProtoGetProfile(request, answer); failure < 0) {
    CleanProfilefile(answer);
    return failure;
  }
  const PObject& response = answer;
  int code = 0;
  if (response.hasMember("error")) {
    SYNCER_ERROR("ReloadProfile: response: %s.\n", response.toString());
    code = SyncerResp2ErrorCode(response["error"]["code"].asUInt32());
  } else if (UpdateProfile(response) != 0) {
    SYNCER_ERROR("Update profile failed.\n");
    code = ErrorCodes::ERR_SYS;
  }
  CleanProfilefile(response);
  return code;
}

int Syncer::UpdateProfile(const PObject& response) {
  // An answer that tells nothing must not take away what there is.
  if (!response["profile_list"].isArray() || !RefreshEntry()) return -1;
  std::vector<ProfileFolder::Received> received;
  for (const PObject& profile : response["profile_list"].asArray()) {
    const ustring& name = profile["name"].asString();
    const ustring& file = profile["file"].asBinary().path;
    if (!IsPlainName(name.view()) || file.empty()) {
      SYNCER_ERROR("refused a profile with the name '%s'\n", name);
      return -1;
    }
    received.push_back({name, file});
  }
  ProfileFolder folder(context.entry.event_db->getProfilePath());
  if (folder.Replace(received) != 0) return -1;
  auto set = std::make_shared<ProfileSet>();
  if (folder.Load(context.entry.sess_id, *set) != 0) return -1;
  Registry::getInstance().SetServerBlackLists(context.entry.sess_id, set);
  context.entry.server_black_lists = set;
  replace_filter_(context.entry, false);
  return 0;
}

// What was not moved away is of no use to anybody.
void Syncer::CleanProfilefile(const PObject& response) {
  for (const PObject& profile : response["profile_list"].asArray()) {
    const ustring& file = profile["file"].asBinary().path;
    if (!file.empty()) FSRemove(file, false);
  }
}

}  // namespace tolven

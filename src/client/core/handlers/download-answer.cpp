#include "client/core/handlers/download-answer.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>

#include "client/core/event-generator.h"

namespace tolven {

namespace {

struct Member {
  const char* part;  // the map that holds it
  const char* name;
  PObject::Type type;
};

constexpr Member kMembers[] = {
    {"file", "refer_local", PObject::TYPE_INTEGER},
    {"file", "refer", PObject::TYPE_INTEGER},
    {"file", "is_delta", PObject::TYPE_INTEGER},
    {"file", "size", PObject::TYPE_INTEGER},
    {"file", "hash", PObject::TYPE_STRING},
    {"file", "data", PObject::TYPE_BINARY},
    {"mtime", "refer_local", PObject::TYPE_INTEGER},
    {"mtime", "refer", PObject::TYPE_INTEGER},
    {"mtime", "mtime", PObject::TYPE_INTEGER},
    {"exec_bit", "exec_bit", PObject::TYPE_INTEGER},
    {"unix_perm", "uid", PObject::TYPE_INTEGER},
    {"unix_perm", "gid", PObject::TYPE_INTEGER},
    {"unix_perm", "mode", PObject::TYPE_INTEGER},
    {"zentrova_acl", "acl", PObject::TYPE_STRING},
    {"zentrova_acl", "hash", PObject::TYPE_STRING},
    {"share_priv", "disabled", PObject::TYPE_INTEGER},
    {"share_priv", "deny_list", PObject::TYPE_STRING},
    {"share_priv", "ro_list", PObject::TYPE_STRING},
    {"share_priv", "rw_list", PObject::TYPE_STRING},
    {"share_priv", "hash", PObject::TYPE_STRING},
    {"mac_attribute", "hash", PObject::TYPE_STRING},
    {"mac_attribute", "data", PObject::TYPE_BINARY},
};

bool IsTyped(const PObject& response, const Member& member) {
  if (!response.hasMember(member.part)) return true;
  const PObject& part = response[member.part];
  if (!part.isMap()) return false;
  return !part.hasMember(member.name) || part[member.name].type() == member.type;
}

// A content goes by its announced length and hash.
bool IsFileSound(const PObject& file) {
  if (!file.hasMember("data")) return true;
  return file.hasMember("size") && file.hasMember("hash") &&
         file["size"].asUInt64() <= std::uint64_t{std::numeric_limits<std::int64_t>::max()};
}

bool IsMtimeSound(const PObject& mtime) {
  if (!mtime["refer_local"].asBool() && mtime["refer"].asBool()) return true;
  return mtime.hasMember("mtime") &&
         mtime["mtime"].asUInt64() <= std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

bool IsSoundDownload(const PObject& response) {
  const PObject &sync_id = response["sync_id"], &max_id = response["max_id"];
  const bool has_version = sync_id.isInteger() && max_id.isInteger() && sync_id.asUInt64() != 0 &&
                           sync_id.asUInt64() < kForcedDownload &&
                           max_id.asUInt64() < kForcedDownload;
  const bool is_typed =
      std::all_of(std::begin(kMembers), std::end(kMembers),
                  [&](const Member& member) { return IsTyped(response, member); });
  return has_version && is_typed && response["is_dir"].isInteger() &&
         IsFileSound(response["file"]) &&
         (!response.hasMember("mtime") || IsMtimeSound(response["mtime"]));
}

}  // namespace tolven

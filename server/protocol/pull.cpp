// "pull_event" and "get_profile".
#include <algorithm>

#include "lib/proto-constants.h"
#include "platform/files.h"
#include "server/protocol/access.h"
#include "server/protocol/ancestors.h"
#include "server/protocol/command.h"
#include "server/protocol/path-rule.h"
#include "server/protocol/record.h"

namespace tolven::server {

namespace {

constexpr std::size_t kPageSize = 1000;  // numbered records of one answer

// What a session that does not go into folders hears of: its root and the files right in it.
bool IsShallow(const Node& node, const std::string& root) {
  return node.path == root || (!node.is_dir && ParentOf(node.path) == root);
}

std::uint32_t AddRecords(Command& command, const Node& root, const std::vector<Node>& page) {
  const bool recursive =
      command.request["recursive"].isNull() || command.request["recursive"].asBool();
  Ancestors ancestors(command.service.metadata, command.view.id, command.path);
  std::vector<const Node*> records;
  for (const Node& node : page) {
    if (!recursive && !IsShallow(node, command.path)) continue;
    if (!ancestors.AddAbove(node)) return SPROTO_ERR_INTERNAL;
    records.push_back(&node);
  }
  // A client that begins hears of the root first, wherever its turn is.
  const bool begins = command.request["sync_id"].asUInt64() == 0 && !page.empty();
  if (begins && !records.empty() && records.front()->path == root.path)
    records.erase(records.begin());
  if (begins) ancestors.Add(root);
  const std::uint32_t build = command.service.options.build;
  PObject::array_type& list = command.answer["event_list"].asArray();
  for (const Node& folder : ancestors.Take()) {
    list.push_back(ChangeRecord(folder, command.path, build));
  }
  for (const Node* node : records) list.push_back(ChangeRecord(*node, command.path, build));
  return SPROTO_ERR_OK;
}

// What the client keeps of its user.
void AddUser(Command& command) {
  command.answer["is_admin"] = command.user.is_admin ? 1 : 0;
  command.answer["uid"] = command.user.uid;
  PObject::array_type& groups = command.answer["group"].asArray();
  for (const std::uint32_t group : command.user.groups) groups.emplace_back(group);
}

}  // namespace

// The hash of the set, as clients make it: the sums of all profiles, sorted and joined.
std::uint32_t AddProfileHash(Command& command) {
  std::vector<Profile> profiles;
  if (command.service.metadata.ListProfiles(command.user.id, profiles) < 0) {
    return SPROTO_ERR_INTERNAL;
  }
  std::vector<std::string> sums;
  for (const Profile& profile : profiles) sums.push_back(profile.md5);
  std::sort(sums.begin(), sums.end());
  std::string hash;
  for (const std::string& sum : sums) hash += sum;
  PObject element;
  element["hash"] = ustring(hash);
  command.answer["profile_list"].asArray().push_back(std::move(element));
  return SPROTO_ERR_OK;
}

std::uint32_t GetProfile(Command& command) {
  std::vector<Profile> profiles;
  if (command.service.metadata.ListProfiles(command.user.id, profiles) < 0) {
    return SPROTO_ERR_INTERNAL;
  }
  PObject::array_type& list = command.answer["profile_list"].asArray();
  for (const Profile& profile : profiles) {
    PObject::binary_type file;
    file.path = profile.file;
    platform::NodeInfo info;
    if (!platform::files().Stat(profile.file, info).ok()) return SPROTO_ERR_INTERNAL;
    file.length = info.size;
    PObject element;
    element["name"] = ustring(profile.name);
    element["file"] = file;
    list.push_back(std::move(element));
  }
  return SPROTO_ERR_OK;
}

std::uint32_t PullEvent(Command& command) {
  Metadata& metadata = command.service.metadata;
  Node root;
  const int found = metadata.FindNode(command.view.id, command.path, root);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  if (found == 0 || root.is_removed || !root.is_dir) return SPROTO_ERR_VIEW_INVALID_PATH;
  Access access(command);
  if (!access.CanSee(command.path)) return SPROTO_ERR_ACCESS_DENY;

  const std::uint64_t since = command.request["sync_id"].asUInt64();
  std::vector<Node> page;
  if (metadata.ListChanges(command.view.id, command.path, since, kPageSize, page) < 0) {
    return SPROTO_ERR_INTERNAL;
  }
  const std::uint32_t code = AddRecords(command, root, page);
  if (code != SPROTO_ERR_OK) return code;
  // A client that knows numbers which are still to be given has them from data that this server has
  // lost.
  command.answer["next_sync_id"] =
      page.empty() ? std::min(since, command.view.last_number) : page.back().sync_id;
  AddUser(command);
  return AddProfileHash(command);
}

}  // namespace tolven::server

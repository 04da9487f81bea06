#include "server/protocol/access.h"

#include <vector>

#include "server/protocol/path-rule.h"

namespace tolven::server {

namespace {

// A list without entries that takes those of the folders above: version, the bit for inherited
// entries, no entries.
constexpr const char* kInheritsAll = "1 64 0 ";

constexpr std::size_t kPageSize = 1000;  // objects that are looked at in one go

}  // namespace

int Access::Find(const std::string& path, bool is_dir, Node& node) {
  const int found = command_.service.metadata.FindNode(command_.view.id, path, node);
  if (found < 0) return -1;
  if (found > 0 && (past_ || !node.is_removed)) return 0;
  node = Node();
  node.path = path;
  node.is_dir = is_dir;
  node.uid = command_.user.uid;
  return 0;
}

const Node* Access::FindFolder(const std::string& path) {
  const auto known = folders_.find(path);
  if (known != folders_.end()) return &known->second;
  Node folder;
  if (Find(path, true, folder) < 0) return nullptr;
  return &folders_.emplace(path, std::move(folder)).first->second;
}

// One check mostly follows another of the same object.
int Access::FindObject(const std::string& path, bool is_dir) {
  if (object_.path == path && object_.is_dir == is_dir) return 0;
  const int found = Find(path, is_dir, object_);
  if (found < 0) object_ = Node();
  return found;
}

Access::Chain Access::Collect(const std::string& path, bool is_dir, ACL_API::ACL& chain) {
  if (FindObject(path, is_dir) < 0) return Chain::kFailed;
  std::vector<const Node*> nodes{&object_};
  for (std::string at = path; at != "/";) {
    at = std::string(ParentOf(at));
    nodes.push_back(FindFolder(at));
    if (nodes.back() == nullptr) return Chain::kFailed;
  }
  std::size_t counted = nodes.size();
  while (counted > 0 && nodes[counted - 1]->acl.empty()) --counted;
  for (std::size_t level = 0; level < counted; ++level) {
    const Node& node = *nodes[level];
    ACL_API::ACL::Privilege privilege;
    privilege.acl = node.acl.empty() ? kInheritsAll : node.acl;
    privilege.path = node.path;
    privilege.unix_perm.uid = node.uid;
    privilege.unix_perm.gid = node.gid;
    privilege.unix_perm.unix_mode = node.mode;
    privilege.level = static_cast<int>(level);
    privilege.is_dir = node.is_dir;
    chain.AddPrivilege(privilege);
  }
  return counted == 0 ? Chain::kFree : Chain::kRuled;
}

template <class Test>
bool Access::Allowed(const std::string& path, bool is_dir, Test test) {
  if (command_.user.is_admin) return true;
  ACL_API::ACL chain;
  const Chain collected = Collect(path, is_dir, chain);
  if (collected != Chain::kRuled) return collected == Chain::kFree;
  ACL_API::ACL::UserInfo user;
  user.uid = command_.user.uid;
  user.group_set.insert(command_.user.groups.begin(), command_.user.groups.end());
  return test(chain, user);
}

bool Access::CanSee(const std::string& path, bool is_dir) {
  return Allowed(path, is_dir,
                 [](auto& chain, const auto& user) { return chain.IsAccessible(user, 0); });
}

bool Access::CanRead(const std::string& path, bool is_dir) {
  return Allowed(path, is_dir, [](auto& chain, const auto& user) {
    return chain.IsAccessible(user, 0) && chain.IsReadable(user);
  });
}

bool Access::CanWrite(const std::string& path, bool is_dir) {
  return Allowed(path, is_dir, [](auto& chain, const auto& user) {
    return chain.IsAccessible(user, 0) && chain.IsWritable(user);
  });
}

int Access::CanRemove(const Node& node) {
  if (!CanWrite(node.path, node.is_dir)) return 0;
  if (!node.is_dir || command_.user.is_admin) return 1;
  Metadata& metadata = command_.service.metadata;
  std::vector<Node> ruled;
  if (metadata.ListRuled(command_.view.id, node.path, ruled) < 0) return -1;
  ACL_API::ACL chain;
  const Chain above = Collect(node.path, true, chain);
  if (above == Chain::kFailed) return -1;
  if (above == Chain::kFree && ruled.empty()) return 1;
  for (std::uint64_t after = 0;;) {
    std::vector<Node> page;
    if (metadata.ListChanges(command_.view.id, node.path, after, kPageSize, page) < 0) return -1;
    for (const Node& each : page) {
      if (!each.is_removed && !CanWrite(each.path, each.is_dir)) return 0;
    }
    if (page.size() < kPageSize) return 1;
    after = page.back().sync_id;
  }
}

}  // namespace tolven::server

#include "server/protocol/ancestors.h"

#include "server/protocol/path-rule.h"

namespace tolven::server {

Ancestors::Folder* Ancestors::Find(const std::string& path) {
  const auto known = folders_.find(path);
  if (known != folders_.end()) return &known->second;
  Folder folder;
  if (metadata_.FindNode(view_, path, folder.node) < 0) return nullptr;
  return &folders_.emplace(path, std::move(folder)).first->second;
}

bool Ancestors::AddAbove(const Node& node) {
  if (node.is_removed) return true;  // needs nothing to stand in
  for (std::string path = node.path; path != root_;) {
    path = std::string(ParentOf(path));
    Folder* const folder = Find(path);
    if (folder == nullptr) return false;
    if (folder->node.sync_id > node.sync_id && !folder->node.is_removed) folder->wanted = true;
  }
  return true;
}

// A path sorts behind those that it begins with.
std::vector<Node> Ancestors::Take() {
  std::vector<Node> wanted;
  for (auto& [path, folder] : folders_) {
    if (folder.wanted) wanted.push_back(std::move(folder.node));
  }
  return wanted;
}

}  // namespace tolven::server

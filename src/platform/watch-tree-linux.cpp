#include "platform/watch-tree-linux.h"

#include <functional>

namespace tolven::platform {

std::size_t WatchTree::Hash::operator()(const Place& place) const {
  return std::hash<std::string_view>()(place.name) * 31 + std::hash<const void*>()(place.parent);
}

WatchedFolder* WatchTree::Find(int wd) {
  const auto it = by_wd_.find(wd);
  return it == by_wd_.end() ? nullptr : &it->second;
}

WatchedFolder* WatchTree::Child(const WatchedFolder& parent, std::string_view name) {
  const auto it = by_place_.find(Place{&parent, name});
  return it == by_place_.end() ? nullptr : *it;
}

WatchedFolder& WatchTree::Insert(int wd, WatchedFolder* parent, std::string_view name) {
  WatchedFolder& folder = by_wd_[wd];
  folder.wd = wd;
  Link(folder, parent, name);
  return folder;
}

void WatchTree::Move(WatchedFolder& folder, WatchedFolder& parent, std::string_view name) {
  const std::string copy(name);  // it may be the folder's own
  Unlink(folder);
  Link(folder, &parent, copy);
}

void WatchTree::Remove(WatchedFolder& folder, std::vector<int>& wds) {
  Unlink(folder);
  std::vector<WatchedFolder*> left{&folder};
  while (!left.empty()) {
    WatchedFolder* const each = left.back();
    left.pop_back();
    for (WatchedFolder* child = each->first_child; child != nullptr; child = child->next) {
      by_place_.erase(child);
      left.push_back(child);
    }
    wds.push_back(each->wd);
    by_wd_.erase(each->wd);
  }
}

void WatchTree::Clear() {
  by_place_.clear();
  by_wd_.clear();
}

bool WatchTree::IsWithin(const WatchedFolder& folder, const WatchedFolder& ancestor) {
  for (const WatchedFolder* each = &folder; each != nullptr; each = each->parent) {
    if (each == &ancestor) return true;
  }
  return false;
}

std::string WatchTree::PathOf(const WatchedFolder& folder) {
  std::size_t size = 0;
  for (const WatchedFolder* each = &folder; each->parent != nullptr; each = each->parent) {
    size += each->name.size() + 1;
  }
  if (size == 0) return {};
  std::string path(size - 1, '/');
  std::size_t end = path.size();
  for (const WatchedFolder* each = &folder; each->parent != nullptr; each = each->parent) {
    path.replace(end - each->name.size(), each->name.size(), each->name);
    if (each->parent->parent != nullptr) end -= each->name.size() + 1;
  }
  return path;
}

void WatchTree::Link(WatchedFolder& folder, WatchedFolder* parent, std::string_view name) {
  folder.parent = parent;
  folder.name = name;
  if (parent == nullptr) return;
  folder.next = parent->first_child;
  if (folder.next != nullptr) folder.next->previous = &folder;
  parent->first_child = &folder;
  by_place_.insert(&folder);
}

void WatchTree::Unlink(WatchedFolder& folder) {
  if (folder.parent == nullptr) return;
  by_place_.erase(&folder);
  if (folder.previous != nullptr) {
    folder.previous->next = folder.next;
  } else {
    folder.parent->first_child = folder.next;
  }
  if (folder.next != nullptr) folder.next->previous = folder.previous;
  folder.parent = folder.next = folder.previous = nullptr;
}

}  // namespace tolven::platform

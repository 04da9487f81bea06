#include "client/event-tree.h"

#include <algorithm>

#include "client/event-path.h"

namespace tolven {

namespace {

bool IsPendingChange(const EventNode& node) {
  return node.status != EventStatus::DONE && node.attr.type != Event::EV_REMOVE;
}

bool IsRemoval(const EventNode* node, bool server) {
  return node != nullptr && node->status != EventStatus::DONE && node->attr.isServer() == server &&
         node->attr.type == Event::EV_REMOVE;
}

// A folder that was removed here and came back: which of its members are gone is yet to be found.
bool HidesLocalRemovals(const EventNode& dir) {
  constexpr uint32_t kRescans = Event::F_LOCAL_SUBDIR_RESCAN | Event::F_LOCAL_SUBDIR_RESCAN_STAT;
  return dir.status != EventStatus::DONE && (dir.attr.mode & kRescans) != 0;
}

bool HasPendingChild(const EventDirNode& dir) {
  using Files = EventChildList<EventFileNode>;
  for (const EventFileNode* file = dir.files().first(); file != nullptr;
       file = Files::Next(*file)) {
    if (IsPendingChange(*file)) return true;
  }
  return false;
}

}  // namespace

EventDirNode* EventTree::FindDir(std::string_view dir) const {
  EventDirNode* node = root_.get();
  PathWalker walker(dir);
  for (std::string_view name = walker.Next(); node != nullptr && !name.empty();
       name = walker.Next()) {
    node = node->dirs().Find(name);
  }
  return node;
}

bool EventTree::HasRemovalOnWay(std::string_view path, bool server) const {
  const EventDirNode* node = root_.get();
  PathWalker walker(path);
  while (!IsRemoval(node, server)) {
    const std::string_view name = walker.Next();
    if (name.empty()) return false;
    if (IsRemoval(node->files().Find(name), server)) return true;
    if (!server && HidesLocalRemovals(*node)) return true;
    node = node->dirs().Find(name);
    if (node == nullptr) return false;
  }
  return true;
}

EventDirNode& EventTree::MakeDir(std::string_view dir) {
  EventDirNode* node = root_.get();
  PathWalker walker(dir);
  for (std::string_view name = walker.Next(); !name.empty(); name = walker.Next()) {
    EventDirNode* child = node->dirs().Find(name);
    node = child != nullptr ? child : &node->AddDir(name);
  }
  return *node;
}

void EventTree::Count(EventDirNode& dir, const EventAttribute& attr, int32_t difference) {
  const bool server = attr.isServer();
  const int32_t change = attr.type == Event::EV_REMOVE ? 0 : difference;
  for (EventDirNode* node = &dir; node != nullptr; node = node->parent) {
    node->RefCount(server) += difference;
    node->running_changes += change;
    if (node->status == EventStatus::WAITING && node->parent != nullptr) {
      node->parent->Relist(*node);
    }
  }
}

void EventTree::ForgetRunning(EventDirNode& dir, const EventAttribute& attr) {
  if (attr.type == Event::EV_REMOVE) return;
  for (EventDirNode* node = &dir; node != nullptr; node = node->parent) --node->running_changes;
}

void EventTree::FreeDir(EventDirNode& parent, std::string_view name) {
  EventDirNode* dir = parent.dirs().Find(name);
  if (dir == nullptr || !dir->attr.isTypeConflict()) return;
  dir->attr.mode &= ~uint32_t{EVENT_F_FILE_TYPE_CONFLICT};
  parent.Relist(*dir);
}

void EventTree::FreeFile(EventDirNode& parent, std::string_view name) {
  EventFileNode* file = parent.files().Find(name);
  if (file == nullptr || !file->attr.isTypeConflict()) return;
  file->attr.mode &= ~uint32_t{EVENT_F_FILE_TYPE_CONFLICT};
  parent.Relist(*file);
}

void EventTree::RemoveIdleUpwards(EventDirNode& dir) {
  EventDirNode* node = &dir;
  while (node->parent != nullptr && node->empty() && node->status == EventStatus::DONE) {
    EventDirNode* parent = node->parent;
    parent->Remove(*node);
    node = parent;
  }
}

bool EventTree::HasPendingChangeBelow(const EventDirNode& top) {
  for (const EventDirNode* dir = &top; dir != nullptr; dir = NextBelow(top, *dir)) {
    if (HasPendingChild(*dir) || (dir != &top && IsPendingChange(*dir))) return true;
  }
  return false;
}

bool EventTree::HasServerEventBelow(std::string_view path) const {
  const EventDirNode* const top = FindDir(path);
  if (top == nullptr) return false;
  const auto is_servers = [](const EventNode& node) {
    return node.status != EventStatus::DONE && node.attr.isServer();
  };
  for (const EventDirNode* dir = top; dir != nullptr; dir = NextBelow(*top, *dir)) {
    if (dir != top && is_servers(*dir)) return true;
    for (const EventFileNode* file = dir->files().first(); file != nullptr;
         file = EventChildList<EventFileNode>::Next(*file)) {
      if (is_servers(*file)) return true;
    }
  }
  return false;
}

bool EventTree::HasReplacedServerEvent() const {
  const auto has_replaced = [](const EventNode& node) {
    return node.status != EventStatus::DONE && !node.attr.isServer() &&
           (node.attr.mode & Event::F_REPLACED_SERVER_EVENT) != 0;
  };
  for (const EventDirNode* dir = root_.get(); dir != nullptr; dir = NextBelow(*root_, *dir)) {
    if (has_replaced(*dir)) return true;
    for (const EventFileNode* file = dir->files().first(); file != nullptr;
         file = EventChildList<EventFileNode>::Next(*file)) {
      if (has_replaced(*file)) return true;
    }
  }
  return false;
}

bool EventTree::HasServerFileEvent(std::string_view path) const {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return false;
  const EventDirNode* const dir = FindDir(path.substr(0, std::max<std::size_t>(slash, 1)));
  if (dir == nullptr) return false;
  const EventFileNode* const file = dir->files().Find(path.substr(slash + 1));
  return file != nullptr && file->status != EventStatus::DONE && file->attr.isServer();
}

bool EventTree::HasServerEventOfOtherKind(std::string_view path) const {
  const EventDirNode* const dir = FindDir(path);
  if (dir == nullptr || dir->parent == nullptr) return false;
  const auto is_servers = [](const EventNode& node) {
    return node.status != EventStatus::DONE && node.attr.isServer();
  };
  const EventFileNode* const file = dir->parent->files().Find(dir->name);
  return is_servers(*dir) || (file != nullptr && is_servers(*file));
}

const EventDirNode* EventTree::NextBelow(const EventDirNode& top, const EventDirNode& dir) {
  if (!dir.dirs().empty()) return dir.dirs().first();
  for (const EventDirNode* node = &dir; node != &top; node = node->parent) {
    const EventDirNode* sibling = EventChildList<EventDirNode>::Next(*node);
    if (sibling != nullptr) return sibling;
  }
  return nullptr;
}

std::string EventTree::PathOf(const EventNode& node) {
  std::vector<const std::string*> names;
  for (const EventNode* at = &node; at->parent != nullptr; at = at->parent) {
    names.push_back(&at->name);
  }
  if (names.empty()) return "/";
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name) path += "/" + **name;
  return path;
}

}  // namespace tolven

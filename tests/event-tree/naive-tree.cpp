#include "naive-tree.h"

#include <algorithm>
#include <sstream>

namespace tolven::test {

namespace {

using Nodes = std::vector<std::unique_ptr<NaiveNode>>;
constexpr uint64_t kForced = 0x7FFFFFFFFFFFFFFF;
constexpr uint32_t kSticky = 64 | 128 | 256 | 512 | 1024 | 4096 | 8192;

NaiveNode* Find(const Nodes& nodes, const std::string& name) {
  for (const auto& node : nodes) {
    if (node->name == name) return node.get();
  }
  return nullptr;
}

NaiveNode* Append(Nodes& nodes, NaiveNode* parent, const std::string& name) {
  nodes.push_back(std::make_unique<NaiveNode>());
  nodes.back()->name = name;
  nodes.back()->parent = parent;
  return nodes.back().get();
}

void Erase(Nodes& nodes, const NaiveNode* gone) {
  nodes.erase(std::find_if(nodes.begin(), nodes.end(), [&](auto& n) { return n.get() == gone; }));
}

void ToEnd(Nodes& nodes, const NaiveNode* node) {
  const auto at =
      std::find_if(nodes.begin(), nodes.end(), [&](auto& n) { return n.get() == node; });
  std::rotate(at, at + 1, nodes.end());
}

std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

void Refs(NaiveNode* dir, bool server, int difference) {
  for (; dir != nullptr; dir = dir->parent) {
    (server ? dir->server_refs : dir->local_refs) += difference;
  }
}

void ClearAttribute(Event& event) {
  event.m_type = Event::EV_EMPTY;
  event.m_mode = 0;
  event.m_sync_id = 0;
}

void Unblock(const Nodes& others, const std::string& name) {
  if (NaiveNode* other = Find(others, name)) other->event.m_mode &= ~NaiveTree::kTypeConflict;
}

Event PlusSticky(Event result, const Event& old) {
  result.m_mode |= old.m_mode & kSticky;
  return result;
}

Event TypeConflict(const Event& server, const Event& local) {
  if (local.m_type == Event::EV_REMOVE) return server;
  if (server.m_type == Event::EV_REMOVE) {
    Event edit = local;
    edit.m_mode |= 8192;
    return edit;
  }
  Event both = server;
  both.setConflict();
  return both;
}

Event MergeFiles(const Event& old, const Event& arrival) {
  if (old.isLocalEvent() && arrival.isLocalEvent()) return PlusSticky(arrival, old);
  if (old.isLocalEvent()) return PlusSticky(TypeConflict(arrival, old), old);
  if (arrival.isLocalEvent()) return PlusSticky(TypeConflict(old, arrival), old);
  const bool stale = arrival.m_sync_id <= old.m_sync_id && old.m_sync_id != kForced;
  return PlusSticky(stale ? old : arrival, old);
}

Event MergeDirs(const Event& old, const Event& arrival) {
  Event result = old;
  if (old.isLocalEvent()) {
    result = PlusSticky(arrival, old);
  } else if (arrival.isServerEvent() &&
             (old.m_sync_id < arrival.m_sync_id || old.m_sync_id == kForced)) {
    result = PlusSticky(arrival, old);
  }
  if (old.m_type == Event::EV_REMOVE && result.m_type != Event::EV_REMOVE) {
    old.isLocalEvent() ? result.setLocalSubDirRescan() : result.setServerSubDirRescan();
  }
  return result;
}

Event Merge(const Event& old, const Event& arrival) {
  if (old.m_type == Event::EV_EMPTY) return arrival;
  if (arrival.m_type == Event::EV_EMPTY) return old;
  return arrival.isFile() ? MergeFiles(old, arrival) : MergeDirs(old, arrival);
}

// Whether all nodes below that `counts` picks are removals.
template <class Counts>
bool OnlyRemovals(const NaiveNode& dir, Counts counts) {
  const auto harmless = [&](const std::unique_ptr<NaiveNode>& node) {
    return !counts(node->status) || node->event.m_type == Event::EV_REMOVE;
  };
  return std::all_of(dir.files.begin(), dir.files.end(), harmless) &&
         std::all_of(dir.dirs.begin(), dir.dirs.end(), [&](const std::unique_ptr<NaiveNode>& sub) {
           return harmless(sub) && OnlyRemovals(*sub, counts);
         });
}

bool Overtaken(const NaiveNode& node, const Event& removal) {
  return node.status == NaiveNode::WAITING && node.server() == removal.isServerEvent() &&
         (!node.server() || node.event.m_sync_id < removal.m_sync_id);
}

}  // namespace

NaiveNode* NaiveTree::Parent(const std::string& path, bool make) {
  NaiveNode* dir = root_.get();
  std::istringstream names(path.substr(0, path.rfind('/')));
  for (std::string name; dir != nullptr && std::getline(names, name, '/');) {
    if (name.empty()) continue;
    NaiveNode* child = Find(dir->dirs, name);
    dir = child == nullptr && make ? Append(dir->dirs, dir, name) : child;
  }
  return dir;
}

void NaiveTree::MergeInto(NaiveNode& node, NaiveNode& holder, const Event& event, Event& old) {
  old = node.event;
  if (node.status == NaiveNode::DONE) {
    node.event = event;
  } else {
    if (node.status == NaiveNode::PROCESSING) Refs(&holder, node.server(), -1);
    --Counter(node.server());
    node.event = Merge(old, event);
  }
  const bool with_worker = node.status == NaiveNode::PROCESSING || node.status == NaiveNode::RETRY;
  node.status = with_worker ? NaiveNode::RETRY : NaiveNode::WAITING;
  ++Counter(node.server());
}

int NaiveTree::Push(const Event& event, Event& old) {
  const std::string path = event.m_path.str();
  old = Event();
  if (path == "/") {
    Event cleared;
    const bool pending = root_->event.isValid();
    MergeInto(*root_, *root_, event, pending ? old : cleared);
    return 0;
  }
  if (path.back() == '/') return -1;
  NaiveNode* parent = Parent(path, true);
  Nodes& nodes = event.isDir() ? parent->dirs : parent->files;
  NaiveNode* node = Find(nodes, Name(path));
  if (node == nullptr) {
    const NaiveNode* other = Find(event.isDir() ? parent->files : parent->dirs, Name(path));
    node = Append(nodes, parent, Name(path));
    MergeInto(*node, *parent, event, old);
    if (other != nullptr && other->status != NaiveNode::DONE &&
        (other->event.m_mode & kTypeConflict) == 0) {
      node->event.m_mode |= kTypeConflict;
    }
  } else {
    MergeInto(*node, *parent, event, old);
  }
  if (event.isDir() && node->event.m_type == Event::EV_REMOVE) Sweep(*node, Event(node->event));
  return 0;
}

int NaiveTree::Sweep(NaiveNode& dir, const Event& removal) {
  int stayed = 0;
  for (size_t i = 0; i < dir.dirs.size();) {
    NaiveNode& child = *dir.dirs[i];
    const int below = Sweep(child, removal);
    const bool overtaken = Overtaken(child, removal);
    if (overtaken) {
      Unblock(dir.files, child.name);
      --Counter(removal.isServerEvent());
    }
    if (below == 0 && (overtaken || child.status == NaiveNode::DONE)) {
      Erase(dir.dirs, &child);
      continue;
    }
    if (overtaken) {
      child.status = NaiveNode::DONE;
      ClearAttribute(child.event);
    }
    stayed += below + 1;
    ++i;
  }
  for (size_t i = 0; i < dir.files.size();) {
    NaiveNode& file = *dir.files[i];
    if (!Overtaken(file, removal)) {
      ++stayed;
      ++i;
      continue;
    }
    Unblock(dir.dirs, file.name);
    --Counter(removal.isServerEvent());
    Erase(dir.files, &file);
  }
  return stayed;
}

void NaiveTree::HandOut(NaiveNode& node, NaiveNode& holder, Event& out) {
  node.status = NaiveNode::PROCESSING;
  Refs(&holder, node.server(), 1);
  out = node.event;
}

int NaiveTree::Pop(Event& out) {
  if (root_->status == NaiveNode::WAITING) {
    HandOut(*root_, *root_, out);
    return 0;
  }
  return root_->status == NaiveNode::DONE && First(*root_, out) ? 0 : -1;
}

bool NaiveTree::First(NaiveNode& dir, Event& out) {
  for (const auto& file : dir.files) {
    if (file->status != NaiveNode::WAITING || (file->event.m_mode & kTypeConflict) != 0) continue;
    HandOut(*file, dir, out);
    return true;
  }
  for (const auto& child : dir.dirs) {
    if (child->status == NaiveNode::DONE) return First(*child, out);
    if (child->status != NaiveNode::WAITING) continue;
    const bool removal = child->event.m_type == Event::EV_REMOVE;
    if (child->server_refs > 0 || child->local_refs > 0) {
      const auto running = [](NaiveNode::Status s) { return s == NaiveNode::PROCESSING; };
      if (!removal || OnlyRemovals(*child, running)) continue;
      if (!child->server() && child->server_refs > 0) child->event.setLocalSubDirRescanWithStat();
      if (child->server() && child->local_refs > 0) child->event.setServerSubDirRescanWithStat();
      continue;
    }
    if ((child->event.m_mode & kTypeConflict) != 0) return First(*child, out);
    const auto pending = [](NaiveNode::Status s) { return s != NaiveNode::DONE; };
    if (removal && !OnlyRemovals(*child, pending)) {
      child->server() ? child->event.setServerSubDirRescanWithStat()
                      : child->event.setLocalSubDirRescanWithStat();
    }
    HandOut(*child, dir, out);
    return true;
  }
  return false;
}

int NaiveTree::PopPath(const std::string& path, bool dirs, bool files, Event& out) {
  if (path == "/") {
    if (root_->status != NaiveNode::RETRY) return -1;
    HandOut(*root_, *root_, out);
    return 0;
  }
  NaiveNode* parent = Parent(path, false);
  if (parent == nullptr) return -1;
  NaiveNode* dir = dirs ? Find(parent->dirs, Name(path)) : nullptr;
  NaiveNode* file = files ? Find(parent->files, Name(path)) : nullptr;
  for (NaiveNode* node : {dir, file}) {
    if (node == nullptr || node->status != NaiveNode::RETRY) continue;
    HandOut(*node, *parent, out);
    return 0;
  }
  return -1;
}

int NaiveTree::Done(const Event& event) {
  const std::string path = event.m_path.str();
  const bool is_root = path == "/";
  NaiveNode* parent = is_root ? root_.get() : Parent(path, false);
  if (parent == nullptr) return -1;
  const bool as_dir = is_root || event.isDir();
  Nodes& nodes = as_dir ? parent->dirs : parent->files;
  NaiveNode* node = is_root ? root_.get() : Find(nodes, Name(path));
  if (node == nullptr || node->server() != event.isServerEvent()) return -1;
  if (node->status != NaiveNode::PROCESSING) return -1;
  Refs(parent, node->server(), -1);
  if (!is_root) Unblock(as_dir ? parent->files : parent->dirs, Name(path));
  --Counter(event.isServerEvent());
  node->status = NaiveNode::DONE;
  ClearAttribute(node->event);
  while (node->parent != nullptr && node->status == NaiveNode::DONE && node->childless()) {
    NaiveNode* above = node->parent;
    Erase(as_dir || node->parent != parent ? above->dirs : above->files, node);
    node = above;
  }
  return 0;
}

int NaiveTree::Redo(const Event& event) {
  const std::string path = event.m_path.str();
  const bool is_root = path == "/";
  NaiveNode* parent = is_root ? root_.get() : Parent(path, false);
  if (parent == nullptr) return -1;
  Nodes& nodes = event.isDir() ? parent->dirs : parent->files;
  NaiveNode* node = is_root ? root_.get() : Find(nodes, Name(path));
  if (node == nullptr) return -1;
  if (node->status != NaiveNode::PROCESSING && node->status != NaiveNode::RETRY) return -1;
  if (node->status == NaiveNode::PROCESSING) Refs(parent, node->server(), -1);
  node->status = NaiveNode::WAITING;
  if (is_root) return 0;
  ToEnd(nodes, node);
  for (NaiveNode* dir = parent; dir->parent != nullptr; dir = dir->parent) {
    ToEnd(dir->parent->dirs, dir);
  }
  return 0;
}

void NaiveTree::Clear() { *this = NaiveTree(); }

void NaiveTree::ClearLocal() {
  DropLocal(*root_);
  if (root_->status != NaiveNode::DONE && !root_->server()) {
    root_->status = NaiveNode::DONE;
    ClearAttribute(root_->event);
  }
  local_count_ = 0;
}

int NaiveTree::DropLocal(NaiveNode& dir) {
  int stayed = 0;
  for (size_t i = 0; i < dir.dirs.size();) {
    NaiveNode& child = *dir.dirs[i];
    const int below = DropLocal(child);
    if (!child.server()) Unblock(dir.files, child.name);
    if (below == 0 && !child.server()) {
      Erase(dir.dirs, &child);
      continue;
    }
    if (!child.server()) {
      child.status = NaiveNode::DONE;
      ClearAttribute(child.event);
    }
    stayed += below + 1;
    ++i;
  }
  for (size_t i = 0; i < dir.files.size();) {
    NaiveNode& file = *dir.files[i];
    if (file.server()) {
      ++stayed;
      ++i;
      continue;
    }
    Unblock(dir.dirs, file.name);
    Erase(dir.files, &file);
  }
  return stayed;
}

}  // namespace tolven::test

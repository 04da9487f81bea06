#include "client/event-node.h"

#include <functional>

namespace tolven {

namespace {

constexpr size_t kIndexedSize = 8;  // shorter lists are searched one by one

uint32_t HashName(std::string_view name) {
  const size_t hash = std::hash<std::string_view>{}(name);
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

}  // namespace

template <class Node>
EventChildList<Node>::~EventChildList() {
  for (EventNode* node = head_; node != nullptr;) {
    const std::unique_ptr<Node> owned(static_cast<Node*>(node));
    node = node->next_;
  }
}

template <class Node>
Node* EventChildList<Node>::Find(std::string_view name) const {
  if (index_.empty()) {
    for (EventNode* node = head_; node != nullptr; node = node->next_) {
      if (node->name == name) return static_cast<Node*>(node);
    }
    return nullptr;
  }
  const uint32_t hash = HashName(name);
  for (EventNode* node = index_[hash & (index_.size() - 1)]; node != nullptr; node = node->chain_) {
    if (node->hash_ == hash && node->name == name) return static_cast<Node*>(node);
  }
  return nullptr;
}

template <class Node>
void EventChildList<Node>::Append(std::unique_ptr<Node> node) {
  if (++size_ > kIndexedSize && size_ > index_.size()) BuildIndex(index_.empty() ? 32 : size_ * 2);
  Node& added = *node.release();
  LinkLast(added);
  if (!index_.empty()) {
    added.hash_ = HashName(added.name);
    AddToIndex(added);
  }
}

template <class Node>
void EventChildList<Node>::MoveToEnd(Node& node) {
  Unlink(node);
  LinkLast(node);
}

template <class Node>
std::unique_ptr<Node> EventChildList<Node>::Take(Node& node) {
  Unlink(node);
  --size_;
  if (!index_.empty()) {
    if (size_ == 0) {
      std::vector<EventNode*>().swap(index_);
    } else {
      RemoveFromIndex(node);
    }
  }
  return std::unique_ptr<Node>(&node);
}

template <class Node>
void EventChildList<Node>::LinkLast(EventNode& node) {
  node.order_ = ++last_order_;
  node.prev_ = tail_;
  node.next_ = nullptr;
  (tail_ != nullptr ? tail_->next_ : head_) = &node;
  tail_ = &node;
}

template <class Node>
void EventChildList<Node>::Unlink(EventNode& node) {
  (node.prev_ != nullptr ? node.prev_->next_ : head_) = node.next_;
  (node.next_ != nullptr ? node.next_->prev_ : tail_) = node.prev_;
}

template <class Node>
void EventChildList<Node>::AddToIndex(EventNode& node) {
  EventNode*& bucket = Bucket(node.hash_);
  node.chain_ = bucket;
  bucket = &node;
}

template <class Node>
void EventChildList<Node>::RemoveFromIndex(const EventNode& node) {
  EventNode** link = &Bucket(node.hash_);
  while (*link != &node) link = &(*link)->chain_;
  *link = node.chain_;
}

// Indexes all that the list holds.
template <class Node>
void EventChildList<Node>::BuildIndex(size_t buckets) {
  const bool hashed = !index_.empty();
  size_t rounded = 1;
  while (rounded < buckets) rounded *= 2;
  index_.assign(rounded, nullptr);
  for (EventNode* node = head_; node != nullptr; node = node->next_) {
    if (!hashed) node->hash_ = HashName(node->name);
    AddToIndex(*node);
  }
}

// Paths may be thousands of components deep, so that the sub-directories must not free each other
// by recursion: each one hands its own up before it goes.
EventDirNode::~EventDirNode() {
  std::vector<std::unique_ptr<EventDirNode>> pending;
  const auto take_all = [&pending](EventChildList<EventDirNode>& list) {
    while (!list.empty()) pending.push_back(list.Take(*list.first()));
  };
  take_all(dirs_);
  while (!pending.empty()) {
    const std::unique_ptr<EventDirNode> dir = std::move(pending.back());
    pending.pop_back();
    take_all(dir->dirs_);
  }
}

EventFileNode& EventDirNode::AddFile(std::string_view file_name) {
  auto owned = std::make_unique<EventFileNode>(file_name);
  EventFileNode& file = *owned;
  file.parent = this;
  files_.Append(std::move(owned));
  return file;
}

EventDirNode& EventDirNode::AddDir(std::string_view dir_name) {
  auto owned = std::make_unique<EventDirNode>(dir_name);
  EventDirNode& dir = *owned;
  dir.parent = this;
  dirs_.Append(std::move(owned));
  Relist(dir);
  return dir;
}

void EventDirNode::Remove(EventFileNode& file) {
  Unlist(file);
  files_.Take(file);
}

void EventDirNode::Remove(EventDirNode& dir) {
  Unlist(dir);
  dirs_.Take(dir);
}

void EventDirNode::MoveToEnd(EventFileNode& file) {
  Unlist(file);
  files_.MoveToEnd(file);
  Relist(file);
}

void EventDirNode::MoveToEnd(EventDirNode& dir) {
  Unlist(dir);
  dirs_.MoveToEnd(dir);
  Relist(dir);
}

void EventDirNode::Relist(EventFileNode& file) {
  const bool ready = file.status == EventStatus::WAITING && !file.attr.isTypeConflict();
  if (ready == (file.listed_ == EventNode::Listed::OPEN)) return;
  Unlist(file);
  if (!ready) return;
  ready_files_.insert(ready_files_.end(), &file);
  file.listed_ = EventNode::Listed::OPEN;
}

void EventDirNode::Relist(EventDirNode& dir) {
  auto target = EventNode::Listed::NOT;
  if (dir.status == EventStatus::DONE || (dir.status == EventStatus::WAITING && dir.isIdle())) {
    target = EventNode::Listed::OPEN;
  } else if (dir.status == EventStatus::WAITING && dir.attr.type == Event::EV_REMOVE) {
    target = EventNode::Listed::BLOCKED;
  }
  if (target == dir.listed_) return;
  Unlist(dir);
  if (target == EventNode::Listed::NOT) return;
  auto& set = target == EventNode::Listed::OPEN ? open_dirs_ : blocked_removals_;
  set.insert(set.end(), &dir);
  dir.listed_ = target;
}

void EventDirNode::Unlist(EventFileNode& file) {
  if (file.listed_ == EventNode::Listed::OPEN) ready_files_.erase(&file);
  file.listed_ = EventNode::Listed::NOT;
}

void EventDirNode::Unlist(EventDirNode& dir) {
  if (dir.listed_ == EventNode::Listed::OPEN) open_dirs_.erase(&dir);
  if (dir.listed_ == EventNode::Listed::BLOCKED) blocked_removals_.erase(&dir);
  dir.listed_ = EventNode::Listed::NOT;
}

EventFileNode* EventDirNode::FirstReadyFile() const {
  return ready_files_.empty() ? nullptr : *ready_files_.begin();
}

EventDirNode* EventDirNode::FirstOpenDir() const {
  return open_dirs_.empty() ? nullptr : *open_dirs_.begin();
}

std::vector<EventDirNode*> EventDirNode::BlockedRemovalsBefore(const EventDirNode* end) const {
  std::vector<EventDirNode*> found;
  for (EventDirNode* dir : blocked_removals_) {
    if (end != nullptr && end->order_ < dir->order_) break;
    found.push_back(dir);
  }
  return found;
}

template class EventChildList<EventFileNode>;
template class EventChildList<EventDirNode>;

}  // namespace tolven

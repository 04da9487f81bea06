// The nodes of the event tree. A directory lists its children in the order of their arrival, and
// beside that list keeps what the hand-out looks for, so that neither finding a name nor finding
// the next event costs more with more siblings:
// - an index of the names, once there are more than a few;
// - the files that may be handed out now;
// - the sub-directories at which a search for the next event stops: those without an event of
//   their own, which it enters, and those whose event may go or is held back by a file;
// - the removals that wait for something running below them, which a search passes by but marks.
// All three are ordered like the list. Relist() keeps a node where it belongs.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/event-attribute.h"

namespace tolven {

enum class EventStatus : uint8_t {
  WAITING = 0,     // holds an event that may be handed out
  PROCESSING = 1,  // its event is with a worker
  DONE = 2,        // holds no event; a directory that is there for its children
  RETRY = 3,       // a worker has the old event, a newer one was merged in meanwhile
};

class EventDirNode;

class EventNode {
 public:
  explicit EventNode(std::string_view name_of_node) : name(name_of_node) {}
  EventNode(const EventNode&) = delete;
  EventNode& operator=(const EventNode&) = delete;

  const std::string name;  // the last path component
  EventDirNode* parent = nullptr;
  EventAttribute attr;
  EventStatus status = EventStatus::DONE;

 private:
  friend class EventDirNode;
  template <class Node>
  friend class EventChildList;

  // Set that EventDirNode::Relist has put this node in.
  enum class Listed : uint8_t { NOT, OPEN, BLOCKED };

  Listed listed_ = Listed::NOT;
  uint32_t hash_ = 0;          // of the name, when the list has an index
  uint64_t order_ = 0;         // ascending along the list
  EventNode* prev_ = nullptr;  // along the list
  EventNode* next_ = nullptr;
  EventNode* chain_ = nullptr;  // within one bucket of the index
};

class EventFileNode : public EventNode {
 public:
  using EventNode::EventNode;
};

// A list of owned children that is searched by name. Not a container of its own: EventDirNode
// keeps its sets in step with it.
template <class Node>
class EventChildList {
 public:
  EventChildList() = default;
  EventChildList(const EventChildList&) = delete;
  EventChildList& operator=(const EventChildList&) = delete;
  ~EventChildList();

  bool empty() const { return size_ == 0; }
  Node* first() const { return static_cast<Node*>(head_); }
  static Node* Next(const Node& node) { return static_cast<Node*>(node.next_); }
  Node* Find(std::string_view name) const;

 private:
  friend class EventDirNode;

  void Append(std::unique_ptr<Node> node);
  void MoveToEnd(Node& node);
  std::unique_ptr<Node> Take(Node& node);

  void LinkLast(EventNode& node);
  void Unlink(EventNode& node);
  void AddToIndex(EventNode& node);
  void RemoveFromIndex(const EventNode& node);
  void BuildIndex(size_t buckets);
  EventNode*& Bucket(uint32_t hash) { return index_[hash & (index_.size() - 1)]; }

  EventNode* head_ = nullptr;
  EventNode* tail_ = nullptr;
  uint64_t last_order_ = 0;
  size_t size_ = 0;
  std::vector<EventNode*> index_;  // empty while the list is short; a power of two
};

class EventDirNode : public EventNode {
 public:
  using EventNode::EventNode;
  ~EventDirNode();

  EventFileNode& AddFile(std::string_view file_name);
  EventDirNode& AddDir(std::string_view dir_name);
  // Frees a child; a directory with all below it.
  void Remove(EventFileNode& file);
  void Remove(EventDirNode& dir);
  void MoveToEnd(EventFileNode& file);
  void MoveToEnd(EventDirNode& dir);

  // To be called after a change to the status, the flags or the counts of a child.
  void Relist(EventFileNode& file);
  void Relist(EventDirNode& dir);

  const EventChildList<EventFileNode>& files() const { return files_; }
  const EventChildList<EventDirNode>& dirs() const { return dirs_; }
  bool empty() const { return files_.empty() && dirs_.empty(); }

  // The first file that may be handed out, or null.
  EventFileNode* FirstReadyFile() const;
  // The first sub-directory that does not stay behind, or null.
  EventDirNode* FirstOpenDir() const;
  // The waiting removals in front of `end`, or all when it is null.
  std::vector<EventDirNode*> BlockedRemovalsBefore(const EventDirNode* end) const;

  int32_t& RefCount(bool server) { return server ? ref_server_ : ref_local_; }
  int32_t RefCount(bool server) const { return server ? ref_server_ : ref_local_; }
  bool isIdle() const { return ref_server_ == 0 && ref_local_ == 0; }

  // How many nodes below are with a worker for something other than a removal.
  int32_t running_changes = 0;

 private:
  struct ByOrder {
    bool operator()(const EventNode* a, const EventNode* b) const { return a->order_ < b->order_; }
  };
  template <class Node>
  using OrderedSet = std::set<Node*, ByOrder>;

  void Unlist(EventFileNode& file);
  void Unlist(EventDirNode& dir);

  int32_t ref_server_ = 0;  // events of that side with a worker, at or below this directory
  int32_t ref_local_ = 0;
  EventChildList<EventFileNode> files_;
  EventChildList<EventDirNode> dirs_;
  OrderedSet<EventFileNode> ready_files_;
  OrderedSet<EventDirNode> open_dirs_;
  OrderedSet<EventDirNode> blocked_removals_;
};

}  // namespace tolven

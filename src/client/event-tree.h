// The directories of an event tree: finding and making them, the counts of what is at work below
// each, and the walks that need no recursion, since a path may be thousands of components deep.
// Not locked: EventList2 holds its mutex around every call.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/event-node.h"

namespace tolven {

class EventTree {
 public:
  EventTree() { Clear(); }

  // The root is always there, and DONE while it has no event of its own.
  EventDirNode& root() { return *root_; }
  const EventDirNode& root() const { return *root_; }
  void Clear() { root_ = std::make_unique<EventDirNode>(std::string_view()); }

  // The directory with the components of `dir`; null when one is missing.
  EventDirNode* FindDir(std::string_view dir) const;
  // The same, making those that are missing, without an event.
  EventDirNode& MakeDir(std::string_view dir);

  // Counts an event that goes to a worker, or comes back, on `dir` and all above it.
  static void Acquire(EventDirNode& dir, const EventAttribute& attr) { Count(dir, attr, 1); }
  static void Release(EventDirNode& dir, const EventAttribute& attr) { Count(dir, attr, -1); }
  // Stops looking for a running event that left the tree without being released.
  static void ForgetRunning(EventDirNode& dir, const EventAttribute& attr);

  // Lets the node of that name go ahead, since the one of the other kind left.
  static void FreeDir(EventDirNode& parent, std::string_view name);
  static void FreeFile(EventDirNode& parent, std::string_view name);

  // Removes `dir`, when it has neither children nor an event, and what above it is then so, too.
  static void RemoveIdleUpwards(EventDirNode& dir);

  // Whether anything pending below is not a removal.
  static bool HasPendingChangeBelow(const EventDirNode& dir);
  // Whether a removal of the server, or one made locally, is pending on `path` or on anything above
  // it. For the local ones: or a folder above it is yet to be searched for what was removed in it.
  bool HasRemovalOnWay(std::string_view path, bool server) const;
  // Whether a pending event has taken the place of a server's.
  bool HasReplacedServerEvent() const;
  // Whether anything pending below `path` is the server's.
  bool HasServerEventBelow(std::string_view path) const;
  // Whether the server's event of the file `path` is pending.
  bool HasServerFileEvent(std::string_view path) const;
  // Whether the server's event of a file waits for a local one of the folder of the same name, or
  // the other way round.
  bool HasServerEventOfOtherKind(std::string_view path) const;
  // The next directory of the tree below `top`, parents first; null at the end.
  static const EventDirNode* NextBelow(const EventDirNode& top, const EventDirNode& dir);

  // The place of a node, built from the names on the way.
  static std::string PathOf(const EventNode& node);

 private:
  static void Count(EventDirNode& dir, const EventAttribute& attr, int32_t difference);

  std::unique_ptr<EventDirNode> root_;
};

// Visits the tree below `top` bottom up, the sub-directories of a directory before its files.
// `visit_files(dir)` tells how many files of `dir` stayed, `visit_dir(parent, child, stayed)` how
// much the child adds to what stayed below `parent`; it may free the child.
template <class VisitFiles, class VisitDir>
void VisitBottomUp(EventDirNode& top, VisitFiles visit_files, VisitDir visit_dir) {
  struct Level {
    EventDirNode* dir;
    EventDirNode* next_child;
    int stayed;
  };
  std::vector<Level> levels{{&top, top.dirs().first(), 0}};
  while (true) {
    Level& level = levels.back();
    if (level.next_child != nullptr) {
      EventDirNode* child = level.next_child;
      level.next_child = EventChildList<EventDirNode>::Next(*child);
      levels.push_back({child, child->dirs().first(), 0});
      continue;
    }
    EventDirNode& child = *level.dir;
    const int stayed = level.stayed + visit_files(child);
    levels.pop_back();
    if (levels.empty()) return;
    levels.back().stayed += visit_dir(*levels.back().dir, child, stayed);
  }
}

}  // namespace tolven

#include "client/event-sweep.h"

#include "client/event-log.h"

namespace tolven {

namespace {

using Files = EventChildList<EventFileNode>;

// The sweep below one removal.
class RemovalSweep {
 public:
  RemovalSweep(const EventAttribute& removal, EventCounters& counters)
      : server_(removal.isServer()), sync_id_(removal.syncID), counters_(counters) {}

  int VisitFiles(EventDirNode& dir) {
    int stayed = 0;
    for (EventFileNode* next = dir.files().first(); next != nullptr;) {
      EventFileNode& file = *next;
      next = Files::Next(file);
      if (IsVoid(file)) {
        EVENT_LOG_DEBUG("[Remove File Node] = [%s]\n", EventTree::PathOf(file));
        Forget(file);
        EventTree::FreeDir(dir, file.name);
        dir.Remove(file);
      } else {
        EVENT_LOG_DEBUG("[Cannot Remove File Node] = [%s]\n", EventTree::PathOf(file));
        ++stayed;
      }
    }
    return stayed;
  }

  int VisitDir(EventDirNode& parent, EventDirNode& child, int stayed) {
    const bool waits_in_vain = IsVoid(child);
    if (stayed == 0 && (child.status == EventStatus::DONE || waits_in_vain)) {
      EVENT_LOG_DEBUG("[Remove Dir Node] = [%s]\n", EventTree::PathOf(child));
      Forget(child);
      if (waits_in_vain) EventTree::FreeFile(parent, child.name);
      parent.Remove(child);
      return 0;
    }
    EVENT_LOG_DEBUG(
        "[Cannot Remove Dir Node] = [%s],refTemp = [%d],status = [%d], event_mode_equal[%d]\n",
        EventTree::PathOf(child), stayed, static_cast<int>(child.status),
        static_cast<int>(child.attr.isServer() == server_));
    if (waits_in_vain) {
      Forget(child);
      EventTree::FreeFile(parent, child.name);
      child.status = EventStatus::DONE;
      child.attr.Clear();
      parent.Relist(child);
    }
    return stayed + 1;
  }

  std::vector<std::string> TakeGonePaths() { return std::move(gone_); }

 private:
  bool IsVoid(const EventNode& node) const {
    return node.status == EventStatus::WAITING && node.attr.isServer() == server_ &&
           (!server_ || node.attr.syncID < sync_id_);
  }

  void Forget(const EventNode& node) {
    if (node.status == EventStatus::WAITING) {
      counters_.Add(server_, -1);
      gone_.emplace_back(node.attr.path());
    } else {
      gone_.push_back(EventTree::PathOf(node));
    }
  }

  const bool server_;
  const uint64_t sync_id_;
  EventCounters& counters_;
  std::vector<std::string> gone_;
};

int DropLocalFiles(EventDirNode& dir) {
  int stayed = 0;
  for (EventFileNode* next = dir.files().first(); next != nullptr;) {
    EventFileNode& file = *next;
    next = Files::Next(file);
    if (file.attr.isServer()) {
      ++stayed;
      continue;
    }
    if (file.status == EventStatus::PROCESSING) EventTree::ForgetRunning(dir, file.attr);
    EventTree::FreeDir(dir, file.name);
    dir.Remove(file);
  }
  return stayed;
}

int DropLocalDir(EventDirNode& parent, EventDirNode& child, int stayed) {
  const bool local = !child.attr.isServer();
  if (local) {
    if (child.status == EventStatus::PROCESSING) EventTree::ForgetRunning(parent, child.attr);
    EventTree::FreeFile(parent, child.name);
  }
  if (stayed == 0 && local) {
    EVENT_LOG_DEBUG("[Remove Dir Node] = [%s]\n", EventTree::PathOf(child));
    parent.Remove(child);
    return 0;
  }
  EVENT_LOG_DEBUG("[Cannot Remove Dir Node] = [%s],refTemp = [%d]\n", EventTree::PathOf(child),
                  stayed);
  if (local) {
    child.status = EventStatus::DONE;
    child.attr.Clear();
    parent.Relist(child);
  }
  return stayed + 1;
}

}  // namespace

std::vector<std::string> SweepBelowRemoval(EventDirNode& removed, EventCounters& counters) {
  RemovalSweep sweep(removed.attr, counters);
  VisitBottomUp(
      removed, [&sweep](EventDirNode& dir) { return sweep.VisitFiles(dir); },
      [&sweep](EventDirNode& parent, EventDirNode& child, int stayed) {
        return sweep.VisitDir(parent, child, stayed);
      });
  return sweep.TakeGonePaths();
}

void SweepLocalEvents(EventDirNode& root) {
  VisitBottomUp(root, DropLocalFiles, DropLocalDir);
  if (root.attr.isServer()) return;
  root.status = EventStatus::DONE;
  root.attr.Clear();
}

}  // namespace tolven

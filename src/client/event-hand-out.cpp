#include "client/event-hand-out.h"

#include "client/event-log.h"
#include "client/event-path.h"

namespace tolven {

namespace {

// Gives the node's event to a worker; `holder` is its directory, or the root itself.
void HandOut(EventNode& node, EventDirNode& holder, Event& out) {
  node.status = EventStatus::PROCESSING;
  EventTree::Acquire(holder, node.attr);
  node.attr.ToEvent(out);
}

int HandOutRoot(EventDirNode& root, Event& out) {
  if (root.attr.type == Event::EV_EMPTY) return -1;
  HandOut(root, root, out);
  EVENT_LOG_DEBUG("[Pop Event] = ['/', %llu, %s]\n", root.attr.syncID,
                  Event::TypeText(root.attr.type));
  return 0;
}

// A removal that would destroy pending work: what it leaves behind has to be looked at again.
void MarkRemovalOfPending(EventDirNode& dir) {
  if (dir.attr.type != Event::EV_REMOVE || !EventTree::HasPendingChangeBelow(dir)) return;
  if (dir.attr.isServer()) {
    dir.attr.mode |= Event::F_SERVER_SUBDIR_RESCAN_STAT;
    EVENT_LOG_DEBUG("Mark node to be SetServerSubDirRescanWithStat(sub-node not empty) [%s].\n",
                    dir.attr.path());
  } else {
    dir.attr.mode |= Event::F_LOCAL_SUBDIR_RESCAN_STAT;
    EVENT_LOG_DEBUG("Mark node to be SetLocalSubDirRescanWithStat(sub-node not empty) [%s].\n",
                    dir.attr.path());
  }
}

// A removal that waits while the other side changes something below it.
void MarkBlockedRemoval(EventDirNode& dir) {
  const bool server = dir.attr.isServer();
  if (dir.running_changes == 0 || dir.RefCount(!server) == 0) return;
  if (server) {
    dir.attr.mode |= Event::F_SERVER_SUBDIR_RESCAN_STAT;
    EVENT_LOG_DEBUG("Mark node to be SetServerSubDirRescanWithStat(sub-node processing) [%s].\n",
                    dir.attr.path());
  } else {
    dir.attr.mode |= Event::F_LOCAL_SUBDIR_RESCAN_STAT;
    EVENT_LOG_DEBUG("Mark node to be SetLocalSubDirRescanWithStat(sub-node processing) [%s].\n",
                    dir.attr.path());
  }
}

int HandOutFile(EventDirNode& dir, EventFileNode& file, Event& out) {
  HandOut(file, dir, out);
  dir.Relist(file);
  EVENT_LOG_DEBUG("[Pop File Event] = [%s]\n", out.m_path);
  return 0;
}

int HandOutDir(EventDirNode& parent, EventDirNode& dir, Event& out) {
  MarkRemovalOfPending(dir);
  HandOut(dir, parent, out);
  parent.Relist(dir);
  EVENT_LOG_DEBUG("[Pop Dir Event] = [%s]\n", out.m_path);
  return 0;
}

int HandOutFirstWaiting(EventDirNode& top, Event& out) {
  EventDirNode* dir = &top;
  while (true) {
    if (EventFileNode* file = dir->FirstReadyFile()) return HandOutFile(*dir, *file, out);
    EventDirNode* next = dir->FirstOpenDir();
    for (EventDirNode* passed : dir->BlockedRemovalsBefore(next)) MarkBlockedRemoval(*passed);
    if (next == nullptr) return -1;
    if (next->status == EventStatus::WAITING && !next->attr.isTypeConflict()) {
      return HandOutDir(*dir, *next, out);
    }
    dir = next;
  }
}

}  // namespace

int HandOutNext(EventTree& tree, Event& out) {
  EventDirNode& root = tree.root();
  if (root.status == EventStatus::WAITING) return HandOutRoot(root, out);
  if (root.status == EventStatus::DONE) return HandOutFirstWaiting(root, out);
  return -1;
}

int HandOutRetry(EventTree& tree, std::string_view path, NodeKinds kinds, Event& out) {
  if (path == "/") {
    EventDirNode& root = tree.root();
    return root.status == EventStatus::RETRY ? HandOutRoot(root, out) : -1;
  }
  SplitPath split;
  if (!BaseName(path, split)) return -1;
  EventDirNode* parent = tree.FindDir(split.dir);
  if (parent == nullptr) return -1;
  EventDirNode* dir = kinds.dirs ? parent->dirs().Find(split.name) : nullptr;
  if (dir != nullptr && dir->status == EventStatus::RETRY) {
    HandOut(*dir, *parent, out);
    return 0;
  }
  EventFileNode* file = kinds.files ? parent->files().Find(split.name) : nullptr;
  if (file == nullptr || file->status != EventStatus::RETRY) return -1;
  HandOut(*file, *parent, out);
  return 0;
}

}  // namespace tolven

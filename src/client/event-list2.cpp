#include "client/event-list2.h"

#include <string>
#include <utility>
#include <vector>

#include "client/event-completion.h"
#include "client/event-dump.h"
#include "client/event-hand-out.h"
#include "client/event-log.h"
#include "client/event-merge.h"
#include "client/event-path.h"
#include "client/event-sweep.h"
#include "lib/file-status-db.h"

namespace tolven {

void EventList2::SetWatchPath(const ustring& path) {
  MutexLock lock(mutex_);
  watch_path_ = path;
}

int EventList2::Push(const Event& event) {
  EVENT_LOG_DEBUG("Push Event = [%s]\n", event.toString());
  MutexLock lock(mutex_);
  return PushLocked(event, nullptr);
}

int EventList2::Push(const Event& event, Event& old) {
  MutexLock lock(mutex_);
  return PushLocked(event, &old);
}

int EventList2::PushLocked(const Event& event, Event* old) {
  Attribute arrival(event);
  const bool is_dir = event.isDir();
  if (old != nullptr) old->clear();
  const std::string_view path = arrival.path();
  if (path == "/") return AddRoot(std::move(arrival), old);
  SplitPath split;
  if (!BaseName(path, split)) return -1;
  DirNode& parent = tree_.MakeDir(split.dir);
  if (is_dir) {
    AddDirectoryNode(parent, split.name, std::move(arrival), old);
  } else {
    AddFileNode(parent, split.name, std::move(arrival), old);
  }
  return 0;
}

// The root's event is never swept for and sweeps nothing.
int EventList2::AddRoot(Attribute arrival, Event* old) {
  DirNode& root = tree_.root();
  if (root.status != DONE) {
    MergeInto(root, root, std::move(arrival), old);
    return 0;
  }
  // Handing out an unset event of the root would never succeed, and nothing else could leave.
  if (arrival.type == Event::EV_EMPTY) return -1;
  MergeInto(root, root, std::move(arrival), nullptr);
  return 0;
}

void EventList2::AddFileNode(DirNode& parent, std::string_view name, Attribute arrival,
                             Event* old) {
  FileNode* file = parent.files().Find(name);
  if (file == nullptr) {
    const DirNode* dir = parent.dirs().Find(name);
    file = &parent.AddFile(name);
    if (dir != nullptr && dir->status != DONE && !dir->attr.isTypeConflict()) {
      arrival.mode |= F_FILE_TYPE_CONFLICT;
    }
  }
  MergeInto(*file, parent, std::move(arrival), old);
  parent.Relist(*file);
}

void EventList2::AddDirectoryNode(DirNode& parent, std::string_view name, Attribute arrival,
                                  Event* old) {
  DirNode* dir = parent.dirs().Find(name);
  if (dir == nullptr) {
    const FileNode* file = parent.files().Find(name);
    dir = &parent.AddDir(name);
    if (file != nullptr && file->status != DONE && !file->attr.isTypeConflict()) {
      arrival.mode |= F_FILE_TYPE_CONFLICT;
    }
  }
  MergeInto(*dir, parent, std::move(arrival), old);
  parent.Relist(*dir);
  if (dir->attr.type == Event::EV_REMOVE) RemoveSubNode(*dir);
}

void EventList2::MergeInto(EventNode& node, DirNode& holder, Attribute arrival, Event* old) {
  if (old != nullptr) node.attr.ToEvent(*old);
  if (node.status == DONE) {
    node.attr = std::move(arrival);
  } else {
    if (node.status == PROCESSING) EventTree::Release(holder, node.attr);
    counters_.Add(node.attr.isServer(), -1);
    const EventMerge merge = MergeEvents(node.attr, arrival);
    if (!merge.keep_old) node.attr = std::move(arrival);
    node.attr.mode = merge.mode;
  }
  node.status = node.status == PROCESSING || node.status == RETRY ? RETRY : WAITING;
  counters_.Add(node.attr.isServer(), 1);
}

// What is swept was reported as syncing when it was pushed; now nothing will end it.
void EventList2::RemoveSubNode(DirNode& removed) {
  std::vector<ustring> keys;
  for (const std::string& path : SweepBelowRemoval(removed, counters_)) {
    keys.push_back(FileStatusKey(watch_path_, path));
  }
  if (keys.empty() || FileStatusDB::rmFileStatByPaths(keys) == 0) return;
  for (const ustring& key : keys) {
    EVENT_LOG_ERROR("Failed to rm synced event from FStatDB [%s].\n", key);
  }
}

int EventList2::Pop(Event& out) {
  MutexLock lock(mutex_);
  return HandOutNext(tree_, out);
}

int EventList2::Pop(const ustring& path, Event& out) { return PopRetry(path, true, true, out); }

int EventList2::Pop(const ustring& path, bool is_dir, Event& out) {
  return PopRetry(path, is_dir, !is_dir, out);
}

int EventList2::PopRetry(const ustring& path, bool dirs, bool files, Event& out) {
  MutexLock lock(mutex_);
  EVENT_LOG_DEBUG("Pop by path [%s], server_event_count = [%d], local_event_count = [%d]\n", path,
                  GetServerEventCount(), GetLocalEventCount());
  return HandOutRetry(tree_, path.view(), {dirs, files}, out);
}

int EventList2::DoneEvent(const Event& event) {
  MutexLock lock(mutex_);
  const int result = FinishEvent(tree_, counters_, event);
  EVENT_LOG_DEBUG("DoneEvent [%s] = [%d], server_event_count = [%d], local_event_count = [%d]\n",
                  event.m_path, result, GetServerEventCount(), GetLocalEventCount());
  return result;
}

int EventList2::Redo(const Event& event) {
  MutexLock lock(mutex_);
  return RequeueEvent(tree_, event);
}

void EventList2::Clear() {
  MutexLock lock(mutex_);
  tree_.Clear();
  counters_.Reset(true);
  counters_.Reset(false);
}

void EventList2::ClearLocalEvent() {
  MutexLock lock(mutex_);
  EVENT_LOG_DEBUG("========RemoveLocalEvent=========\n");
  SweepLocalEvents(tree_.root());
  counters_.Reset(false);
}

bool EventList2::HasLocalRemoval(const ustring& path) const {
  MutexLock lock(mutex_);
  return tree_.HasRemovalOnWay(path.view(), false);
}

bool EventList2::HasServerRemoval(const ustring& path) const {
  MutexLock lock(mutex_);
  return tree_.HasRemovalOnWay(path.view(), true);
}

bool EventList2::HasServerEventBelow(const ustring& path) const {
  MutexLock lock(mutex_);
  return tree_.HasServerEventBelow(path.view());
}

bool EventList2::HasReplacedServerEvent() const {
  MutexLock lock(mutex_);
  return tree_.HasReplacedServerEvent();
}

bool EventList2::HasServerFileEvent(const ustring& path) const {
  MutexLock lock(mutex_);
  return tree_.HasServerFileEvent(path.view());
}

bool EventList2::HasServerEventOfOtherKind(const ustring& path) const {
  MutexLock lock(mutex_);
  return tree_.HasServerEventOfOtherKind(path.view());
}

void EventList2::TraverseTree() const {
  MutexLock lock(mutex_);
  LogTraversal(tree_, GetServerEventCount(), GetLocalEventCount());
}

void EventList2::Print() const {
  MutexLock lock(mutex_);
  LogOutline(tree_);
}

}  // namespace tolven

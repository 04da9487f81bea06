// The pending events of one session, as a tree shaped like the folder, with at most one event per
// path. A new event is merged at once with what is pending on its path, so that the tree always
// holds the net effect. It then decides what may leave: a directory's own event before what is
// below it, never while something below it is with a worker, and no path twice.
//
// A call takes the tree's mutex for its whole length, and a push or a sweep may write the file
// status database meanwhile; only the three that tell counters never wait for it. Results are 0,
// or -1 for what was refused.
#pragma once

#include <cstdint>

#include "client/event-attribute.h"
#include "client/event-counters.h"
#include "client/event-tree.h"
#include "client/event.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class EventList2 {
 public:
  using Status = EventStatus;
  using enum EventStatus;
  using Attribute = EventAttribute;
  using FileNode = EventFileNode;
  using DirNode = EventDirNode;
  enum : uint32_t { F_FORCE = EVENT_F_FORCE, F_FILE_TYPE_CONFLICT = EVENT_F_FILE_TYPE_CONFLICT };

  EventList2() = default;
  EventList2(const EventList2&) = delete;
  EventList2& operator=(const EventList2&) = delete;

  // The session's local root, from which the keys of the file status database are made.
  void SetWatchPath(const ustring& path);

  // Merges an event into the tree. `old` becomes what the path held before, or an empty event.
  // -1: the path ends in "/"; the event is lost.
  int Push(const Event& event);
  int Push(const Event& event, Event& old);

  // Hands out the next event, to be given back with DoneEvent or Redo. -1: none may go now.
  int Pop(Event& out);
  // Hands out what was merged onto `path` while a worker had it. -1: nothing was.
  int Pop(const ustring& path, Event& out);
  // The same for one kind of node, where a file and a directory may share the path.
  int Pop(const ustring& path, bool is_dir, Event& out);

  // Ends an event that was handed out. -1, changing nothing, when its path has no such event at
  // work, as after a merge.
  int DoneEvent(const Event& event);
  // Gives back an event that was handed out, or merged onto meanwhile, to wait again, behind its
  // neighbours at every level. -1, changing nothing, when it is in no such state.
  int Redo(const Event& event);

  void Clear();
  // Drops every local event, those with workers too.
  void ClearLocalEvent();

  // Whether a removal made here, or one of the server, is pending for `path` or for a folder above
  // it.
  bool HasLocalRemoval(const ustring& path) const;
  bool HasServerRemoval(const ustring& path) const;
  // Whether a local event is pending that took the place of a server's.
  bool HasReplacedServerEvent() const;
  // Whether a change of the server is pending for something below `path`.
  bool HasServerEventBelow(const ustring& path) const;
  // Whether one is for the file `path`.
  bool HasServerFileEvent(const ustring& path) const;
  // Whether one for a file waits until the event of the folder `path` has ended, or the other way
  // round.
  bool HasServerEventOfOtherKind(const ustring& path) const;

  bool IsEmpty() const { return counters_.AreZero(); }
  int32_t GetServerEventCount() const { return counters_.Get(true); }
  int32_t GetLocalEventCount() const { return counters_.Get(false); }

  // Write the tree to the log, one line for each node.
  void TraverseTree() const;
  void Print() const;

 private:
  friend struct EventList2Peer;  // lets tests look at the nodes

  int PushLocked(const Event& event, Event* old) REQUIRES(mutex_);
  int AddRoot(Attribute arrival, Event* old) REQUIRES(mutex_);
  void AddFileNode(DirNode& parent, std::string_view name, Attribute arrival, Event* old)
      REQUIRES(mutex_);
  void AddDirectoryNode(DirNode& parent, std::string_view name, Attribute arrival, Event* old)
      REQUIRES(mutex_);
  // Steps that files, directories and the root share; `holder` counts the node's running event.
  void MergeInto(EventNode& node, DirNode& holder, Attribute arrival, Event* old) REQUIRES(mutex_);
  void RemoveSubNode(DirNode& removed) REQUIRES(mutex_);

  int PopRetry(const ustring& path, bool dirs, bool files, Event& out);

  mutable Mutex mutex_;  // before the one inside counters_
  EventTree tree_ GUARDED_BY(mutex_);
  ustring watch_path_ GUARDED_BY(mutex_);
  EventCounters counters_;
};

}  // namespace tolven

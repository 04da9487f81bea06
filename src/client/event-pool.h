// The pending work of one session: its changes as a tree, and the directory walks, which wait until
// no change can leave. EventManager keeps one for each session that ever had an event, and its
// m_lock guards everything here but the counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>

#include "client/event-list2.h"
#include "client/event.h"
#include "ustring/ustring.h"

namespace tolven {

class event_pool {
 public:
  // `pool_generation` tells this pool from an earlier one of the same session.
  explicit event_pool(const ustring& local_path, uint64_t pool_generation = 0);

  // -1: the event says nothing, is a walk of a file, or the tree refused it; it is lost. `before`
  // becomes the change that the path held, or an empty event.
  int push(const Event& event, Event& before);
  // 1 with an event, 0 without.
  int pop(Event& out);
  // Lets a walk that was popped be the next one, unless the same one is queued.
  void return_expand(const Event& event);
  void clear();

  // Walks and changes, also those changes that are with a task.
  size_t size() const;
  bool is_empty() const { return event_tree.IsEmpty() && expand_events.empty(); }
  // These two may be called without m_lock.
  int32_t get_server_event_count() const { return event_tree.GetServerEventCount(); }
  int32_t get_local_event_count() const { return event_tree.GetLocalEventCount(); }

  EventList2 event_tree;
  std::list<Event> expand_events;
  bool is_in_ready_queue = false;
  const uint64_t generation;
};

}  // namespace tolven

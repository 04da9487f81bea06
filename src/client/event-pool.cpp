#include "client/event-pool.h"

#include <algorithm>

#include "client/event-manager-log.h"

namespace tolven {

event_pool::event_pool(const ustring& local_path, uint64_t pool_generation)
    : generation(pool_generation) {
  event_tree.SetWatchPath(local_path);
}

int event_pool::push(const Event& event, Event& before) {
  before = Event();
  if (!event.isValid()) return -1;
  if (!event.isExpand()) return event_tree.Push(event, before);
  if (!event.isDir()) return -1;
  Event walk = event;
  if (walk.isRescan() && walk.m_path == "/") {
    // It will come by wherever the others would have gone, and must be as careful as they.
    EVENT_MGR_INFO("Merging expand event.\n");
    for (const Event& dropped : expand_events) {
      if (dropped.isRescan() && dropped.isMerge()) walk.setMerge();
    }
    expand_events.clear();
  }
  EVENT_MGR_DEBUG("Push expand event [%s].\n", walk.toString());
  expand_events.push_back(std::move(walk));
  return 0;
}

int event_pool::pop(Event& out) {
  if (!event_tree.IsEmpty() && event_tree.Pop(out) == 0) {
    EVENT_MGR_DEBUG("event_pool: Pop an event [%s]\n", out.toString());
    return 1;
  }
  if (expand_events.empty()) return 0;
  out = std::move(expand_events.front());
  expand_events.pop_front();
  EVENT_MGR_DEBUG("event_pool: Pop an expand event [%s]\n", out.toString());
  return 1;
}

void event_pool::return_expand(const Event& event) {
  const auto same = [&event](const Event& queued) {
    return queued.m_path == event.m_path && queued.m_mode == event.m_mode;
  };
  if (std::none_of(expand_events.begin(), expand_events.end(), same)) {
    expand_events.push_front(event);
  }
}

void event_pool::clear() {
  event_tree.Clear();
  expand_events.clear();
}

size_t event_pool::size() const {
  return static_cast<size_t>(get_local_event_count()) +
         static_cast<size_t>(get_server_event_count()) + expand_events.size();
}

}  // namespace tolven

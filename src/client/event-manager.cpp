#include "client/event-manager.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "client/event-manager-log.h"

namespace tolven {

namespace {

bool IsAtOrAbove(std::string_view folder, std::string_view path) {
  if (folder.empty() || folder == "/") return true;
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

EventManager& EventManager::getInstance() {
  static EventManager instance;
  return instance;
}

EventManager::EventManager(FindLocalPath find_local_path)
    : find_local_path_(std::move(find_local_path)) {}

void EventManager::SetSessionLookup(FindLocalPath find_local_path) {
  MutexLock lock(m_lock);
  find_local_path_ = std::move(find_local_path);
}

int EventManager::PullEvent(Task* task, Event& out) {
  MutexLock lock(m_lock);
  if (ready_queue.empty()) return -1;
  event_pool& pool = *ready_queue.front();
  ready_queue.pop_front();
  pool.is_in_ready_queue = false;
  const bool found = pool.pop(out) == 1;
  if (found) {
    registry[task] = {out, Event(), pool.generation};
    EVENT_MGR_DEBUG("EventManager::PullEvent [%s]\n", out.toString());
  }
  // Events that are with tasks keep the pool in the round: what they hold back goes after them.
  if (pool.size() != 0) MakeReady(pool);
  return found ? 0 : -1;
}

std::size_t EventManager::GetReadyCount() {
  MutexLock lock(m_lock);
  return ready_queue.size();
}

int EventManager::DoneEvent(Task* task, Event& inout) {
  {
    MutexLock lock(m_lock);
    if (DoneLocked(task, inout) != 0) return -1;
  }
  // What the event held back may go now.
  work_.Notify();
  return 0;
}

int EventManager::DoneLocked(Task* task, Event& inout) {
  const auto found = registry.find(task);
  if (found == registry.end()) return 0;
  registry_entry_t& entry = found->second;
  // A walk was never in the tree.
  event_pool* pool = entry.processing.isExpand() ? nullptr : FindPool(entry);
  if (!entry.is_dirty()) {
    EVENT_MGR_DEBUG("EventManager::DoneEvent unregistry for [%s]\n", entry.processing.toString());
  } else {
    EVENT_MGR_DEBUG("EventManager::DoneEvent is dirty, waiting for [%s]\n",
                    entry.waiting.toString());
    if (pool != nullptr &&
        pool->event_tree.Pop(entry.processing.m_path, entry.processing.isDir(), inout) == 0) {
      entry.processing = inout;
      entry.waiting.clear();
      return -1;
    }
  }
  if (pool != nullptr) pool->event_tree.DoneEvent(entry.processing);
  registry.erase(found);
  return 0;
}

int EventManager::RedoEvent(Task* task, const Event& event) {
  MutexLock lock(m_lock);
  const int result = RedoLocked(task, event);
  registry.erase(task);
  EVENT_MGR_DEBUG("EventManager::RedoEvent = [%s], ret= [%d]\n", event.toString(), result);
  return result;
}

int EventManager::WaitForWork(Task* task, uint64_t seen, unsigned seconds) {
  constexpr std::chrono::milliseconds kStep(100);
  for (std::chrono::milliseconds left = std::chrono::seconds(seconds); left > kStep.zero();
       left -= kStep) {
    if (task->GetState() != Task::RUN) return -1;
    if (work_.WaitFor(seen, kStep)) return 0;
  }
  return 0;
}

int EventManager::RedoLocked(Task* task, const Event& event) {
  const auto found = registry.find(task);
  event_pool* pool = FindPool(event.m_sess_id);
  const bool replaced = pool != nullptr && found != registry.end() &&
                        found->second.pool_generation != pool->generation;
  if (pool == nullptr || replaced) {
    EVENT_MGR_ERROR("Can not find event pool\n");
    return -1;
  }
  if (event.isExpand()) {
    pool->return_expand(event);
  } else if (pool->event_tree.Redo(event) != 0) {
    EVENT_MGR_ERROR("Failed to Reset event status to watting in event tree '%s'.\n", event.m_path);
    return -1;
  }
  MakeReady(*pool);
  return 0;
}

int32_t EventManager::GetPendingServerEvent(uint64_t sess_id) {
  MutexLock lock(m_pool_index_lock);
  const auto found = pool_counter_index.find(sess_id);
  const int32_t count =
      found == pool_counter_index.end() ? 0 : found->second->get_server_event_count();
  EVENT_MGR_DEBUG("Pending server events of session [%llu] = [%d]\n", sess_id, count);
  return count;
}

int32_t EventManager::GetAllPendingEventCount(uint64_t sess_id) {
  MutexLock lock(m_pool_index_lock);
  int32_t count = 0;
  const auto found = pool_counter_index.find(sess_id);
  if (found != pool_counter_index.end()) {
    count = found->second->get_server_event_count() + found->second->get_local_event_count();
  }
  EVENT_MGR_DEBUG("Pending events of session [%llu] = [%d]\n", sess_id, count);
  return count;
}

// What a task has may have been replaced in the tree.
bool EventManager::IsRemovalWithTask(uint64_t sess_id, const ustring& path, bool server) {
  for (const auto& [task, entry] : registry) {
    const Event& event = entry.processing;
    if (event.m_type == Event::EV_REMOVE && event.isServerEvent() == server &&
        event.m_sess_id == sess_id && IsAtOrAbove(event.m_path.view(), path.view())) {
      return true;
    }
  }
  return false;
}

bool EventManager::IsLocalRemovalPending(uint64_t sess_id, const ustring& path) {
  MutexLock lock(m_lock);
  if (IsRemovalWithTask(sess_id, path, false)) return true;
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && pool->event_tree.HasLocalRemoval(path);
}

bool EventManager::IsServerRemovalPending(uint64_t sess_id, const ustring& path) {
  MutexLock lock(m_lock);
  if (IsRemovalWithTask(sess_id, path, true)) return true;
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && pool->event_tree.HasServerRemoval(path);
}

bool EventManager::IsServerFileEventPending(uint64_t sess_id, const ustring& path) {
  MutexLock lock(m_lock);
  for (const auto& [task, entry] : registry) {
    const Event& event = entry.processing;
    if (event.isServerEvent() && event.m_sess_id == sess_id && event.m_path == path) return true;
  }
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && pool->event_tree.HasServerFileEvent(path);
}

bool EventManager::IsServerEventPendingBelow(uint64_t sess_id, const ustring& path) {
  MutexLock lock(m_lock);
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && pool->event_tree.HasServerEventBelow(path);
}

bool EventManager::IsServerEventBehind(uint64_t sess_id, const ustring& path) {
  MutexLock lock(m_lock);
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && (pool->event_tree.HasServerEventBelow(path) ||
                             pool->event_tree.HasServerEventOfOtherKind(path));
}

bool EventManager::IsReplacedServerEventPending(uint64_t sess_id) {
  MutexLock lock(m_lock);
  event_pool* const pool = FindPool(sess_id);
  return pool != nullptr && pool->event_tree.HasReplacedServerEvent();
}

void EventManager::CountUnappliedServerEvent(uint64_t sess_id) {
  MutexLock lock(m_pool_index_lock);
  ++unapplied_[sess_id];
}

uint64_t EventManager::GetUnappliedServerEventCount(uint64_t sess_id) {
  MutexLock lock(m_pool_index_lock);
  const auto found = unapplied_.find(sess_id);
  return found == unapplied_.end() ? 0 : found->second;
}

void EventManager::Clear() {
  MutexLock lock(m_lock);
  MutexLock index_lock(m_pool_index_lock);
  for (const auto& [sess_id, pool] : pool_index) CountDropped(sess_id, *pool);
  ready_queue.clear();
  registry.clear();
  pool_counter_index.clear();
  pool_index.clear();
}

void EventManager::ClearSessionEventPool(uint64_t sess_id) {
  MutexLock lock(m_lock);
  std::unique_ptr<event_pool> pool;
  {
    MutexLock index_lock(m_pool_index_lock);
    const auto found = pool_index.find(sess_id);
    if (found == pool_index.end()) return;
    pool = std::move(found->second);
    CountDropped(sess_id, *pool);
    pool->clear();
    pool_index.erase(found);
    pool_counter_index.erase(sess_id);
  }
  std::erase(ready_queue, pool.get());
}

void EventManager::CountDropped(uint64_t sess_id, const event_pool& pool) {
  const int32_t dropped = pool.get_server_event_count();
  if (dropped > 0) unapplied_[sess_id] += static_cast<uint64_t>(dropped);
}

event_pool* EventManager::FindPool(const registry_entry_t& entry) {
  event_pool* pool = FindPool(entry.processing.m_sess_id);
  return pool != nullptr && pool->generation == entry.pool_generation ? pool : nullptr;
}

event_pool* EventManager::FindPool(uint64_t sess_id) {
  const auto found = pool_index.find(sess_id);
  return found == pool_index.end() ? nullptr : found->second.get();
}

void EventManager::MakeReady(event_pool& pool) {
  if (pool.is_in_ready_queue) return;
  pool.is_in_ready_queue = true;
  ready_queue.push_back(&pool);
}

}  // namespace tolven

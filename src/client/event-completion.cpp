#include "client/event-completion.h"

#include "client/event-log.h"
#include "client/event-path.h"

namespace tolven {

namespace {

// Why an event cannot be ended.
enum class Refusal { NONE, NO_PARENT, NO_NODE, OTHER_SIDE, NOT_PROCESSING };

Refusal CheckNode(const EventNode* node, const Event& event) {
  if (node == nullptr) return Refusal::NO_NODE;
  if (node->attr.isServer() != event.isServerEvent()) return Refusal::OTHER_SIDE;
  if (node->status != EventStatus::PROCESSING) return Refusal::NOT_PROCESSING;
  return Refusal::NONE;
}

int FinishRoot(EventDirNode& root, EventCounters& counters, const Event& event) {
  switch (CheckNode(&root, event)) {
    case Refusal::OTHER_SIDE:
      EVENT_LOG_WARNING("Failed to UpdateRoot(attr mode is different) [%s].\n", event.m_path);
      return -1;
    case Refusal::NOT_PROCESSING:
      EVENT_LOG_WARNING("Failed to UpdateRoot (NOT PROCESSING) [%s] in status[%d].\n", event.m_path,
                        static_cast<int>(root.status));
      return -1;
    default:
      break;
  }
  root.status = EventStatus::DONE;
  EventTree::Release(root, root.attr);
  root.attr.Clear();
  counters.Add(event.isServerEvent(), -1);
  return 0;
}

int RefuseFile(Refusal refusal, const EventNode* file, const Event& event) {
  switch (refusal) {
    case Refusal::NO_PARENT:
      EVENT_LOG_ERROR("Failed to UpdateFileDoneEvent(parent not found) [%s]\n", event.m_path);
      break;
    case Refusal::NO_NODE:
      EVENT_LOG_ERROR("Failed to UpdateFileDoneEvent(FileNode not found) [%s].\n", event.m_path);
      break;
    case Refusal::OTHER_SIDE:
      EVENT_LOG_ERROR("Failed to UpdateFileDoneEvent(attr mode is diff) [%s].\n", event.m_path);
      break;
    default:
      EVENT_LOG_ERROR("Failed to UpdateFileDoneEvent(NOT PROCESSING) [%s] in status[%d].\n",
                      event.m_path, static_cast<int>(file->status));
  }
  return -1;
}

int RefuseDir(Refusal refusal, const EventNode* dir, const Event& event) {
  switch (refusal) {
    case Refusal::NO_PARENT:
      EVENT_LOG_DEBUG("Failed to UpdateDirDoneEvent(parent not found) [%s]\n", event.m_path);
      break;
    case Refusal::NO_NODE:
      EVENT_LOG_DEBUG("Failed to UpdateDirDoneEvent(DirNode not found) [%s].\n", event.m_path);
      break;
    case Refusal::OTHER_SIDE:
      EVENT_LOG_DEBUG("Failed to UpdateDirDoneEvent(attr mode is diff) [%s].\n", event.m_path);
      break;
    default:
      EVENT_LOG_DEBUG("Failed to UpdateDirDoneEvent(NOT PROCESSING) [%s] in status[%d].\n",
                      event.m_path, static_cast<int>(dir->status));
  }
  return -1;
}

int FinishFile(EventDirNode* parent, std::string_view name, EventCounters& counters,
               const Event& event) {
  if (parent == nullptr) return RefuseFile(Refusal::NO_PARENT, nullptr, event);
  EventFileNode* file = parent->files().Find(name);
  const Refusal refusal = CheckNode(file, event);
  if (refusal != Refusal::NONE) return RefuseFile(refusal, file, event);
  EventTree::Release(*parent, file->attr);
  EventTree::FreeDir(*parent, name);
  counters.Add(event.isServerEvent(), -1);
  parent->Remove(*file);
  EventTree::RemoveIdleUpwards(*parent);
  return 0;
}

int FinishDir(EventDirNode* parent, std::string_view name, EventCounters& counters,
              const Event& event) {
  if (parent == nullptr) return RefuseDir(Refusal::NO_PARENT, nullptr, event);
  EventDirNode* dir = parent->dirs().Find(name);
  const Refusal refusal = CheckNode(dir, event);
  if (refusal != Refusal::NONE) return RefuseDir(refusal, dir, event);
  EventTree::Release(*parent, dir->attr);
  EventTree::FreeFile(*parent, name);
  counters.Add(event.isServerEvent(), -1);
  dir->status = EventStatus::DONE;
  dir->attr.Clear();
  parent->Relist(*dir);
  EventTree::RemoveIdleUpwards(*dir);
  return 0;
}

// Lets a node that a worker has wait again; `holder` counts it while it runs.
bool Requeue(EventNode* node, EventDirNode& holder) {
  if (node == nullptr) return false;
  if (node->status != EventStatus::PROCESSING && node->status != EventStatus::RETRY) return false;
  if (node->status == EventStatus::PROCESSING) EventTree::Release(holder, node->attr);
  node->status = EventStatus::WAITING;
  return true;
}

}  // namespace

int FinishEvent(EventTree& tree, EventCounters& counters, const Event& event) {
  if (event.m_path == "/") return FinishRoot(tree.root(), counters, event);
  SplitPath split;
  if (!BaseName(event.m_path.view(), split)) return -1;
  EventDirNode* parent = tree.FindDir(split.dir);
  return event.isDir() ? FinishDir(parent, split.name, counters, event)
                       : FinishFile(parent, split.name, counters, event);
}

int RequeueEvent(EventTree& tree, const Event& event) {
  EventDirNode& root = tree.root();
  if (event.m_path == "/") return Requeue(&root, root) ? 0 : -1;
  SplitPath split;
  if (!BaseName(event.m_path.view(), split)) return -1;
  EventDirNode* parent = tree.FindDir(split.dir);
  if (parent == nullptr) return -1;
  if (event.isDir()) {
    EventDirNode* dir = parent->dirs().Find(split.name);
    if (!Requeue(dir, *parent)) return -1;
    parent->MoveToEnd(*dir);
  } else {
    EventFileNode* file = parent->files().Find(split.name);
    if (!Requeue(file, *parent)) return -1;
    parent->MoveToEnd(*file);
  }
  for (EventDirNode* dir = parent; dir->parent != nullptr; dir = dir->parent) {
    dir->parent->MoveToEnd(*dir);
  }
  return 0;
}

}  // namespace tolven

#include "client/event-dump.h"

#include <functional>

#include "client/event-log.h"

namespace tolven {

namespace {

using Files = EventChildList<EventFileNode>;
using Visit = std::function<void(const EventNode&, const char* kind, size_t depth)>;

size_t DepthOf(const EventNode& node) {
  size_t depth = 0;
  for (const EventNode* at = &node; at->parent != nullptr; at = at->parent) ++depth;
  return depth;
}

void VisitTopDown(const EventDirNode& root, const Visit& visit) {
  for (const EventDirNode* dir = &root; dir != nullptr; dir = EventTree::NextBelow(root, *dir)) {
    const size_t depth = DepthOf(*dir);
    visit(*dir, "dir", depth);
    for (const EventFileNode* file = dir->files().first(); file != nullptr;
         file = Files::Next(*file)) {
      visit(*file, "file", depth + 1);
    }
  }
}

std::string GetIndentString(size_t depth) { return std::string(depth * 2, ' '); }

void LogTraversedNode(const EventNode& node, const char* kind, size_t) {
  EVENT_LOG_DEBUG("%s [%s] name = [%s], status = [%s], type = [%s], path = [%s]\n", kind,
                  GetModeString(node.attr.mode), node.name, GetStatusString(node.status),
                  Event::TypeText(node.attr.type), node.attr.path());
}

void LogOutlinedNode(const EventNode& node, const char* kind, size_t depth) {
  EVENT_LOG_DEBUG("%s%s '%s' %s %s (%s)\n", GetIndentString(depth), kind, node.name,
                  GetStatusString(node.status), Event::TypeText(node.attr.type),
                  GetModeString(node.attr.mode));
}

}  // namespace

std::string GetModeString(uint32_t mode) {
  std::string text = (mode & Event::F_SERVER) != 0 ? "server" : "local";
  const auto add = [&](uint32_t flag, const char* label) {
    if ((mode & flag) != 0) text += label;
  };
  add(Event::F_LOCAL_SUBDIR_RESCAN, ",local-dir-rescan");
  add(Event::F_SERVER_SUBDIR_RESCAN, ",server-dir-rescan");
  add(Event::F_LOCAL_SUBDIR_RESCAN_STAT, ",local-dir-rescan-stat");
  add(Event::F_SERVER_SUBDIR_RESCAN_STAT, ",server-dir-rescan-stat");
  add(Event::F_CONFLICT, ",conflict");
  add(EVENT_F_FILE_TYPE_CONFLICT, ", file-type-conflict");
  return text;
}

const char* GetStatusString(EventStatus status) {
  switch (status) {
    case EventStatus::WAITING:
      return "WAITING";
    case EventStatus::PROCESSING:
      return "PROCESSING";
    case EventStatus::DONE:
      return "DONE";
    case EventStatus::RETRY:
      return "RETRY";
  }
  return "";
}

void LogTraversal(const EventTree& tree, int32_t server_events, int32_t local_events) {
  EVENT_LOG_DEBUG(
      "========TraverseTree , server_event_count = [%d], local_event_count=[%d] =========\n",
      server_events, local_events);
  VisitTopDown(tree.root(), LogTraversedNode);
}

void LogOutline(const EventTree& tree) { VisitTopDown(tree.root(), LogOutlinedNode); }

}  // namespace tolven

#include "client/core/filters/preliminary-filter.h"

#include <algorithm>

#include "client/core/event-context.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/server-record.h"
#include "client/event-manager.h"
#include "lib/policy.h"

namespace tolven {

namespace {

const char* Source() { return "preliminary-filter"; }

bool IsRoot(const Event& event) { return event.m_path.empty() || event.m_path == "/"; }

}  // namespace

bool PreliminaryFilter::FilterEvent() {
  const Event& event = GetContext().GetEvent();
  const Registry::Entry& entry = GetContext().GetEntry();
  return FilterLocalRootEvent(event, entry) || FilterPauseSession(event, entry) ||
         FilterLocalWatchNotExist(event, entry) || FilterEventForNoRecursive(event, entry) ||
         FilterInvalidNode(event, entry);
}

bool PreliminaryFilter::FilterLocalRootEvent(const Event& event, const Registry::Entry& entry) {
  const bool is_change = !event.isExpand() && !event.isRescan() && !event.isSubDirRescan();
  if (!event.isDir() || !IsRoot(event) || event.isServerEvent() || !is_change) return false;
  HANDLER_INFO("Worker (%d): Ignore local root folder event: sess_id = '%llu'", GetWorkerId(),
               entry.sess_id);
  SetErrorAction(ACTION_DONE);
  return true;
}

bool PreliminaryFilter::FilterPauseSession(const Event& event, const Registry::Entry& entry) {
  if (!entry.pause || event.isExpand() || event.isRescan()) return false;
  HANDLER_INFO("Worker (%d): session %llu is paused, process this event (%s) later.", GetWorkerId(),
               entry.sess_id, event.toString());
  SetErrorAction(ACTION_RETURN_EVENT);
  return true;
}

bool PreliminaryFilter::FilterEventForNoRecursive(const Event& event,
                                                  const Registry::Entry& entry) {
  if (entry.recursive || IsRoot(event)) return false;
  const std::string_view path = event.m_path.view();
  if (event.isFile() && std::count(path.begin(), path.end(), '/') <= 1) return false;
  HANDLER_INFO("Filter out recursive events. (path: %s, type: %s)", event.m_path,
               event.isDir() ? "dir" : "file");
  SetErrorAction(ACTION_DONE);
  return true;
}

bool PreliminaryFilter::FilterLocalWatchNotExist(const Event&, const Registry::Entry&) {
  return false;
}

bool PreliminaryFilter::FilterInvalidNode(const Event& event, const Registry::Entry& entry) {
  const ustring& full_path = GetContext().GetFullPath();
  if (IsRoot(event)) return false;
  const NodeTest node = TestNode(full_path);
  // The session's root may be a link; what is below it may not lie behind one.
  const bool valid = node == NodeTest::VALID && !LeadsThroughLink(entry.local_path, event.m_path);
  if (valid) return false;
  HANDLER_INFO("Local event path '%s' is not a valid node", full_path);
  if (node == NodeTest::UNKNOWN) KeepEvent(event);
  return true;
}

// The server tells its changes once more, but not for ever.
void PreliminaryFilter::KeepEvent(const Event& event) {
  if (event.isServerEvent()) {
    EventManager::getInstance().CountUnappliedServerEvent(event.m_sess_id);
  } else {
    SetErrorAction(ACTION_RETURN_EVENT);
  }
}

}  // namespace tolven

// Drops what no handler is to see: local events of the session's root, events of sessions that are
// paused (they go back), of folders below the first level of a session that is not recursive, and
// of nodes that can never be synced.
#pragma once

#include "client/core/event-handler.h"
#include "client/core/registry.h"
#include "client/event.h"

namespace tolven {

class PreliminaryFilter : public EventFilter {
 public:
  bool FilterEvent() override;

 private:
  bool FilterLocalRootEvent(const Event& event, const Registry::Entry& entry);
  bool FilterPauseSession(const Event& event, const Registry::Entry& entry);
  bool FilterEventForNoRecursive(const Event& event, const Registry::Entry& entry);
  // For platforms on which a session's folder can be told missing by the way; never here.
  static bool FilterLocalWatchNotExist(const Event& event, const Registry::Entry& entry);
  bool FilterInvalidNode(const Event& event, const Registry::Entry& entry);
  // Of a node that cannot be looked at now.
  void KeepEvent(const Event& event);
};

}  // namespace tolven

#include "client/core/callbacks/reload-local-acl-filtered-event-callback.h"

#include <vector>

#include "client/core/event-context.h"
#include "client/core/event-generator.h"
#include "client/core/handlers/handler-log.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "reload-local-acl-filtered-event"; }

}  // namespace

void ReloadLocalACLFilteredEventCallback::Exec(EventContext& context) {
  HANDLER_DEBUG("ReloadLocalACLFilteredEventCallback: reload local [%s]", reload_path);
  std::vector<FilteredEvent> parked;
  if (context.GetEventDatabaseSafe().getLocalFilteredEvent(FilteredEvent::FILTERED_ACL, reload_path,
                                                           reload_flag, parked) < 0) {
    HANDLER_ERROR("failed to reload local filtered events of path [%s]", reload_path);
    return;
  }
  Registry::Entry entry = context.GetEntry();
  for (const FilteredEvent& filtered : parked) {
    HANDLER_DEBUG("Push Local filtered event for path [%s]", filtered.path);
    PushEvent(entry, filtered);
  }
}

}  // namespace tolven

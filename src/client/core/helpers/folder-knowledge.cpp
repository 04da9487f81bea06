#include "client/core/helpers/folder-knowledge.h"

#include <algorithm>
#include <vector>

#include "client/core/event-context.h"
#include "client/core/handlers/handler-log.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "folder-knowledge"; }

}  // namespace

// A folder's number is as high as that of the last change that this side made below it, and others
// may have made one before that. What filters keep from this side is not known either, whatever its
// number.
int FolderKnowledge::Read(const EventContext& context, const DBFileInfo& db_info) {
  FileEventDB& db = context.GetEventDatabaseSafe();
  std::uint64_t pulled = 0;
  if (db.getSyncId(pulled) != 0) return -1;
  is_behind = db_info.maxSyncID > pulled;
  max_id = std::min(db_info.maxSyncID, pulled);
  if (is_behind) {
    HANDLER_DEBUG("'%s' is at %llu, and pulled is up to %llu", context.GetPath(), db_info.maxSyncID,
                  pulled);
  }
  std::vector<FilteredEvent> held_back;
  if (db.getServerFilteredEvent(FilteredEvent::FILTERED_ALL, context.GetPath(),
                                FileEventDB::FILTER_FLAG_INCLUDE_CHILD, held_back) < 0) {
    return -1;
  }
  is_held_back = false;
  for (const FilteredEvent& event : held_back) {
    if (!event.is_exist || event.sync_id == 0 || event.path == context.GetPath()) continue;
    is_held_back = true;
    max_id = std::min(max_id, event.sync_id - 1);
  }
  return 0;
}

}  // namespace tolven

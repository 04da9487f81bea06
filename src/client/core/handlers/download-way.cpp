// What stands above the place of a download and is no folder.
#include "client/core/conflict-rename.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/event-path.h"
#include "client/file-event-db.h"

namespace tolven {

int DownloadRemoteHandler::ClearWay() {
  const EventContext& context = GetContext();
  const std::string_view path = context.GetPath().view();
  for (std::size_t slash = path.find('/', 1); slash != std::string_view::npos;
       slash = path.find('/', slash + 1)) {
    const ustring above(path.substr(0, slash));
    const File object(JoinPath(context.GetLocalWatch(), above.view()), true);
    if (!object.Exists()) return 0;
    if (!object.IsDirectory()) return ClearObjectAbove(above, object);
  }
  return 0;
}

// A file took the place of a folder in which the server has news: both are kept.
int DownloadRemoteHandler::ClearObjectAbove(const ustring& above, const File& object) {
  const EventContext& context = GetContext();
  DBFileInfo record;
  const int known = context.GetEventDatabaseSafe().getEventInfo(above, record);
  if (known < 0) return ERR_SYS;
  if (known == 1 && record.isExist != 0 && record.IsFile()) {
    if (record.syncID > context.GetEvent().m_sync_id) {
      HANDLER_NOTE("Worker (%d): '%s' is gone, since '%s' is a file by now.", GetWorkerId(),
                   context.GetPath(), above);
      // What was parked of it would come back for ever.
      if (context.GetEventDatabaseSafe().rmServerFilteredEvent(FilteredEvent::FILTERED_ALL,
                                                               context.GetPath(), 0) < 0) {
        return ERR_SYS;
      }
      SetErrorAction(ACTION_DONE);
      return ERR_INT;
    }
    // The change of the file itself is still to come.
    if (!FileHelper::LocallyModified(context, object, record)) return ERR_SYS;
  }
  HANDLER_NOTE("Worker (%d): '%s' stands in the way of '%s', resolve conflict.", GetWorkerId(),
               above, context.GetPath());
  const int renamed =
      ConflictRename(object.GetPath(), context.GetConnectionInfo().computer_name, "Conflict");
  return renamed < 0 ? static_cast<int>(ERR_SYS) : 0;
}

}  // namespace tolven

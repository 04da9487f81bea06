#include "client/core/handlers/rescan-handler.h"

#include "client/core/event-helper.h"
#include "client/core/handlers/file-list-builder.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "client/file-event-db.h"

namespace tolven {

namespace {

const char* Source() { return "rescan-handler"; }

}  // namespace

int RescanHandler::Handle() {
  const ustring& path = GetContext().GetPath();
  HANDLER_INFO("Worker (%d): Rescan directory '%s'.", GetWorkerId(), path);
  SetAbortable(true);
  const int code = Compare();
  if (code >= 0) return 0;
  HANDLER_NOTE("Worker (%d): Interrupted while rescaning '%s'.", GetWorkerId(), path);
  if (code == EventHelper::kRootNotProved) SetErrorAction(ACTION_RETURN_EVENT);
  return ERR_INT;
}

int RescanHandler::Compare() {
  EventContext& context = GetContext();
  FileEventDB& db = context.GetEventDatabaseSafe();
  const ustring& path = context.GetPath();
  const bool recursive = context.GetEntry().recursive;
  int options = FileHelper::WALK_OPT_EXT_INFO;
  if (recursive) options |= FileHelper::WALK_OPT_DFS;
  if (context.GetEntry().isMSDOS) options |= FileHelper::WALK_OPT_CUT_MTIME;
  const auto list_database = [&](FileList& list) {
    return recursive ? db.getFileList(list, path) : db.getFileListWithoutRecursive(list, path);
  };
  const auto list_disk = [&](FileList& list) {
    return FileHelper::Walk(context.GetFullPath(), context,
                            FileListBuilder(context, context.GetFullPath(), GetWorkerId(), list),
                            options, GetAbortFlag());
  };
  return EventHelper::CompareFolder(context, path, list_database, list_disk,
                                    context.GetEvent().isMerge(), GetAbortFlag());
}

}  // namespace tolven

#include "client/core/callbacks/unsupported-name-callback.h"

#include "client/core/event-context.h"
#include "client/core/handlers/handler-log.h"
#include "client/event-path.h"
#include "lib/file-status-db.h"

namespace tolven {

namespace {

const char* Source() { return "unsupported-name"; }

}  // namespace

void UnsupportedNameCallback::Exec(EventContext& context) {
  FileStatusInfo info;
  info.fileType = context.GetEvent().isDir() ? 1 : 0;
  info.syncStatus = FSTAT_UNSUPPORT;
  info.path = FileStatusKey(context.GetLocalWatch(), context.GetPath().view()).str();
  if (FileStatusDB::setFileSyncStat(info) != 0) {
    HANDLER_ERROR("failed to set the status of path [%s]", context.GetPath());
  }
}

}  // namespace tolven

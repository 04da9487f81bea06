#include "client/core/handlers/download-remote-handler-v0.h"

#include "client/core/handlers/handler-log.h"

namespace tolven {

bool DownloadRemoteHandlerV0::FilterEvent() {
  return DownloadRemoteHandler::FilterEvent() &&
         GetContext().GetConnectionInfo().version_info.build_number <= kLastBuild;
}

int DownloadRemoteHandlerV0::Handle() {
  HANDLER_ERROR("Handle event by '%s'", Source());
  return DownloadRemoteHandler::Handle();
}

int DownloadRemoteHandlerV0::HandleDownloadRootFolder() {
  if (!IsRootFolderEvent()) return 0;
  HANDLER_INFO("Worker (%d): Ignore root folder event: sess_id = '%llu'", GetWorkerId(),
               GetContext().GetEntry().sess_id);
  return 1;
}

}  // namespace tolven

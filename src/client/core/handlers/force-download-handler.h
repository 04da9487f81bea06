// Fetches an object again, whatever the versions say, when it is missing or changed here.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/core/handlers/download-remote-handler-v0.h"
#include "client/core/handlers/download-remote-handler.h"

namespace tolven {

class ForceDownloadHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  int Unpark();
  int DownloadAnew(const DBFileInfo& db_info);

  DownloadRemoteHandler download_;
  DownloadRemoteHandlerV0 download_v0_;
};

}  // namespace tolven

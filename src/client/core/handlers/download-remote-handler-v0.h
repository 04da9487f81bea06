// The download from servers that send no access lists: builds up to 3111. It stands in front of the
// one for newer servers and takes their events.
#pragma once

#include "client/core/handlers/download-remote-handler.h"

namespace tolven {

class DownloadRemoteHandlerV0 : public DownloadRemoteHandler {
 public:
  // Of the last server that this handler is for.
  static constexpr long kLastBuild = 3111;

  int Handle() override;
  bool FilterEvent() override;

 protected:
  const char* Source() const override { return "download-remote-handler-v0"; }
  int CheckPermission() override { return 0; }
  // Writes no record.
  int HandleDownloadRootFolder() override;
  // Such a server sends the attributes with its answer or not at all.
  void PrepareAttributesFromEvent(PObject&) const override {}
};

}  // namespace tolven

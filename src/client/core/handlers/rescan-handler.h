// Compares a folder on disk with the database and queues what brings both together.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"

namespace tolven {

class RescanHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override { return GetContext().GetEvent().isRescan(); }

 private:
  int Compare();
};

}  // namespace tolven

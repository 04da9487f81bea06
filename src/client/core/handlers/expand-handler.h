// Turns an event on a folder of this side into one for each member, so that each is judged by
// itself.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"

namespace tolven {

class ExpandHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override { return GetContext().GetEvent().isExpand(); }
};

}  // namespace tolven

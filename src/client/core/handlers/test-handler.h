// Accepts every event and only tells that it did: put in front of the others when the way of events
// is to be watched. The daemon does not use it.
#pragma once

#include <memory>

#include "client/core/event-context.h"
#include "client/core/event-handler.h"

namespace tolven {

class TestHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;
  std::unique_ptr<TestHandler> Clone() const { return std::make_unique<TestHandler>(); }
};

}  // namespace tolven

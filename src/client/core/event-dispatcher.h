// Finds the handler of an event: the filters first, then the handlers of the event's type in the
// order in which they were added, of which the first that accepts the event is its only one.
// Belongs to one worker and its thread.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "client/core/event-handler.h"
#include "client/event.h"

namespace tolven {

class EventDispatcher {
 public:
  void Add(Event::Type type, std::unique_ptr<EventHandler> handler);
  void AddFilter(std::unique_ptr<EventFilter> filter);

  // 0 or an error code. An event that a filter drops is 0, one that nobody takes -1.
  int Dispatch(EventContext& context, WorkerController& controller);

 private:
  std::map<Event::Type, std::vector<std::unique_ptr<EventHandler>>> handlers_;
  std::vector<std::unique_ptr<EventFilter>> filters_;
};

}  // namespace tolven

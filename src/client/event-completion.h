// How an event that was handed out ends, or comes back.
#pragma once

#include "client/event-counters.h"
#include "client/event-tree.h"
#include "client/event.h"

namespace tolven {

// Ends the event at work on the path, kind and side of `event`, and removes its node, or leaves a
// directory that still has children without an event. 0, or -1 with nothing changed.
int FinishEvent(EventTree& tree, EventCounters& counters, const Event& event);

// Lets the event on the path and kind of `event`, when a worker has it, wait again. Every
// directory on its way goes to the end of its list, so that a path that fails again and again
// holds up no neighbour at any level. 0, or -1 with nothing changed.
int RequeueEvent(EventTree& tree, const Event& event);

}  // namespace tolven

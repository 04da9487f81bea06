// What leaves the tree without having been done: the events that a directory's removal makes
// pointless, and all local ones.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/event-counters.h"
#include "client/event-tree.h"

namespace tolven {

// Drops what waits below `removed` on the side of its event; of server events only those with a
// lower number. What runs, what belongs to the other side and the directories that hold such nodes
// stay. Returns the paths that left.
std::vector<std::string> SweepBelowRemoval(EventDirNode& removed, EventCounters& counters);

// Drops every local event, running ones too, and the directories that hold nothing any more. The
// counts of what runs stay as they are, and so do the counters.
void SweepLocalEvents(EventDirNode& root);

}  // namespace tolven

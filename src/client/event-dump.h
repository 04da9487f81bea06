// The tree as text for the log, for who has to find out why an event does not leave.
#pragma once

#include <cstdint>
#include <string>

#include "client/event-tree.h"

namespace tolven {

// Side, sub-directory rescans and conflicts of the flags, for log lines.
std::string GetModeString(uint32_t mode);
const char* GetStatusString(EventStatus status);

// One line for each node with all that decides about its turn, after one with the counters.
void LogTraversal(const EventTree& tree, int32_t server_events, int32_t local_events);
// The same nodes, indented by their depth.
void LogOutline(const EventTree& tree);

}  // namespace tolven

// What survives when two events meet on one path.
#pragma once

#include <cstdint>

#include "client/event-attribute.h"

namespace tolven {

// The number of a forced download. It stands for no real change: pending, it yields to any server
// event that arrives; arriving, it replaces any that is pending.
inline constexpr uint64_t kForcedDownloadSyncId = 0x7FFFFFFFFFFFFFFF;

struct EventMerge {
  // One of the two events, with its flags replaced by `mode`.
  bool keep_old = false;
  uint32_t mode = 0;
};

// `pending` was in the tree, `arrival` came now. The arrival's F_DIR chooses the rules.
EventMerge MergeEvents(const EventAttribute& pending, const EventAttribute& arrival);

}  // namespace tolven

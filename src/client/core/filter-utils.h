// How a change of a session's selective sync rules takes effect: what the old rules held back and
// the new ones let through comes back into circulation, and where a rule that hid a whole area is
// gone, that area is looked at anew. New rules need no work: the handlers park what they catch.
#pragma once

#include "client/core/registry.h"
#include "client/file-event-db.h"
#include "lib/selective-sync-info.h"

namespace tolven {

// Applies the current rules of a session and remembers them as applied. With `merge_mode` what is
// missing here is fetched from the server and not removed there. 0, or -1 with the remembered rules
// as they were, so that the next call does the same work again. May be called from any thread;
// messages go to "filter_utils_debug".
int ReplaceFilter(Registry::Entry& reg, bool merge_mode);

// SQL conditions on the rows of parked events, each true of what one kind of rule lets through. A
// row that a rule refuses may pass all the same, since the handlers test it again; never the other
// way round.
FileEventDB::Conditions LetThroughConditions(const SelectiveSyncInfo& info);

}  // namespace tolven

// What the syncer makes of refusals and failures.
#pragma once

#include <cstdint>

namespace tolven {

enum SyncerAction : int { SYNCER_DONE = 0, SYNCER_RETRY = 1, SYNCER_RETRY_LONG_WAIT = 2 };
enum class SyncerReport { NONE, SESSION, CONNECTION };

struct SyncerErrorHandler {
  int action;  // a SyncerAction, or -1: there is none for this error
  SyncerReport report;
};

// For a code of the error table, 0 to -33.
SyncerErrorHandler FindSyncerErrorHandler(int code);

}  // namespace tolven

#include "client/core/syncer-error-table.h"

#include "lib/error-table.h"

namespace tolven {

SyncerErrorHandler FindSyncerErrorHandler(int code) {
  switch (code) {
    case ErrorCodes::ERR_OK:
      return {SYNCER_DONE, SyncerReport::NONE};
    case ErrorCodes::ERR_INT:
    case ErrorCodes::ERR_IO:
    case ErrorCodes::ERR_SYS:
    case ErrorCodes::ERR_SERVER:
    case ErrorCodes::ERR_TIMEOUT:
      return {SYNCER_RETRY, SyncerReport::NONE};
    case ErrorCodes::ERR_AUTH:
    case ErrorCodes::ERR_VERSION:
    case ErrorCodes::ERR_SSL_VERIFY_FAIL:
    case ErrorCodes::ERR_BUILD_NUM_CHANGED:
      return {SYNCER_RETRY, SyncerReport::CONNECTION};
    case ErrorCodes::ERR_VRKDISABLE:
    case ErrorCodes::ERR_VIEW:
    case ErrorCodes::ERR_PERMISS:
    case ErrorCodes::ERR_VIEW_PATH:
    case ErrorCodes::ERR_NOT_MOUNTED:
      return {SYNCER_RETRY, SyncerReport::SESSION};
    default:
      return {-1, SyncerReport::NONE};
  }
}

}  // namespace tolven

#include "client/core/syncer-error-table.h"

#include "lib/error-table.h"

namespace tolven {

SyncerErrors::_error_handler SyncerErrors::Find(int code) {
  switch (code) {
    case ErrorCodes::ERR_OK:
      return {ACTION_DONE, ERR_NONE};
    case ErrorCodes::ERR_INT:
    case ErrorCodes::ERR_IO:
    case ErrorCodes::ERR_SYS:
    case ErrorCodes::ERR_SERVER:
    case ErrorCodes::ERR_TIMEOUT:
      return {ACTION_RETRY, ERR_NONE};
    case ErrorCodes::ERR_AUTH:
    case ErrorCodes::ERR_VERSION:
    case ErrorCodes::ERR_SSL_VERIFY_FAIL:
    case ErrorCodes::ERR_BUILD_NUM_CHANGED:
      return {ACTION_RETRY, ERR_CONNECTION};
    case ErrorCodes::ERR_VRKDISABLE:
    case ErrorCodes::ERR_VIEW:
    case ErrorCodes::ERR_PERMISS:
    case ErrorCodes::ERR_VIEW_PATH:
    case ErrorCodes::ERR_NOT_MOUNTED:
      return {ACTION_RETRY, ERR_SESSION};
    default:
      return {-1, ERR_NONE};
  }
}

}  // namespace tolven

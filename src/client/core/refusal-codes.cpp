#include "client/core/refusal-codes.h"

#include "client/core/syncer-log.h"
#include "lib/error-table.h"
#include "lib/proto-common.h"

namespace tolven {

namespace {

int Unhandled(std::uint32_t code) {
  SYNCER_CRIT("unhandled error code: %lu\n", code);
  return 0;
}

int OfClass(std::uint32_t code) {
  switch (ProtoErrorClass(code)) {
    case SPROTO_ERR_USER:
    case SPROTO_ERR_SESSION:
      return ErrorCodes::ERR_AUTH;
    case SPROTO_ERR_VIEW:
      return ErrorCodes::ERR_VIEW;
    case SPROTO_ERR_VERSION:
      return ErrorCodes::ERR_VERSION;
    case SPROTO_ERR_INTERNAL:
      SYNCER_CRIT("server error: %lu\n", code);
      return 0;
    default:
      return Unhandled(code);
  }
}

}  // namespace

int SyncerResp2ErrorCode(std::uint32_t code) {
  switch (code) {
    case SPROTO_ERR_ACCESS_DENY:
      return ErrorCodes::ERR_PERMISS;
    case SPROTO_ERR_VIEW_INVALID_PATH:
      SYNCER_CRIT("Server error(invalid path in view): %lu\n", code);
      return ErrorCodes::ERR_VIEW_PATH;
    case SPROTO_ERR_READ_ONLY:
      return ErrorCodes::ERR_PERMISS_READ_ONLY;
    case SPROTO_ERR_NOT_MOUNTED:
      return ErrorCodes::ERR_NOT_MOUNTED;
    case SPROTO_ERR_QUOTA:
      return ErrorCodes::ERR_QUOTA;
    case SPROTO_ERR_DISKFULL:
      return ErrorCodes::ERR_DISKFULL;
    default:
      return OfClass(code);
  }
}

int HandshakeErrorCode(std::uint32_t code) {
  const bool of_sections = code >= SPROTO_RES_OK && code <= SPROTO_RES_SHARE_ACCESS_DENIED;
  const int result = of_sections ? ProtoResp2ErrorCode(code) : SyncerResp2ErrorCode(code);
  // A channel that was refused is not open, whatever the reason.
  return result != 0 ? result : ErrorCodes::ERR_SERVER;
}

}  // namespace tolven

// What handlers share that is neither about files nor about filters.
#pragma once

#include <cstdint>
#include <string>

#include "client/db-file-info.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

class EventContext;

struct HandlerHelper {
  // What a refusal of the server means for the event in hand; 0 when it is no error of the event's.
  static int ConvertResponseErrorToHandlerError(std::uint32_t code);
  // Starts a request on the event's object, whose version on this side `db_info` tells.
  static void InitObjectRequest(PObject& request, const std::string& action,
                                const EventContext& context, const DBFileInfo& db_info);
  // Starts one on the transfer that a token stands for.
  static void InitTokenRequest(PObject& request, const std::string& action,
                               const EventContext& context);
  // Takes what an answer tells of the server's attributes into a record, but for the hash of the
  // share's; what it does not tell stays.
  static void TakeServerAttributes(const PObject& response, DBFileInfo& record);
  // The event's path as the server has it.
  static ustring RemotePath(const EventContext& context);
  // Whether the session is still there, and its folder the one that it was; only then an absence in
  // it says anything, and only then it is written to.
  static bool IsRootProved(const EventContext& context);
  // Whether the disk has the event's object, or a folder above it, in another spelling, which the
  // file system takes for the same name. `spelled` is the event path that is there.
  static bool HasOtherSpelling(const EventContext& context, ustring& spelled);
};

}  // namespace tolven

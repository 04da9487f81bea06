#include "client/core/handlers/test-handler.h"

#include "client/core/handlers/handler-log.h"

namespace tolven {

namespace {

const char* Source() { return "test-handler"; }

}  // namespace

bool TestHandler::FilterEvent() {
  HANDLER_ERROR("################ TEST Accept event: %s", GetContext().GetEvent().toString());
  return true;
}

int TestHandler::Handle() {
  HANDLER_ERROR("Handle event: %s", GetContext().GetEvent().toString());
  HANDLER_ERROR(">>>>>>>>>>>>>>>> Worker id: %d, abort_flag:%d", GetWorkerId(),
                GetAbortFlag()->load());
  return 0;
}

}  // namespace tolven

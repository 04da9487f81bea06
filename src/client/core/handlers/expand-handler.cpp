#include "client/core/handlers/expand-handler.h"

#include "client/core/handlers/expand-walker.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"

namespace tolven {

namespace {

const char* Source() { return "expand-handler"; }

}  // namespace

int ExpandHandler::Handle() {
  const EventContext& context = GetContext();
  HANDLER_INFO("Worker (%d): Expand directory '%s'.", GetWorkerId(), context.GetPath());
  SetAbortable(true);
  // Nothing is removed by what this finds, so what cannot be read is passed over.
  int options = FileHelper::WALK_OPT_SKIP_UNREADABLE;
  if (context.GetEntry().recursive) options |= FileHelper::WALK_OPT_DFS;
  const int code =
      FileHelper::Walk(context.GetFullPath(), context,
                       ExpandWalker(context.GetEntry(), GetWorkerId()), options, GetAbortFlag());
  if (code >= 0) return 0;
  HANDLER_NOTE("Worker (%d): Interrupted while expanding directory '%s'.", GetWorkerId(),
               context.GetPath());
  return ERR_INT;
}

}  // namespace tolven

#include "client/core/handlers/expand-walker.h"

#include <utility>

#include "client/core/event-generator.h"
#include "client/core/handlers/handler-log.h"

namespace tolven {

namespace {

const char* Source() { return "expand-handler"; }

}  // namespace

ExpandWalker::ExpandWalker(Registry::Entry session, int worker)
    : reg(std::move(session)),
      // The root of a drive or file system ends in the separator that a path below begins with.
      root_len(reg.local_path.size() - (reg.local_path.view().ends_with('/') ? 1 : 0)),
      worker_id(worker) {}

bool ExpandWalker::operator()(const DIR_ENTRY& entry, const ustring& path) {
  if (entry.type != FT_FILE && entry.type != FT_DIR) return true;
  const ustring relative = path.substr(root_len);
  HANDLER_DEBUG("Worker (%d): ExpandWalker push upload event for '%s'.", worker_id, relative);
  PushUploadEvent(reg, relative, entry.type == FT_DIR);
  return true;
}

}  // namespace tolven

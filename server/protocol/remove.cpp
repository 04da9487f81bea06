// "remove".
#include "lib/proto-constants.h"
#include "server/protocol/access.h"
#include "server/protocol/command.h"

namespace tolven::server {

namespace {

std::uint32_t CheckRight(Command& command, const Node& node) {
  Access access(command);
  if (!access.CanSee(node.path, node.is_dir)) return SPROTO_ERR_REMOVE_NO_ACCESS;
  const int allowed = access.CanRemove(node);
  if (allowed < 0) return SPROTO_ERR_INTERNAL;
  return allowed > 0 ? SPROTO_ERR_OK : SPROTO_ERR_REMOVE_NO_PERM;
}

}  // namespace

std::uint32_t Remove(Command& command) {
  if (command.view.read_only) return SPROTO_ERR_READ_ONLY;
  if (command.path == "/") return SPROTO_ERR_REMOVE_NO_PERM;
  Node node;
  const int found = command.service.metadata.FindNode(command.view.id, command.path, node);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  if (found == 0 || node.is_removed) return SPROTO_ERR_REMOVE_NOFILE;
  const std::uint32_t right = CheckRight(command, node);
  if (right != SPROTO_ERR_OK) return right;
  Node removed;
  switch (command.service.metadata.RemoveNode(command.view.id, command.path,
                                              command.request["sync_id"].asUInt64(),
                                              command.request["max_id"].asUInt64(), removed)) {
    case Outcome::kDone:
      command.answer["sync_id"] = removed.sync_id;
      command.answer["max_id"] = removed.max_id;
      return SPROTO_ERR_OK;
    case Outcome::kNotFound:
      return SPROTO_ERR_REMOVE_NOFILE;
    case Outcome::kModified:
      return SPROTO_ERR_REMOVE_MODIFIED;
    default:
      return SPROTO_ERR_INTERNAL;
  }
}

}  // namespace tolven::server

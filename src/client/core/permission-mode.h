// Which rights of the server a session applies to its local files.
#pragma once

namespace tolven {

enum PermissionMode {
  PERM_SYNC_EXEC_BIT_ONLY = 0,
  PERM_SYNC_DOMAIN_ONLY = 1,
  PERM_SYNC_ALL = 2,
};

}  // namespace tolven

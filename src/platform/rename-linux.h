// Renames that are on the disk when they return.
#pragma once

#include "platform/status.h"

namespace tolven::platform {

Status SyncFolder(const char* path);
Status RenameReplacing(const char* from, const char* to);
// Never replaces anything, also on file systems whose kernel driver has no such call.
Status RenameKeeping(const char* from, const char* to);

}  // namespace tolven::platform

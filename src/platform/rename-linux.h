// Renames.
#pragma once

#include "platform/status.h"

namespace tolven::platform {

Status SyncFolder(const char* path);
// On the disk when it returns.
Status RenameReplacing(const char* from, const char* to);
// Never replaces anything, also on file systems whose kernel driver has no such call. Not synced.
Status RenameKeeping(const char* from, const char* to);

// What RenameKeeping does without the kernel's help, not yet synced: a second name for a file and
// then the end of the first; or an empty object that takes the name and is replaced.
Status RenameByLink(const char* from, const char* to);
Status RenameOverPlaceholder(const char* from, const char* to, bool folder);

}  // namespace tolven::platform

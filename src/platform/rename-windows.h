// Renames and removals, which a read-only attribute must not stop.
#pragma once

#include "platform/node-windows.h"

namespace tolven::platform {

// `flags` are those of MoveFileExW. A read-only file that is replaced gives way, and what takes its
// place is read-only again.
Status RenameNode(const ustring& from, const ustring& to, DWORD flags);

// Removes a file or an empty folder; of a link or junction the link itself. kIsDirectory or
// kNotDirectory when the object is of the other kind.
Status RemoveNode(const PathArgument& path, bool folder);

}  // namespace tolven::platform

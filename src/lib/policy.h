// Which places and nodes may take part in syncing at all, whatever the filters say. May be called
// from any thread; messages go to category "default_component".
#pragma once

#include "ustring/ustring.h"

namespace tolven {

// Whether a folder can be the root of a session: it exists, and not on an optical drive or in a RAM
// disk.
bool IsValidSyncFolder(const ustring& folder_path);

// Whether one node may be synced. Refused are the daemon's own data and the temporary folder below
// the local application data, symbolic links and reparse points, nodes of the system (devices,
// FIFOs and sockets), offline and temporary files, and what cannot be looked at. A node that is
// gone, or cannot be made for its long name, is no reason to refuse its event.
bool IsValidNode(const ustring& folder_path);
// The same, and apart from what is refused, what cannot be looked at now.
enum class NodeTest { VALID, REFUSED, UNKNOWN };
NodeTest TestNode(const ustring& folder_path);

// Whether `path` begins with `prefix`, all separators of the platform being equal. The prefix may
// end inside a component: "/a/Data" is one of "/a/Database".
bool isMatchPrefix(const ustring& prefix, const ustring& path);

}  // namespace tolven

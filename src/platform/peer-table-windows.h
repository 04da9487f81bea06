// Who holds the other end of a local connection.
#pragma once

#include "platform/error-windows.h"
#include "platform/identity.h"

namespace tolven::platform {

// The process that holds the connection's end with these ports and 127.0.0.1 as both addresses; 0
// when the system shows none.
DWORD FindHolder(int local_port, int remote_port);

// Whether a process is of our user, of the system or of an administrator.
PeerOwner OwnerOfProcess(DWORD pid);

}  // namespace tolven::platform

// Who holds the other end of a local connection.
#pragma once

#include "platform/error-windows.h"
#include "platform/identity.h"

namespace tolven::platform {

// The process that holds the peer's end of `socket`, whose ports these are, with 127.0.0.1 as both
// addresses; 0 when the system shows none.
DWORD FindHolder(SOCKET socket, int peer_port, int own_port);

// Whether a process is of our user, of the system or of an administrator.
PeerOwner OwnerOfProcess(DWORD pid);

}  // namespace tolven::platform

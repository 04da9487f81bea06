// Asks the kernel for one TCP connection, however many there are.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include "platform/status.h"

namespace tolven::platform {

// The user who holds the end `local` of the connection to `remote`. kNotFound when nobody holds
// that end any more. Any other error: the kernel was not to be asked, and nothing is known.
Status QueryHolder(const sockaddr_storage& local, const sockaddr_storage& remote, uid_t& user);

}  // namespace tolven::platform

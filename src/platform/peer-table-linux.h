// The kernel's table of TCP connections, as text.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace tolven::platform {

// An address as /proc/net/tcp and tcp6 write it: the bytes of the address by words of the machine's
// own order, ":" and the port, in hexadecimal. Empty for other families.
std::string TableForm(const sockaddr_storage& address);

// The user who holds the end `local` of the connection to `remote`. None when no line has both, or
// when nobody holds that end any more: the kernel then writes user 0 into the line, which must not
// be taken for the administrator.
std::optional<uid_t> FindHolder(std::string_view table, std::string_view local,
                                std::string_view remote);

}  // namespace tolven::platform

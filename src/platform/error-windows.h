// From GetLastError() to Status, for the Windows side of the services only.
#pragma once

#include "platform/status.h"
#include "platform/system-windows.h"

namespace tolven::platform {

// `code` is a system error, a Winsock one included.
Status StatusFromError(DWORD code);

inline Status LastError() { return StatusFromError(::GetLastError()); }

// Status of a call that returns FALSE for failure.
inline Status StatusOf(BOOL result) { return result != FALSE ? Status{} : LastError(); }

}  // namespace tolven::platform

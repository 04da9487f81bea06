// The wish of the user or the system that the program ends.
#pragma once

#include <functional>

#include "platform/status.h"

namespace tolven::platform {

// Takes over Ctrl-C, Ctrl-Break, the closing of the console and the end of the user's session for
// the rest of the process's life. `handler` runs at the first of them. kExists when a handler is
// already there.
Status RunOnTermination(std::function<void()> handler);

}  // namespace tolven::platform

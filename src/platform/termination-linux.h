// The wish of the user or the system that the program ends.
#pragma once

#include <functional>

#include "platform/status.h"

namespace tolven::platform {

// Takes SIGINT, SIGTERM and SIGHUP over for the rest of the process's life. `handler` runs at the
// first of them; later ones have no effect. kExists when a handler is already there.
Status RunOnTermination(std::function<void()> handler);

}  // namespace tolven::platform

// The news that a drive goes away reaches top-level windows only, so there is one that nobody sees.
#pragma once

#include <memory>

#include "platform/volumes.h"

namespace tolven::platform {

std::unique_ptr<VolumeMonitor> NewVolumeMonitor();

}  // namespace tolven::platform

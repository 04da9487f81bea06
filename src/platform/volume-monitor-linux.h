// Tells of file systems that leave the mount table.
#pragma once

#include "platform/volumes.h"

namespace tolven::platform {

std::unique_ptr<VolumeMonitor> NewVolumeMonitor();

}  // namespace tolven::platform

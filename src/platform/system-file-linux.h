// Whole files of /proc and /sys, whose size is only known once they are read.
#pragma once

#include <string>

#include "platform/status.h"

namespace tolven::platform {

// From the beginning of an open file, whatever its position.
Status ReadWhole(int fd, std::string& text);
Status ReadSystemFile(const char* path, std::string& text);

}  // namespace tolven::platform

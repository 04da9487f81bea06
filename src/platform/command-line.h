// The one line of text by which Windows hands its arguments to a program. Built and tested
// everywhere.
#pragma once

#include <string>
#include <vector>

#include "ustring/ustring.h"

namespace tolven::platform {

// The words so quoted that the usual rules for taking a line apart give them back.
std::string JoinCommandLine(const std::vector<ustring>& words);

}  // namespace tolven::platform

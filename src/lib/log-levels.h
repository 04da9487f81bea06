// The thresholds of the log by category. Their file is one of assignments: a line client_debug=7
// turns on every message of "client_debug".
#pragma once

#include <unordered_map>

#include "lib/config.h"
#include "ustring/ustring.h"

namespace tolven {

using LogLevels = std::unordered_map<ustring, int, UStringHash, UStringEqual>;

// Values that are no integers are left out.
void MergeLogLevels(const Config& config, LogLevels& levels);

}  // namespace tolven

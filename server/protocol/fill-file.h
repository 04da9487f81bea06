#pragma once

#include <string>

#include "ustring/ustring.h"

namespace tolven::server {

// Writes all that the file at `path`, which exists, is to hold; not synced. False when that fails.
bool FillFile(const ustring& path, const std::string& bytes);

}  // namespace tolven::server

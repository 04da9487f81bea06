// Files that are read or written as a whole, by means of the files service alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// Everything that a file holds. `text` is a part of it after a failure.
Status ReadWholeFile(const ustring& path, std::string& text);

// Puts `text` in the place of a file: readers see the old or the new content, a crash leaves one of
// the two, and a failure the old one. `mode`: the permission bits, 0 for those of any new file;
// nobody else can open the content before they stand. Not for two callers at once.
Status ReplaceWholeFile(const ustring& path, std::string_view text, std::uint32_t mode = 0);

}  // namespace tolven::platform

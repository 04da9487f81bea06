// Paths that clients send.
#pragma once

#include <string_view>

#include "ustring/ustring.h"

namespace tolven::server {

// Whether `path` names a place in a view: "/" or "/a/b", well-formed UTF-8, without an empty, "."
// or
// ".." component and without the working directory that every client keeps in its root.
bool IsPathInView(const ustring& path);

// Whether clients of every system can hold what is stored under this name: no blank or dot at the
// end of the last component, no control character, at most 255 bytes each.
bool IsStorableName(std::string_view path);

// "/a" for "/a/b", "/" for "/a".
std::string_view ParentOf(std::string_view path);

// `path` as seen from `root`, a folder at or above it: "/" for the folder itself.
std::string_view RelativeTo(std::string_view root, std::string_view path);

}  // namespace tolven::server

// How paths stand in the statements of the event database.
#pragma once

#include <string>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven::event_db {

inline bool IsRoot(const ustring& path) { return path.empty() || path == "/"; }

// The text in front of "/" and a child's name: "" for the root.
inline std::string_view Prefix(const ustring& path) {
  return IsRoot(path) ? std::string_view() : path.view();
}

// Prefix() as the literal beginning of a GLOB pattern, which knows no escape character: a folder
// named "a[b]*" is itself and nothing else.
std::string GlobPrefix(const ustring& path);

// "(path = 'X' OR path GLOB 'X/*')", where X is "" for the root: all there is.
std::string AtOrBelow(const ustring& path);

}  // namespace tolven::event_db

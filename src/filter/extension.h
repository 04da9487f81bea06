#pragma once

#include <cstddef>
#include <string_view>

#include "filter/fold.h"
#include "filter/value-types.h"

namespace tolven {

// What follows the last dot of a name. A dot in front makes no extension: ".profile" has none.
inline std::string_view ExtensionOf(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return name.substr(dot + 1);
}

// Whether a list of extensions has that of `name`; "*" stands for all.
inline bool ListsExtension(const value_type_string_set& list, std::string_view name) {
  const std::string_view extension = ExtensionOf(name);
  for (const std::string& entry : list.set) {
    if (entry == "*" || fold::Equal(entry, extension)) return true;
  }
  return false;
}

}  // namespace tolven

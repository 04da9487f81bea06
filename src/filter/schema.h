// Which sections and keys a file may have, and where their values go. A schema points into the
// structure that a parse fills, and lives no longer.
#pragma once

#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

#include "filter/value-types.h"

namespace tolven {

// In the order of value_type.
using schema_field =
    std::variant<std::int32_t*, std::uint64_t*, value_type_string*, value_type_string_set*>;

struct schema_key {
  std::string_view name;
  schema_field field;

  enum value_type value_type() const { return static_cast<enum value_type>(field.index()); }
};

struct schema_section {
  std::string_view name;
  std::vector<schema_key> keys;
};

struct schema_parser {
  // The version whose keys are all known.
  int major = 1, minor = 0;
  std::vector<schema_section> sections;
};

}  // namespace tolven

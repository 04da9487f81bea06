// The values of filter files. Texts hold UTF-8 without NUL bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tolven {

enum value_type {
  integer32_type = 0,
  integer64_type = 1,
  string_type = 2,
  string_set_type = 3,
};

struct value_type_string {
  std::string str;  // empty: unset
};

// In the order of insertion; duplicates are kept.
struct value_type_string_set {
  std::vector<std::string> set;
};

struct VersionSection {
  std::int32_t major = 0, minor = 0;
};

// Text counts up to its first NUL byte.
void _vt_string_assign(value_type_string* value, std::string_view text);
void _vt_string_set_insert(value_type_string_set* values, std::string_view text);
// Removes every entry that equals `text`, ignoring the case of ASCII letters.
void _vt_string_set_remove(value_type_string_set* values, std::string_view text);

}  // namespace tolven

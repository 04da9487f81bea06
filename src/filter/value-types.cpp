#include "filter/value-types.h"

#include "filter/fold.h"

namespace tolven {

namespace {

std::string_view BeforeNul(std::string_view text) { return text.substr(0, text.find('\0')); }

}  // namespace

void _vt_string_assign(value_type_string* value, std::string_view text) {
  value->str = BeforeNul(text);
}

void _vt_string_set_insert(value_type_string_set* values, std::string_view text) {
  values->set.emplace_back(BeforeNul(text));
}

void _vt_string_set_remove(value_type_string_set* values, std::string_view text) {
  std::erase_if(values->set, [text](const std::string& entry) { return fold::Equal(entry, text); });
}

}  // namespace tolven

#include "platform/paths.h"

namespace tolven::platform {

bool IsPathSeparator(char c) { return c == '/'; }

std::size_t PathRootLength(const ustring& path) {
  const std::size_t end = path.view().find_first_not_of('/');
  return end == std::string_view::npos ? path.size() : end;
}

bool NamesIgnoreCase() { return false; }

Status FromCodePage(const std::string& text, std::u16string& wide) {
  const ustring converted(text);
  wide = converted.c_str();
  return wide.empty() && !converted.empty() ? Status{ErrorKind::kInvalid, 0} : Status{};
}

Status ToCodePage(const std::u16string& wide, std::string& text) {
  const ustring converted(wide.c_str());
  text = converted.str();
  return text.empty() && !wide.empty() ? Status{ErrorKind::kInvalid, 0} : Status{};
}

}  // namespace tolven::platform

#include "platform/wide-windows.h"

#include <algorithm>

#include "platform/long-path.h"

namespace tolven::platform {

std::wstring ToWide(const ustring& text) {
  const std::u16string_view units(text.c_str());
  return {units.begin(), units.end()};
}

ustring FromWide(std::wstring_view text) {
  if (text.empty()) return {};
  const int units = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(std::max(size, 0)), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), size, nullptr, nullptr);
  return result;
}

ustring PathFromWide(std::wstring_view text) {
  std::string path = FromWide(text).str();
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

PathArgument::PathArgument(const ustring& path) {
  if (IsWindowsPath(path.view())) text_ = ToWide(get_extened_path(path));
  if (text_.empty()) status_ = StatusFromError(ERROR_INVALID_NAME);
}

}  // namespace tolven::platform

#include <algorithm>

#include "platform/long-path.h"
#include "platform/paths.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

bool IsPathSeparator(char c) { return c == '/' || c == '\\'; }

std::size_t PathRootLength(const ustring& path) { return WindowsRootLength(path.view()); }

bool NamesIgnoreCase() { return true; }

Status FromCodePage(const std::string& text, std::u16string& wide) {
  wide.clear();
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int units =
      ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (units <= 0) return {ErrorKind::kInvalid, static_cast<int>(::GetLastError())};
  std::wstring buffer(static_cast<std::size_t>(units), L'\0');
  ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text.data(), size, buffer.data(), units);
  wide.assign(buffer.begin(), buffer.end());
  return {};
}

Status ToCodePage(const std::u16string& wide, std::string& text) {
  text.clear();
  if (wide.empty()) return {};
  // Where the code page is UTF-8 the system does not tell what it replaced, but refuses it.
  const bool unicode = ::GetACP() == CP_UTF8;
  const DWORD flags = unicode ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
  const std::wstring units(wide.begin(), wide.end());
  const int count = static_cast<int>(units.size());
  BOOL replaced = FALSE;
  BOOL* const told = unicode ? nullptr : &replaced;
  const int size =
      ::WideCharToMultiByte(CP_ACP, flags, units.data(), count, nullptr, 0, nullptr, told);
  if (size <= 0) return {ErrorKind::kInvalid, static_cast<int>(::GetLastError())};
  if (replaced != FALSE) return {ErrorKind::kInvalid, ERROR_NO_UNICODE_TRANSLATION};
  text.resize(static_cast<std::size_t>(size));
  ::WideCharToMultiByte(CP_ACP, flags, units.data(), count, text.data(), size, nullptr, nullptr);
  return {};
}

}  // namespace tolven::platform
